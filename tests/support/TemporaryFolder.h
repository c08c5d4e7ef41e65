#pragma once

#include <foundation/storage/provider/StorageIRI.h>

#include <filesystem>
#include <string_view>

namespace kx::test {

/// A new empty local folder that is removed with all that is in it, also what was made read-only.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path file(std::string_view name) const { return m_path / name; }
    /// The IRI of scheme "file" of the folder, or of what is called `name` in it.
    foundation::storage::provider::StorageIRI iri() const;
    foundation::storage::provider::StorageIRI iri(std::string_view name) const;

private:
    /// The form of a path in which the system reaches whatever may stand below it. One file per system.
    static std::filesystem::path pathForRemoval(const std::filesystem::path& folder);

    std::filesystem::path m_path;
};

} // namespace kx::test
