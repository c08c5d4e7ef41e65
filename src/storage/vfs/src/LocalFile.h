#pragma once

#include <foundation/storage/provider/StorageIRI.h>

namespace storage::vfs {

/// The location at the bottom of all containers: the location itself where it is in none.
const foundation::storage::provider::StorageIRI&
localFileUnder(const foundation::storage::provider::StorageIRI& location);

/// A local location with links resolved.
foundation::storage::provider::StorageIRI
canonicalLocalFile(const foundation::storage::provider::StorageIRI& file);

/// How many containers a location stands in.
std::size_t nesting(const foundation::storage::provider::StorageIRI& location);

/// Whether `container` is `outer` or lies in it, at any depth.
bool isSameOrInside(const foundation::storage::provider::StorageIRI& container,
                    const foundation::storage::provider::StorageIRI& outer);

} // namespace storage::vfs
