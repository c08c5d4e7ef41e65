// Covers what stands between an entry and its bytes: the local header, stored and deflated data, the promised
// sizes and checksum, and the working file that the bytes go to. The central directory is the other target's.

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>

#include <foundation/storage/provider/IProvider.h>
#include <storage/zipprovider/src/ZipProviderFactory.h>

#include "BytesContainer.h"

namespace {

using namespace foundation::storage::provider;

/// An entry that promises more costs disk and time, and leads nowhere else.
constexpr std::uint64_t sizeLimit = 1 << 20;
constexpr int entryLimit = 16;

void readEntry(IProvider& provider, const StorageIRI& location) {
    const auto size = provider.getFileAttributes(location).getSize().value_or(0);
    if (size > sizeLimit)
        return;
    const auto stream = provider.openReadStream(location);
    std::array<char, 4096> buffer;
    std::uint64_t total = 0;
    while (const std::int64_t count = stream->read(buffer.data(), buffer.size()))
        total += static_cast<std::uint64_t>(count);
    // No entry gives more bytes than the directory promises.
    if (total > size)
        __builtin_trap();
    stream->seek(0, SeekOrigin::Begin);
    stream->close();
}

void readEntries(const StorageItem& container) {
    const auto provider = storage::zipprovider::ZipProviderFactory().createProvider(container);
    const StorageIRI root = StorageIRI::inContainer("zip", container.getLocation(), u"/");
    int left = entryLimit;
    for (const auto entries = provider->listAllRecursive(root); entries->hasNext() && left > 0; --left) {
        entries->next();
        if (entries->current().isFolder())
            continue;
        try {
            readEntry(*provider, root.withPath(u"/" + entries->current().getName()));
        } catch (const std::exception&) {
            // One damaged entry is reported and keeps nobody from the others.
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        readEntries(kx::fuzz::bytesContainer({reinterpret_cast<const char*>(data), size}));
    } catch (const std::exception&) {
        // An archive that cannot be enumerated is reported; it must not do anything else.
    }
    return 0;
}
