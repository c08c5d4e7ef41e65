#include "UniqueName.h"
#include "failure.h"

#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/temporary.h>

#include <fl/i18n/utf8.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <utility>

namespace fl::filesystem {

namespace {

using i18n::ustring;
using i18n::ustring_view;

std::error_code lastError() {
    return {errno, std::generic_category()};
}

/// An empty name stands for the current folder.
path nativeFolder(ustring_view directory) {
    return directory.empty() ? path(".") : detail::make_native_form(directory, true);
}

/// The next candidate for a name in the folder.
ustring candidate(ustring_view directory, ustring_view prefix, ustring_view suffix) {
    ustring name(directory);
    if (!name.empty() && name.back() != u'/') {
        name += u'/';
    }
    name += prefix;
    name += i18n::fromUtf8(detail::nextUniquePart());
    name += suffix;
    return name;
}

/// Hands candidates to `attempt(path)` until it returns no EEXIST. Returns the candidate that was free.
template <typename Attempt>
ustring firstFreeName(std::string_view operation, ustring_view directory, ustring_view prefix,
                      ustring_view suffix, Attempt attempt) {
    const path folder = nativeFolder(directory);
    for (const ustring_view part : {prefix, suffix}) {
        if (part.find(u'/') != ustring_view::npos || part.find(u'\0') != ustring_view::npos) {
            detail::fail(operation, folder, std::make_error_code(std::errc::invalid_argument));
        }
    }
    for (int i = 0; i < detail::uniqueNameAttempts; ++i) {
        ustring name = candidate(directory, prefix, suffix);
        const std::error_code error = attempt(detail::make_native_form(name, true));
        if (!error) {
            return name;
        }
        if (error != std::errc::file_exists) {
            detail::fail(operation, folder, error);
        }
    }
    detail::fail(operation, folder, std::make_error_code(std::errc::file_exists));
}

/// Creates the file and opens it, or returns why not; `file` is set on success only.
std::error_code createExclusively(const path& item, FileOwner& file) {
    int descriptor = -1;
    do {
        descriptor =
            ::open(item.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        return lastError();
    }
    file.reset(::fdopen(descriptor, "w+b"));
    if (!file) {
        const std::error_code error = lastError();
        ::close(descriptor);
        ::unlink(item.c_str());
        return error;
    }
    return {};
}

std::error_code lookFor(const path& item) {
    struct stat found {};
    if (::lstat(item.c_str(), &found) == 0) {
        return std::make_error_code(std::errc::file_exists);
    }
    return errno == ENOENT ? std::error_code() : lastError();
}

void requireFolder(std::string_view operation, const path& folder) {
    struct stat found {};
    if (::stat(folder.c_str(), &found) != 0) {
        detail::fail(operation, folder, lastError());
    }
    if (!S_ISDIR(found.st_mode)) {
        detail::fail(operation, folder, std::make_error_code(std::errc::not_a_directory));
    }
}

} // namespace

ustring temp_directory_name() {
    const char* const named = std::getenv("TMPDIR");
    std::error_code error;
    if (named == nullptr || !std::filesystem::is_directory(named, error)) {
        return u"/tmp";
    }
    // Names of temporary files outlive a change of the current folder.
    path folder = named;
    if (!folder.is_absolute()) {
        folder = std::filesystem::absolute(folder, error);
    }
    return !error && i18n::isUtf8(folder.native()) ? i18n::fromUtf8(folder.native()) : u"/tmp";
}

TemporaryFile tmpfile(ustring_view directory, ustring_view prefix, ustring_view suffix) {
    TemporaryFile created;
    created.name =
        firstFreeName("create a temporary file in", directory, prefix, suffix, [&created](const path& item) {
            created.item = item;
            return createExclusively(item, created.file);
        });
    return created;
}

ustring tmpnam(ustring_view directory, ustring_view prefix, ustring_view suffix) {
    constexpr std::string_view operation = "choose a temporary name in";
    requireFolder(operation, nativeFolder(directory));
    return firstFreeName(operation, directory, prefix, suffix, lookFor);
}

} // namespace fl::filesystem
