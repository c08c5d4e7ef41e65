#include "instantiations.h"

namespace storage::zipprovider {

template class MiniZipReadHandle<HostItem, HostDevice>;
template class MiniZipEntryEnumerator<HostItem, HostDevice>;
template class ZipEntryInfos<HostItem, HostDevice>;
template class ZipEntrySource<HostItem, HostDevice>;
template class ZipState<HostItem, HostDevice>;
template class FlushingPolicy<ZipState<HostItem, HostDevice>>;
template class ZipFileSystem<HostItem, HostDevice>;
template class ZipProvider<HostItem, HostDevice>;

} // namespace storage::zipprovider
