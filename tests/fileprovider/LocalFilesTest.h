#pragma once

#include <foundation/core/SourceLocation.h>
#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/fileprovider/Recovery.h>
#include <support/TemporaryFolder.h>
#include <support/contents.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace storage::fileprovider {
class SystemCalls;
}

namespace kx::test {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::StorageIRI;
using storage::fileprovider::LocalFileOptions;
using storage::fileprovider::LocalFileProvider;
using storage::fileprovider::RecoveryOutcome;

// The plain calls of the system, beside the provider.
std::string slurp(const std::filesystem::path& path);
void spit(const std::filesystem::path& path, std::string_view bytes);
struct stat statusOf(const std::filesystem::path& path);
/// Empty when there is none.
std::string attributeOf(const std::filesystem::path& path, const char* name);
/// False where the file system has no such attributes.
bool setAttributeOf(const std::filesystem::path& path, const char* name, std::string_view value);
/// An access control list that lets user `user` read: owner rw, group r, others nothing.
std::string accessControlListFor(std::uint32_t user);
/// The names in a folder, in order.
std::vector<std::string> namesIn(const std::filesystem::path& folder);
/// Those of them that are working files of saves.
std::vector<std::string> workingFilesIn(const std::filesystem::path& folder);
/// Whether a test may act as other users and mount file systems.
bool isSuperuser();

/// A provider over a folder of its own, with a state folder of its own.
class LocalFilesTest : public testing::Test {
protected:
    LocalFilesTest();

    const std::filesystem::path& folder() const { return m_folder.path(); }
    const std::filesystem::path& stateFolder() const { return m_state.path(); }
    std::filesystem::path file(std::string_view name) const { return m_folder.file(name); }
    StorageIRI iri(std::string_view name) const { return m_folder.iri(name); }

    LocalFileOptions options(std::shared_ptr<storage::fileprovider::SystemCalls> calls = nullptr) const;
    LocalFileProvider& files() { return *m_files; }

    /// Saves through the provider.
    void save(std::string_view name, std::string_view bytes, const ByteStreamOpenOptions& how = {});
    std::string read(std::string_view name);
    /// What explicit recovery says of a file.
    RecoveryOutcome recover(std::string_view name);

    /// No working file is left beside the files or in the state folder.
    void
    expectNothingLeft(foundation::core::SourceLocation place = foundation::core::SourceLocation::current());
    /// Runs `operation` and expects the provider's Exception with this code; returns its whole text.
    static std::string
    expectError(ErrorCode code, const std::function<void()>& operation,
                foundation::core::SourceLocation place = foundation::core::SourceLocation::current());

private:
    const TemporaryFolder m_folder;
    const TemporaryFolder m_state;
    const std::shared_ptr<LocalFileProvider> m_files;
};

} // namespace kx::test
