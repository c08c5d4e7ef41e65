#include "StandIn.h"

#include <cstdio>
#include <sys/types.h>

// Each stands in for the function of the name in its assembler label (StandIn.h).
extern "C" {

using namespace kx::test;
using namespace kx::test::detail;

KX_STAND_IN(FILE*, fopen64, (const char* path, const char* mode)) {
    static const auto call = next<FILE*(const char*, const char*)>("fopen64");
    return enter("fopen") == Verdict::Goes ? call(path, mode) : nullptr;
}

KX_STAND_IN(FILE*, fdopen, (int file, const char* mode)) {
    static const auto call = next<FILE*(int, const char*)>("fdopen");
    return enter("fdopen") == Verdict::Goes ? call(file, mode) : nullptr;
}

KX_STAND_IN(int, fclose, (FILE * stream)) {
    static const auto call = next<int(FILE*)>("fclose");
    const auto verdict = enter("fclose");
    const int error = errno;
    setBad(stream, false);
    const int result = call(stream);
    if (verdict == Verdict::Goes) {
        return result;
    }
    errno = error;
    return EOF;
}

KX_STAND_IN(std::size_t, fread, (void* buffer, std::size_t size, std::size_t count, FILE* stream)) {
    static const auto call = next<std::size_t(void*, std::size_t, std::size_t, FILE*)>("fread");
    if (enter("fread") == Verdict::Goes) {
        return call(buffer, size, count, stream);
    }
    setBad(stream, true);
    return 0;
}

KX_STAND_IN(std::size_t, __fread_chk,
            (void* buffer, std::size_t room, std::size_t size, std::size_t count, FILE* stream)) {
    static const auto call =
        next<std::size_t(void*, std::size_t, std::size_t, std::size_t, FILE*)>("__fread_chk");
    if (enter("fread") == Verdict::Goes) {
        return call(buffer, room, size, count, stream);
    }
    setBad(stream, true);
    return 0;
}

KX_STAND_IN(std::size_t, fwrite, (const void* buffer, std::size_t size, std::size_t count, FILE* stream)) {
    static const auto call = next<std::size_t(const void*, std::size_t, std::size_t, FILE*)>("fwrite");
    if (enter("fwrite") == Verdict::Goes) {
        return call(buffer, size, count, stream);
    }
    setBad(stream, true);
    return 0;
}

KX_STAND_IN(int, ferror, (FILE * stream)) {
    static const auto call = next<int(FILE*)>("ferror");
    return isBad(stream) ? 1 : call(stream);
}

KX_STAND_IN(int, fseeko64, (FILE * stream, off_t offset, int origin)) {
    static const auto call = next<int(FILE*, off_t, int)>("fseeko64");
    return guarded("fseek", CallKind::Other, [&] { return call(stream, offset, origin); });
}

KX_STAND_IN(off_t, ftello64, (FILE * stream)) {
    static const auto call = next<off_t(FILE*)>("ftello64");
    return guarded("ftell", CallKind::Other, [&] { return call(stream); });
}

KX_STAND_IN(int, fflush, (FILE * stream)) {
    static const auto call = next<int(FILE*)>("fflush");
    return guarded("fflush", CallKind::Other, [&] { return call(stream); });
}
}
