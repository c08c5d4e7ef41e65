#include "failure.h"

#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/operations.h>

#include <fl/i18n/utf8.h>

#include <sys/stat.h>

#include <cerrno>
#include <ctime>

namespace fl::filesystem {

namespace {

using boost::posix_time::ptime;

std::filesystem::file_type typeOf(mode_t mode) {
    using std::filesystem::file_type;
    switch (mode & S_IFMT) {
    case S_IFREG:
        return file_type::regular;
    case S_IFDIR:
        return file_type::directory;
    case S_IFBLK:
        return file_type::block;
    case S_IFCHR:
        return file_type::character;
    case S_IFIFO:
        return file_type::fifo;
    case S_IFSOCK:
        return file_type::socket;
    default:
        return file_type::unknown;
    }
}

ptime timeOf(const timespec& stamp) {
    constexpr std::int64_t firstSecond = -17'987'443'200; // 1400-01-01
    constexpr std::int64_t lastSecond = 253'402'300'799;  // 9999-12-31 23:59:59
    if (stamp.tv_sec < firstSecond || stamp.tv_sec > lastSecond) {
        return ptime(boost::posix_time::not_a_date_time);
    }
    return ptime(boost::gregorian::date(1970, 1, 1)) + boost::posix_time::seconds(stamp.tv_sec) +
           boost::posix_time::microseconds(stamp.tv_nsec / 1000);
}

} // namespace

bool exists(const path& item) {
    std::error_code error;
    const bool found = std::filesystem::exists(item, error);
    if (error) {
        detail::fail("look for", item, error);
    }
    return found;
}

file_status status(const path& item) {
    struct stat found {};
    if (::stat(item.c_str(), &found) != 0) {
        detail::fail("read the attributes of", item, {errno, std::generic_category()});
    }
    return {typeOf(found.st_mode), static_cast<std::uint64_t>(found.st_size), timeOf(found.st_mtim)};
}

bool remove(const path& item) {
    std::error_code error;
    const bool removed = std::filesystem::remove(item, error);
    if (error) {
        detail::fail("remove", item, error);
    }
    return removed;
}

std::uint64_t remove_all(const path& item) {
    std::error_code error;
    const std::uintmax_t removed = std::filesystem::remove_all(item, error);
    if (error) {
        detail::fail("remove", item, error);
    }
    return removed;
}

path detail::make_native_form(i18n::ustring_view name, bool /*preferredSeparators*/) {
    return path(i18n::toUtf8(name));
}

std::filesystem::path detail::to_filesystem(const path& item) {
    return item;
}

std::filesystem::path detail::make_access_form(const std::filesystem::path& item) {
    return item;
}

} // namespace fl::filesystem
