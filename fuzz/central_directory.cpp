// Covers what stands between the container's bytes and the folder index: the search for the end record, the
// walk over the central directory, names, dates, and the tree that is made of them. Entry data is the other
// target's.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

#include <foundation/storage/provider/IProvider.h>
#include <storage/zipprovider/src/ZipProviderFactory.h>

#include "BytesContainer.h"

namespace {

using namespace foundation::storage::provider;

void listEverything(const StorageItem& container) {
    const auto provider = storage::zipprovider::ZipProviderFactory().createProvider(container);
    const StorageIRI root = StorageIRI::inContainer("zip", container.getLocation(), u"/");
    for (const auto entries = provider->listAllRecursive(root); entries->hasNext();) {
        entries->next();
        const FolderEntry entry = entries->current();
        const StorageIRI location = root.withPath(u"/" + entry.getName());
        // What a listing shows must be there when it is asked for.
        if (entry.isFolder()) {
            if (!provider->isFolder(location))
                __builtin_trap();
            provider->getFolderAttributes(location);
        } else {
            if (!provider->isFile(location))
                __builtin_trap();
            provider->getFileAttributes(location);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        listEverything(kx::fuzz::bytesContainer({reinterpret_cast<const char*>(data), size}));
    } catch (const std::exception&) {
        // A damaged archive is reported; it must not do anything else.
    }
    return 0;
}
