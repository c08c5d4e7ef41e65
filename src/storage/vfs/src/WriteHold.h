#pragma once

#include <foundation/storage/provider/IProvider.h>

#include <memory>

namespace storage::vfs {

/// Opens a writable stream that leaves no trace in the container whose root is `root`, so that the provider
/// writes the container when the stream is closed and not before. Errors: those of the provider.
std::unique_ptr<foundation::storage::provider::ByteStream>
holdWrites(foundation::storage::provider::IProvider& provider,
           const foundation::storage::provider::StorageIRI& root);

} // namespace storage::vfs
