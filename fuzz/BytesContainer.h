#pragma once

#include <cstdint>
#include <string_view>

#include <foundation/storage/provider/StorageItem.h>

namespace kx::fuzz {

/// A read-only file whose contents are these bytes, which must outlive the item and all streams opened on it.
foundation::storage::provider::StorageItem bytesContainer(std::string_view bytes);

} // namespace kx::fuzz
