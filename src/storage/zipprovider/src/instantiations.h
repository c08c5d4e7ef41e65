#pragma once

#include "ZipProvider.h"

#include <foundation/storage/provider/ByteStreamDevice.h>
#include <foundation/storage/provider/StorageItem.h>

/// The templates are compiled once for the host's types, in instantiations.cpp.
namespace storage::zipprovider {

using HostItem = foundation::storage::provider::StorageItem;
using HostDevice = foundation::storage::provider::ByteStreamDevice;

extern template class MiniZipReadHandle<HostItem, HostDevice>;
extern template class MiniZipEntryEnumerator<HostItem, HostDevice>;
extern template class ZipEntryInfos<HostItem, HostDevice>;
extern template class ZipEntrySource<HostItem, HostDevice>;
extern template class ZipState<HostItem, HostDevice>;
extern template class FlushingPolicy<ZipState<HostItem, HostDevice>>;
extern template class ZipFileSystem<HostItem, HostDevice>;
extern template class ZipProvider<HostItem, HostDevice>;

} // namespace storage::zipprovider
