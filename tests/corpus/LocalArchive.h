#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <support/archives/ArchiveBuilder.h>

namespace kx::test {

/// The plug-in's provider over an archive on disk.
std::shared_ptr<foundation::storage::provider::IProvider> openArchive(const std::filesystem::path& file);
/// The root of that archive.
foundation::storage::provider::StorageIRI archiveRoot(const std::filesystem::path& file);

/// An archive in a folder of its own, which also holds the working files (TMPDIR). Both go with the object.
class LocalArchive {
public:
    explicit LocalArchive(const ArchiveBuilder& builder);
    explicit LocalArchive(const std::string& bytes);
    ~LocalArchive();
    LocalArchive(const LocalArchive&) = delete;
    LocalArchive& operator=(const LocalArchive&) = delete;

    const std::filesystem::path& file() const { return m_file; }
    foundation::storage::provider::IProvider& provider() { return *m_provider; }
    foundation::storage::provider::StorageIRI at(const std::string& path) const;
    /// The whole contents of a small file of the archive.
    std::string read(const std::string& path);

private:
    LocalArchive();
    void open();

    std::filesystem::path m_folder;
    std::filesystem::path m_file;
    std::shared_ptr<foundation::storage::provider::IProvider> m_provider;
};

} // namespace kx::test
