#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/SavesUnderWay.h>
#include <storage/fileprovider/src/Staging.h>

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

namespace storage::fileprovider {

/// What is to be saved, and what must be so for it.
struct SaveRequest {
    /// A missing file is an error.
    bool mustExist = false;
    /// A file that exists, at the begin or at the end of the save, is an error.
    bool mustNotExist = false;
    /// How many bytes of the present contents the new ones begin with.
    std::uint64_t keep = 0;
    /// The permissions of a new file, before the umask.
    mode_t mode = 0666;

    static constexpr std::uint64_t keepAll = ~std::uint64_t{0};
};

/// The saving of one file: new contents are written to file(), and commit() puts them in place of the old as
/// a whole. Destroyed without commit(), or after one that failed, it leaves the old contents.
class SaveTransaction {
public:
    /// Errors: the provider's Exception: NotFound, AlreadyExists (also where a folder stands), NotWritable,
    /// AccessDenied, NotSupported for a device and the like, NoSpace.
    SaveTransaction(EnvironmentPtr environment, const foundation::storage::provider::StorageIRI& iri,
                    const SaveRequest& request);
    ~SaveTransaction();

    SaveTransaction(const SaveTransaction&) = delete;
    SaveTransaction& operator=(const SaveTransaction&) = delete;

    /// Open for reading and writing; holds the kept contents.
    int file() const { return m_staging->file.get(); }
    const Environment& environment() const { return *m_environment; }
    const foundation::storage::provider::StorageIRI& iri() const { return m_iri; }

    /// For one call. Errors: the provider's Exception. The target keeps the old contents then, unless it was
    /// being overwritten: the save is finished when the file is next opened, and the cause says so.
    void commit();

private:
    /// A file stands at the target, or nothing does. Links to it were followed when the save began.
    using Status = std::optional<struct stat>;

    Status readTarget() const;
    void requireWritable(const struct stat& target) const;
    void fillFromTarget();
    /// Returns false when a file has come into the way.
    bool commitNewFile();
    /// Returns false when another file has come into the target's place, when it has other permissions, and
    /// when it has changed or was being saved by another.
    bool commitReplacement(const struct stat& target);
    void requireUnchanged(const struct stat& target) const;
    bool replaceByRenaming();
    void discard() noexcept;

    const EnvironmentPtr m_environment;
    const foundation::storage::provider::StorageIRI m_iri;
    const SaveRequest m_request;
    const SavesUnderWay::Mark m_mark;
    std::string m_target;
    Status m_before;
    std::optional<Staging> m_staging;
};

} // namespace storage::fileprovider
