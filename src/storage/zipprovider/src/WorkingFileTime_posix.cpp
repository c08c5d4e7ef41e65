#include "WorkingFileTime.h"

#include <filesystem>
#include <system_error>

namespace storage::zipprovider {

void copyLastModified(const fl::filesystem::path& from, const fl::filesystem::path& to) noexcept {
    std::error_code failure;
    const auto time = std::filesystem::last_write_time(from, failure);
    if (!failure) {
        std::filesystem::last_write_time(to, time, failure);
    }
}

} // namespace storage::zipprovider
