#pragma once

#include <storage/fileprovider/LocalFileOptions.h>

#include <memory>

namespace storage::fileprovider {

/// What the operations of the component share. Immutable.
struct Environment {
    LocalFileOptions options;
};

} // namespace storage::fileprovider
