#pragma once

#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <memory>
#include <string_view>

namespace storage::mount {

/// One archive's provider, and where its root is.
struct Backing {
    std::shared_ptr<foundation::storage::provider::IProvider> provider;
    foundation::storage::provider::StorageIRI root;
    bool writable = false;

    /// The location of a path ("/a/b", UTF-8; "" and "/" are the root).
    foundation::storage::provider::StorageIRI at(std::string_view path) const;
};

} // namespace storage::mount
