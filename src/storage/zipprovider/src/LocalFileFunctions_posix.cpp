#include "LocalFileFunctions.h"

#include <fl/filesystem/detail/path_forms.h>

#include <minizip/ioapi.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace storage::zipprovider::detail {

namespace {

/// The file that minizip writes. minizip does not look at the result of every call (a position that cannot be
/// told becomes the position of an entry), so after the first failure every call fails, the last one too.
struct LocalFile {
    std::FILE* file;
    int error = 0;

    /// Whether calls still go through; if not, `errno` is the first failure's.
    bool isGood() const {
        errno = error != 0 ? error : errno;
        return error == 0;
    }
    /// Remembers a failure; returns whether there was none.
    bool expect(bool succeeded) {
        if (!succeeded && error == 0) {
            error = errno != 0 ? errno : EIO;
        }
        return isGood();
    }
};

LocalFile& self(voidpf stream) {
    return *static_cast<LocalFile*>(stream);
}

int openRetrying(const char* path, int flags) {
    int descriptor = -1;
    do {
        descriptor = ::open(path, flags, S_IRUSR | S_IWUSR);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

/// minizip's own opener creates files that everybody may read; the archive's contents may be private.
voidpf ZCALLBACK openPrivately(voidpf, const void* filename, int mode) {
    const bool create = (mode & ZLIB_FILEFUNC_MODE_CREATE) != 0;
    const int flags = O_RDWR | O_CLOEXEC | (create ? O_CREAT | O_TRUNC | O_NOFOLLOW : 0);
    const int descriptor = openRetrying(static_cast<const char*>(filename), flags);
    if (descriptor < 0) {
        return nullptr;
    }
    std::FILE* file = ::fdopen(descriptor, create ? "w+b" : "r+b");
    if (file == nullptr) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
        return nullptr;
    }
    auto* const opened = new (std::nothrow) LocalFile{file};
    if (opened == nullptr) {
        std::fclose(file);
        errno = ENOMEM;
    }
    return opened;
}

uLong ZCALLBACK read(voidpf, voidpf stream, void* buffer, uLong size) {
    auto& to = self(stream);
    if (!to.isGood()) {
        return 0;
    }
    const auto got = std::fread(buffer, 1, size, to.file);
    return to.expect(std::ferror(to.file) == 0) ? got : 0;
}

uLong ZCALLBACK write(voidpf, voidpf stream, const void* buffer, uLong size) {
    auto& to = self(stream);
    return to.isGood() && to.expect(std::fwrite(buffer, 1, size, to.file) == size) ? size : 0;
}

ZPOS64_T ZCALLBACK tell(voidpf, voidpf stream) {
    auto& to = self(stream);
    const auto position = to.isGood() ? ::ftello(to.file) : -1;
    return static_cast<ZPOS64_T>(to.expect(position >= 0) ? position : -1);
}

long ZCALLBACK seek(voidpf, voidpf stream, ZPOS64_T offset, int origin) {
    const int way = origin == ZLIB_FILEFUNC_SEEK_CUR   ? SEEK_CUR
                    : origin == ZLIB_FILEFUNC_SEEK_END ? SEEK_END
                                                       : SEEK_SET;
    auto& to = self(stream);
    return to.isGood() && to.expect(::fseeko(to.file, static_cast<off_t>(offset), way) == 0) ? 0 : -1;
}

int ZCALLBACK close(voidpf, voidpf stream) {
    const std::unique_ptr<LocalFile> closed(&self(stream));
    errno = 0;
    return closed->expect(std::fclose(closed->file) == 0) ? 0 : -1;
}

int ZCALLBACK error(voidpf, voidpf stream) {
    return self(stream).isGood() ? 0 : -1;
}

} // namespace

zipFile tryOpenLocalZip(const fl::filesystem::path& path, int mode) {
    zlib_filefunc64_def functions{};
    functions.zopen64_file = &openPrivately;
    functions.zread_file = &read;
    functions.zwrite_file = &write;
    functions.ztell64_file = &tell;
    functions.zseek64_file = &seek;
    functions.zclose_file = &close;
    functions.zerror_file = &error;
    const auto accessForm =
        fl::filesystem::detail::make_access_form(fl::filesystem::detail::to_filesystem(path));
    return zipOpen2_64(accessForm.c_str(), mode, nullptr, &functions);
}

} // namespace storage::zipprovider::detail
