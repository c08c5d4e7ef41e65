#include "LocalFileFunctions.h"

#include <fl/filesystem/detail/path_forms.h>

#include <minizip/ioapi.h>

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace storage::zipprovider::detail {

namespace {

/// minizip's own opener creates files that everybody may read; the archive's contents may be private.
voidpf ZCALLBACK openPrivately(voidpf, const void* filename, int mode) {
    const bool create = (mode & ZLIB_FILEFUNC_MODE_CREATE) != 0;
    const int flags = O_RDWR | O_CLOEXEC | (create ? O_CREAT | O_TRUNC | O_NOFOLLOW : 0);
    const int descriptor = ::open(static_cast<const char*>(filename), flags, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
        return nullptr;
    }
    std::FILE* file = ::fdopen(descriptor, create ? "w+b" : "r+b");
    if (file == nullptr) {
        ::close(descriptor);
    }
    return file;
}

} // namespace

zipFile tryOpenLocalZip(const fl::filesystem::path& path, int mode) {
    zlib_filefunc64_def functions{};
    fill_fopen64_filefunc(&functions);
    functions.zopen64_file = &openPrivately;
    const auto accessForm =
        fl::filesystem::detail::make_access_form(fl::filesystem::detail::to_filesystem(path));
    return zipOpen2_64(accessForm.c_str(), mode, nullptr, &functions);
}

} // namespace storage::zipprovider::detail
