#include "IndependentArchive.h"

#include <archive.h>
#include <archive_entry.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace kx::test {

namespace {

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;

void check(const Reader& reader, int result) {
    if (result != ARCHIVE_OK)
        throw std::runtime_error(archive_error_string(reader.get()));
}

std::string readData(const Reader& reader) {
    std::string bytes;
    std::array<char, 4096> buffer;
    for (;;) {
        const auto got = archive_read_data(reader.get(), buffer.data(), buffer.size());
        if (got < 0)
            throw std::runtime_error(archive_error_string(reader.get()));
        if (got == 0)
            return bytes;
        bytes.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

} // namespace

std::map<std::string, std::string> readIndependently(std::string_view bytes) {
    std::map<std::string, std::string> entries;
    // libarchive takes an end record alone for no archive.
    if (bytes.empty() || bytes.starts_with("PK\x05\x06"))
        return entries;
    const Reader reader(archive_read_new(), &archive_read_free);
    check(reader, archive_read_support_format_zip_seekable(reader.get()));
    check(reader, archive_read_open_memory(reader.get(), bytes.data(), bytes.size()));
    archive_entry* entry = nullptr;
    for (;;) {
        const int result = archive_read_next_header(reader.get(), &entry);
        if (result == ARCHIVE_EOF)
            return entries;
        check(reader, result);
        const std::string name = archive_entry_pathname(entry);
        if (!entries.emplace(name, readData(reader)).second)
            throw std::runtime_error("two entries are named " + name);
    }
}

} // namespace kx::test
