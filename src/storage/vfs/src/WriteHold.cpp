#include <storage/vfs/src/WriteHold.h>

#include <fl/i18n/ustring.h>
#include <fmt/format.h>

#include <random>

namespace storage::vfs {

using namespace foundation::storage::provider;

namespace {

StorageIRI unusedEntry(IProvider& provider, const StorageIRI& root) {
    std::random_device source;
    for (;;) {
        const auto text = fmt::format(".kxvfs-{:08x}{:08x}", source(), source());
        auto entry = root.child(fl::i18n::ustring(text.begin(), text.end()));
        if (!provider.exists(entry))
            return entry;
    }
}

} // namespace

std::unique_ptr<ByteStream> holdWrites(IProvider& provider, const StorageIRI& root) {
    const auto entry = unusedEntry(provider, root);
    auto stream = provider.openStream(entry, ByteStreamOpenOptions::overwrite());
    provider.removeFile(entry);
    return stream;
}

} // namespace storage::vfs
