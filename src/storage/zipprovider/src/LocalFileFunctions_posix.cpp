#include "LocalFileFunctions.h"

#include "LocalArchiveFile.h"

#include <fl/filesystem/detail/path_forms.h>

#include <minizip/ioapi.h>

#include <filesystem>
#include <memory>
#include <new>
#include <utility>

namespace storage::zipprovider::detail {

namespace {

// minizip's own table goes through the C library, which writes out what it holds at every step back and lets
// everybody read the files that it makes; the archive's contents may be private.

/// minizip's file. As long as minizip opens the archive, `opening` is who knows of it: where reading the
/// directory fails, minizip gives up without closing the file.
struct OpenedFile {
    std::unique_ptr<LocalArchiveFile> file;
    OpenedFile** opening;
};

LocalArchiveFile& self(voidpf file) {
    return *static_cast<OpenedFile*>(file)->file;
}

voidpf ZCALLBACK open(voidpf opening, const void* filename, int mode) {
    const bool create = (mode & ZLIB_FILEFUNC_MODE_CREATE) != 0;
    auto file =
        LocalArchiveFile::open(*static_cast<const std::filesystem::path*>(filename),
                               create ? LocalArchiveFile::Mode::Create : LocalArchiveFile::Mode::Open);
    auto** const place = static_cast<OpenedFile**>(opening);
    *place = file ? new (std::nothrow) OpenedFile{std::move(file), place} : nullptr;
    return *place;
}

uLong ZCALLBACK read(voidpf, voidpf file, void* buffer, uLong size) {
    return static_cast<uLong>(self(file).read(static_cast<char*>(buffer), size));
}

uLong ZCALLBACK write(voidpf, voidpf file, const void* buffer, uLong size) {
    return self(file).write(static_cast<const char*>(buffer), size) ? size : 0;
}

ZPOS64_T ZCALLBACK tell(voidpf, voidpf file) {
    return self(file).isGood() ? self(file).position() : static_cast<ZPOS64_T>(-1);
}

long ZCALLBACK seek(voidpf, voidpf file, ZPOS64_T offset, int origin) {
    switch (origin) {
    case ZLIB_FILEFUNC_SEEK_SET:
        self(file).goTo(offset);
        break;
    case ZLIB_FILEFUNC_SEEK_CUR:
        self(file).goTo(self(file).position() + offset);
        break;
    case ZLIB_FILEFUNC_SEEK_END:
        self(file).goTo(self(file).size() + offset);
        break;
    default:
        return -1;
    }
    return self(file).isGood() ? 0 : -1;
}

int ZCALLBACK close(voidpf, voidpf file) {
    const std::unique_ptr<OpenedFile> owned(static_cast<OpenedFile*>(file));
    if (owned->opening != nullptr) {
        *owned->opening = nullptr;
    }
    return owned->file->close() ? 0 : -1;
}

int ZCALLBACK error(voidpf, voidpf file) {
    return self(file).isGood() ? 0 : -1;
}

} // namespace

zipFile tryOpenLocalZip(const fl::filesystem::path& path, int mode) {
    zlib_filefunc64_def functions{};
    functions.zopen64_file = &open;
    functions.zread_file = &read;
    functions.zwrite_file = &write;
    functions.ztell64_file = &tell;
    functions.zseek64_file = &seek;
    functions.zclose_file = &close;
    functions.zerror_file = &error;
    const auto accessForm =
        fl::filesystem::detail::make_access_form(fl::filesystem::detail::to_filesystem(path));
    OpenedFile* opened = nullptr;
    functions.opaque = static_cast<void*>(&opened);
    const auto zip = zipOpen2_64(&accessForm, mode, nullptr, &functions);
    std::unique_ptr<OpenedFile> owned(opened);
    if (zip != nullptr && owned) {
        owned->opening = nullptr;
        static_cast<void>(owned.release());
    }
    return zip;
}

} // namespace storage::zipprovider::detail
