#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/Recovery.h>
#include <storage/fileprovider/src/SavesUnderWay.h>
#include <storage/fileprovider/src/WindowsFile.h>

#include <cstdint>
#include <filesystem>
#include <optional>

namespace storage::fileprovider {

/// What is to be saved, and what must be so for it.
struct WindowsSaveRequest {
    /// A missing file is an error.
    bool mustExist = false;
    /// A file that exists, at the begin or at the end of the save, is an error.
    bool mustNotExist = false;
    /// How many bytes of the present contents the new ones begin with.
    std::uint64_t keep = 0;

    static constexpr std::uint64_t keepAll = ~std::uint64_t{0};
};

/// The saving of one file: new contents are written to file(), and commit() puts them in place of the old as
/// a whole. Destroyed without commit(), or after one that failed, it leaves the old contents.
///
/// A file that is open elsewhere without being shared for deletion cannot be replaced (Busy). The system
/// replaces a file in two steps, so its complete staging file gets a name first by which whoever finds no
/// file finishes the replacing. A file that several hard links lead to is overwritten instead: its complete
/// staging file is renamed into a journal first, from which an interrupted overwriting is finished by whoever
/// opens the file next.
class WindowsSave {
public:
    /// Errors: the provider's Exception: NotFound, AlreadyExists (also where a folder stands), NotWritable,
    /// AccessDenied, Busy, NoSpace.
    WindowsSave(const foundation::storage::provider::StorageIRI& iri, const WindowsSaveRequest& request,
                bool sync);
    ~WindowsSave();

    WindowsSave(const WindowsSave&) = delete;
    WindowsSave& operator=(const WindowsSave&) = delete;

    /// Open for reading and writing; holds the kept contents.
    HANDLE file() const { return m_staging.get(); }
    const foundation::storage::provider::StorageIRI& iri() const { return m_iri; }

    /// For one call. Errors: the provider's Exception.
    void commit();

private:
    std::optional<FileStatus> readTarget() const;
    void createStaging();
    void fillFromTarget();
    void requireUnchanged(const FileStatus& target) const;
    bool commitNewFile();
    void replace();
    void nameReplacement();
    DWORD replaceBy(const std::filesystem::path& replacement) const;
    void overwrite(const FileStatus& target);
    void passLockOn();
    void discard() noexcept;

    const foundation::storage::provider::StorageIRI m_iri;
    const SavesUnderWay::Mark m_mark;
    const WindowsSaveRequest m_request;
    const bool m_sync;
    const std::filesystem::path m_target;
    std::optional<FileStatus> m_before;
    std::filesystem::path m_stagingPath;
    FileHandle m_staging;
};

/// statusOf(path) of a file that another process may be replacing: waits for it, or finishes in the place of
/// one that was killed.
std::optional<FileStatus> settledStatusOf(const std::filesystem::path& path) noexcept;

/// Contract: recoverFile. `target` has no links.
RecoveryReport recoverTarget(const foundation::storage::provider::StorageIRI& iri,
                             const std::filesystem::path& target);

} // namespace storage::fileprovider
