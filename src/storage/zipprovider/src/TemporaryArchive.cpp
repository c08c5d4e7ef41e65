#include "TemporaryArchive.h"

#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/operations.h>
#include <fl/filesystem/temporary.h>

#include <filesystem>
#include <system_error>
#include <utility>

namespace storage::zipprovider {

TemporaryArchive::TemporaryArchive()
    : m_path(fl::filesystem::detail::make_native_form(
          fl::filesystem::tmpnam(fl::filesystem::temp_directory_name(), u"zipProvider-", u"sanitized.zip"),
          true)),
      m_keptPath(m_path.parent_path() / ("kept-" + m_path.filename().string())) {}

TemporaryArchive::~TemporaryArchive() {
    if (m_kept) {
        return;
    }
    try {
        remove();
    } catch (...) {
        // A file left in the temporary directory harms nobody, but want of memory is no reason to leave one.
        std::error_code failure;
        std::filesystem::remove(m_path, failure);
    }
}

fl::filesystem::path TemporaryArchive::keep() noexcept {
    m_kept = true;
    std::error_code error;
    std::filesystem::rename(m_path, m_keptPath, error);
    // Under its own name it is kept as well.
    return std::move(error ? m_path : m_keptPath);
}

void TemporaryArchive::remove() {
    fl::filesystem::remove_all(m_path);
}

} // namespace storage::zipprovider
