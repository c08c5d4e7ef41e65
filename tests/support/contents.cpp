#include "contents.h"

#include <foundation/storage/provider/IProvider.h>

#include <random>

namespace kx::test {

namespace provider = foundation::storage::provider;

std::string readAll(provider::ByteStream& stream) {
    std::string bytes;
    std::string buffer(std::size_t{64} * 1024, '\0');
    while (const auto got = stream.read(buffer.data(), static_cast<std::int64_t>(buffer.size()))) {
        bytes.append(buffer, 0, static_cast<std::size_t>(got));
    }
    return bytes;
}

void writeAll(provider::ByteStream& stream, std::string_view bytes) {
    stream.write(bytes.data(), static_cast<std::int64_t>(bytes.size()));
}

std::vector<fl::i18n::ustring> listNames(provider::IFolderEntryIterator& listing) {
    std::vector<fl::i18n::ustring> names;
    for (const auto& entry : listEntries(listing)) {
        names.push_back(entry.getName());
    }
    return names;
}

std::vector<provider::FolderEntry> listEntries(provider::IFolderEntryIterator& listing) {
    std::vector<provider::FolderEntry> entries;
    while (listing.hasNext()) {
        listing.next();
        entries.push_back(listing.current());
    }
    return entries;
}

std::string readFile(provider::IProvider& provider, const provider::StorageIRI& file) {
    const auto stream = provider.openReadStream(file);
    auto bytes = readAll(*stream);
    stream->close();
    return bytes;
}

void writeFile(provider::IProvider& provider, const provider::StorageIRI& file, std::string_view bytes,
               const provider::ByteStreamOpenOptions& options) {
    const auto stream = provider.openStream(file, options);
    writeAll(*stream, bytes);
    stream->close();
}

std::string randomBytes(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random() & 0xFF);
    }
    return bytes;
}

} // namespace kx::test
