#pragma once

#include <minizip/ioapi.h>

#include <algorithm>
#include <cstdint>
#include <ios>
#include <istream>

namespace storage::zipprovider {

/// The functions through which minizip reads an archive that lives behind a seekable stream of type `Stream`
/// (a std::iostream). The stream's address stands for the file name and for minizip's file pointer alike.
/// None of them throws: an exception must not pass through minizip's C frames. The stream's failure state is
/// never cleared, so once it has failed every seek and the error test fail.
template <typename Stream>
class StreamFileFunctions {
public:
    /// The table for unzOpen2_64. Spanned archives are not supported: nothing opens another disk.
    static zlib_filefunc64_def table() noexcept {
        zlib_filefunc64_def functions{};
        functions.zopen64_file = &open;
        functions.zread_file = &read;
        functions.zwrite_file = &write;
        functions.ztell64_file = &tell;
        functions.zseek64_file = &seek;
        functions.zclose_file = &close;
        functions.zerror_file = &error;
        functions.opaque = nullptr;
        return functions;
    }

    static voidpf ZCALLBACK open(voidpf, const void* filename, int) { return const_cast<voidpf>(filename); }

    /// A read that yields nothing is an error to minizip, also when nothing was asked for.
    static uLong ZCALLBACK read(voidpf, voidpf stream, void* buffer, uLong size) {
        try {
            const auto count = std::min<std::uint64_t>(size, failedCount);
            const auto got =
                self(stream).rdbuf()->sgetn(static_cast<char*>(buffer), static_cast<std::streamsize>(count));
            return got <= 0 ? static_cast<uLong>(failedCount) : static_cast<uLong>(got);
        } catch (...) {
            markBad(stream);
            return static_cast<uLong>(failedCount);
        }
    }

    static uLong ZCALLBACK write(voidpf, voidpf stream, const void* buffer, uLong size) {
        try {
            return static_cast<uLong>(self(stream).rdbuf()->sputn(static_cast<const char*>(buffer),
                                                                  static_cast<std::streamsize>(size)));
        } catch (...) {
            markBad(stream);
            return 0;
        }
    }

    static ZPOS64_T ZCALLBACK tell(voidpf, voidpf stream) {
        try {
            return static_cast<ZPOS64_T>(static_cast<std::int64_t>(std::streamoff(self(stream).tellg())));
        } catch (...) {
            return static_cast<ZPOS64_T>(-1);
        }
    }

    static long ZCALLBACK seek(voidpf, voidpf stream, ZPOS64_T offset, int origin) {
        std::ios_base::seekdir way = std::ios_base::beg;
        switch (origin) {
        case ZLIB_FILEFUNC_SEEK_SET:
            break;
        case ZLIB_FILEFUNC_SEEK_CUR:
            way = std::ios_base::cur;
            break;
        case ZLIB_FILEFUNC_SEEK_END:
            way = std::ios_base::end;
            break;
        default:
            return -1;
        }
        try {
            self(stream).seekg(static_cast<std::streamoff>(offset), way);
        } catch (...) {
            return -1;
        }
        return self(stream).good() ? 0 : -1;
    }

    static int ZCALLBACK close(voidpf, voidpf stream) {
        try {
            self(stream).close();
        } catch (...) {
            return -1;
        }
        return self(stream).good() ? 0 : -1;
    }

    static int ZCALLBACK error(voidpf, voidpf stream) { return self(stream).good() ? 0 : -1; }

private:
    /// minizip's byte counts are 32 bits wide where its "unsigned long" is.
    static constexpr std::uint64_t failedCount = 0xFFFFFFFF;

    static Stream& self(voidpf stream) { return *static_cast<Stream*>(stream); }

    static void markBad(voidpf stream) noexcept {
        try {
            self(stream).setstate(std::ios_base::badbit);
        } catch (...) {
            // The state is set before the stream's exception mask lets setstate throw.
        }
    }
};

} // namespace storage::zipprovider
