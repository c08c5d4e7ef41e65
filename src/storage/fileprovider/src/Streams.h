#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/src/Environment.h>

#include <memory>

namespace storage::fileprovider {

/// Opens a regular file for reading, after an interrupted save of it was settled.
/// Errors: the provider's Exception; NotSupported for a device and the like.
std::unique_ptr<foundation::storage::provider::ByteStream>
openForReading(const EnvironmentPtr& environment, const foundation::storage::provider::StorageIRI& iri);

/// Opens a file for writing; the stream's close() is the commit of a SaveTransaction.
/// Errors: those of SaveTransaction; InvalidArgument for options without a meaning.
std::unique_ptr<foundation::storage::provider::ByteStream>
openForWriting(const EnvironmentPtr& environment, const foundation::storage::provider::StorageIRI& iri,
               const foundation::storage::provider::ByteStreamOpenOptions& options);

} // namespace storage::fileprovider
