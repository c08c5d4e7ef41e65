#pragma once

#include <foundation/storage/provider/StorageIRI.h>

#include <functional>

namespace foundation::storage::provider {

/// What happened to a watched item.
enum class ChangeKind {
    Created,
    Modified,
    Removed,
};

struct ChangeEvent {
    ChangeKind kind;
    /// The file or folder that changed: the watched file itself, or an entry of the watched folder.
    StorageIRI location;

    friend bool operator==(const ChangeEvent&, const ChangeEvent&) = default;
};

/// Called on the polling thread, never with a lock of the provider held. It must not throw and must not stop
/// the polling from inside.
using ChangeListener = std::function<void(const ChangeEvent&)>;

} // namespace foundation::storage::provider
