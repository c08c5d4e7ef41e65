#include "StreamCopy.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

#include <limits>

namespace foundation::storage::provider {

namespace {

bool isSamePlace(IProvider& provider, const StorageIRI& a, const StorageIRI& b) {
    const auto first = provider.getCanonicalLocation(a);
    const auto second = provider.getCanonicalLocation(b);
    return first.withPath({}) == second.withPath({}) &&
           provider.getPathComparator()(first.getResolvedPath(), second.getResolvedPath()) == 0;
}

/// Opens the source of a copy once nothing stands against it; null when there is nothing to do because source
/// and destination are one file.
std::unique_ptr<ByteStream> openCopySource(IProvider& provider, const StorageIRI& source,
                                           const StorageIRI& destination, MoveOption option) {
    if (!provider.isFile(source)) {
        throw Exception(ErrorCode::NotFound, source);
    }
    if (provider.isFolder(destination)) {
        throw Exception(ErrorCode::AlreadyExists, destination, "a folder of this name exists");
    }
    if (!replacesExisting(option) && provider.isFile(destination)) {
        throw Exception(ErrorCode::AlreadyExists, destination);
    }
    // Opening it for writing would empty the file before it is read.
    if (isSamePlace(provider, source, destination)) {
        return nullptr;
    }
    return provider.openReadStream(source);
}

} // namespace

void IProvider::doCopyFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) {
    if (const auto in = openCopySource(*this, source, destination, option)) {
        const auto out = doOpenStream(destination, ByteStreamOpenOptions::overwrite());
        detail::copyBytes(*in, *out);
        out->close();
    }
}

void IProvider::doCopyFileAtomic(const StorageIRI& source, const StorageIRI& destination, MoveOption option) {
    if (const auto in = openCopySource(*this, source, destination, option)) {
        const auto out = doOpenTransactionalStreamAtScratchLocation(destination, destination.parent(),
                                                                    ByteStreamOpenOptions::overwrite());
        detail::copyBytes(*in, *out);
        out->close();
    }
}

void IProvider::doTruncateToSize(const StorageIRI& file, std::uint64_t size) {
    if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        throw Exception(ErrorCode::InvalidArgument, file, "the size is beyond what a stream can reach");
    }
    const auto existing = [](StreamTruncation truncation) {
        return ByteStreamOpenOptions{StreamAccess::Write, StreamDisposition::OpenExisting, truncation,
                                     StreamPositioning::Position};
    };
    const auto oldSize = [&] {
        const auto known = doGetFileAttributes(file).getSize();
        return known ? *known : static_cast<std::uint64_t>(doOpenReadStream(file)->seek(0, SeekOrigin::End));
    }();
    if (size == oldSize) {
        return;
    }
    if (size > oldSize) {
        const auto out = doOpenStream(file, existing(StreamTruncation::Keep));
        out->seek(static_cast<std::int64_t>(size - 1), SeekOrigin::Begin);
        out->write("", 1);
        out->close();
        return;
    }
    // The only way to shorten a file that every provider has is to write it anew.
    const auto out = doOpenTransactionalStream(file, existing(StreamTruncation::Truncate));
    const auto in = doOpenReadStream(file);
    detail::copyBytes(*in, *out, size);
    in->close();
    out->close();
}

} // namespace foundation::storage::provider
