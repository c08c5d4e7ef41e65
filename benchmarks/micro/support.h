#pragma once

#include <storage/zipprovider/src/instantiations.h>

#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageItem.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace kx::bench {

using State =
    storage::zipprovider::ZipState<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;
using Provider =
    storage::zipprovider::ZipProvider<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;

/// An archive of this system's writer in a local file, which goes with the object. `count` files of `size`
/// bytes, a hundred in each folder.
class LocalArchive {
public:
    LocalArchive(std::size_t count, std::size_t size);
    ~LocalArchive();

    LocalArchive(const LocalArchive&) = delete;
    LocalArchive& operator=(const LocalArchive&) = delete;

    /// The file as a container; saving it does not wait for the medium.
    const foundation::storage::provider::StorageItem& item() const { return m_item; }

private:
    std::filesystem::path m_path;
    foundation::storage::provider::StorageItem m_item;
};

/// The path of a file of LocalArchive, with or without a slash before it.
std::string nameOf(std::size_t number);
storage::zipprovider::ZipEntryPath pathOf(std::size_t number);

} // namespace kx::bench
