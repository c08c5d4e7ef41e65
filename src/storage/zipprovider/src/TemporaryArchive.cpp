#include "TemporaryArchive.h"

#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/operations.h>
#include <fl/filesystem/temporary.h>

#include <filesystem>

namespace storage::zipprovider {

TemporaryArchive::TemporaryArchive()
    : m_path(fl::filesystem::detail::make_native_form(
          fl::filesystem::tmpnam(fl::filesystem::temp_directory_name(), u"zipProvider-", u"sanitized.zip"),
          true)) {}

TemporaryArchive::~TemporaryArchive() {
    if (m_kept) {
        return;
    }
    try {
        remove();
    } catch (...) {
        // The archive is not needed any more; a file left in the temporary directory harms nobody.
    }
}

void TemporaryArchive::keep() noexcept {
    m_kept = true;
    try {
        const auto kept = m_path.parent_path() / ("kept-" + m_path.filename().string());
        std::filesystem::rename(m_path, kept);
        m_path = kept;
    } catch (...) {
        // Under its own name it is kept as well.
    }
}

void TemporaryArchive::remove() {
    fl::filesystem::remove_all(m_path);
}

} // namespace storage::zipprovider
