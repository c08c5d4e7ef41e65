#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/FileAttributes.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <boost/iostreams/traits.hpp>

#include <concepts>
#include <memory>

namespace storage::zipprovider {

/// What the plug-in needs of the host's storage item, the file that an archive lives in.
template <typename Item>
concept ContainerItem = std::copy_constructible<Item> &&
    requires(const Item& item, const foundation::storage::provider::ByteStreamOpenOptions& options) {
    { item.getLocation() } -> std::convertible_to<foundation::storage::provider::StorageIRI>;
    { item.getFileAttributes() } -> std::same_as<foundation::storage::provider::FileAttributes>;
    { item.openReadOnlyStream() } -> std::same_as<std::unique_ptr<foundation::storage::provider::ByteStream>>;
    { item.openStream(options) } -> std::same_as<std::unique_ptr<foundation::storage::provider::ByteStream>>;
};

/// What the plug-in needs of the host's Boost.Iostreams device over a byte stream: seekable, copyable with
/// the copies sharing the stream, made of an owning pointer to the stream.
template <typename Device>
concept StreamDevice = std::copy_constructible<Device> &&
    std::constructible_from<Device, std::unique_ptr<foundation::storage::provider::ByteStream>> &&
    boost::iostreams::is_device<Device>::value &&
    std::convertible_to<typename boost::iostreams::category_of<Device>::type,
                        boost::iostreams::seekable_device_tag>;

} // namespace storage::zipprovider
