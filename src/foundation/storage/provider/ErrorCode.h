#pragma once

#include <foundation/storage/provider/Export.h>

#include <cstdint>
#include <string_view>

namespace foundation::storage::provider {

/// Why a provider's operation failed. The numbers are part of the binary interface: a code never changes
/// its meaning, and new codes are added at the end.
enum class ErrorCode : std::uint32_t {
    /// A folder to be removed still holds entries. Use it only where emptying the folder first would help.
    FolderNotEmpty = 0,
    /// The contents could not be read from the container's format (damaged, encrypted or unsupported data);
    /// failures of the storage below the format are LocalFileSystem or the container's own code.
    ContainerUnreadable = 1,
    /// The container or the item is read-only and the operation would change it. Compare AccessDenied:
    /// there the item may be writable, but not for this caller.
    NotWritable = 2,
    /// What is to be created, or the destination of a move or copy, exists already.
    AlreadyExists = 3,
    /// The item or the folder it stands in does not exist, or is not of the kind that the operation needs.
    NotFound = 4,
    /// The provider can never do this; IProvider::hasFeature says so beforehand.
    NotSupported = 5,
    /// The system refused access to this caller. Compare NotWritable.
    AccessDenied = 6,
    /// An argument has no meaning here (a scheme of another provider, a malformed wildcard pattern).
    InvalidArgument = 7,
    /// The storage has no room for the change.
    NoSpace = 8,
    /// The local file system failed under the operation and none of the other codes says how.
    LocalFileSystem = 9,
    /// Another program or another user of the storage holds it at the moment; trying later may help.
    Busy = 10,
};

/// The enumerator's name in words ("not found"), for messages. Never empty: a number that is no enumerator
/// gives "unknown error".
KXFLSTORAGEPROVIDER_API std::string_view toText(ErrorCode code) noexcept;

} // namespace foundation::storage::provider
