#include <apps/kxvfs/src/StandardInput.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace apps::kxvfs {

std::int64_t StandardInput::doRead(char* buffer, std::int64_t count) {
    const auto got = std::fread(buffer, 1, static_cast<std::size_t>(count), stdin);
    if (got == 0 && std::ferror(stdin))
        throw std::system_error(errno, std::generic_category(), "cannot read standard input");
    return static_cast<std::int64_t>(got);
}

std::int64_t StandardInput::doWrite(const char*, std::int64_t) {
    throw std::logic_error("standard input cannot be written");
}

std::int64_t StandardInput::doSeek(std::int64_t, foundation::storage::provider::SeekOrigin) {
    throw std::logic_error("standard input has no positions");
}

} // namespace apps::kxvfs
