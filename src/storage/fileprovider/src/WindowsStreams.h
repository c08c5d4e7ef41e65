#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <memory>

namespace storage::fileprovider {

/// Opens a file for reading, after an interrupted save of it was settled. Errors: the provider's Exception.
std::unique_ptr<foundation::storage::provider::ByteStream>
openForReading(const foundation::storage::provider::StorageIRI& iri);

/// Opens a file for writing; the stream's close() is the commit of a WindowsSave.
/// Errors: those of WindowsSave; InvalidArgument for options without a meaning.
std::unique_ptr<foundation::storage::provider::ByteStream>
openForWriting(const foundation::storage::provider::StorageIRI& iri,
               const foundation::storage::provider::ByteStreamOpenOptions& options, bool sync);

} // namespace storage::fileprovider
