#include "TemporaryFolder.h"

#include <fl/i18n/utf8.h>

#include <random>
#include <string>
#include <system_error>

namespace kx::test {

namespace fs = std::filesystem;
using foundation::storage::provider::StorageIRI;

TemporaryFolder::TemporaryFolder() {
    std::random_device random;
    do {
        m_path = fs::temp_directory_path() / ("kx-test-" + std::to_string(random()));
    } while (!fs::create_directory(m_path));
}

TemporaryFolder::~TemporaryFolder() {
    const auto folder = pathForRemoval(m_path);
    std::error_code ignored;
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied,
                                                ignored);
         !ignored && entry != fs::recursive_directory_iterator(); entry.increment(ignored)) {
        if (entry->is_directory(ignored) && !entry->is_symlink(ignored)) {
            fs::permissions(entry->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
    fs::remove_all(folder, ignored);
}

StorageIRI TemporaryFolder::iri() const {
    return StorageIRI::fromLocalPath(m_path.generic_u16string());
}

StorageIRI TemporaryFolder::iri(std::string_view name) const {
    return iri().child(fl::i18n::fromUtf8(name));
}

} // namespace kx::test
