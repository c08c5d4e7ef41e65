#pragma once

#include "ZipEntryInfos.h"

#include <foundation/storage/provider/FileAttributes.h>

#include <boost/container_hash/hash.hpp>
#include <boost/date_time/posix_time/ptime.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace storage::zipprovider {

/// What a container looked like from outside at one moment, to notice that another program has changed it.
struct ContainerStamp {
    std::optional<std::uint64_t> size;
    boost::posix_time::ptime lastModified;

    static ContainerStamp of(const foundation::storage::provider::FileAttributes& attributes) {
        return {attributes.getSize(), attributes.getLastModified()};
    }
    friend bool operator==(const ContainerStamp&, const ContainerStamp&) = default;
};

/// A number that differs, as good as surely, between two archives whose central directories differ in an
/// entry's name, place, size, time or checksum.
template <typename Infos>
std::size_t directoryFingerprint(const Infos& infos) {
    std::size_t seed = infos.size();
    for (const auto& info : infos) {
        boost::hash_combine(seed, info.stored.name);
        boost::hash_combine(seed, info.stored.position.pos_in_zip_directory);
        boost::hash_combine(seed, info.size);
        boost::hash_combine(seed, info.compressedSize);
        boost::hash_combine(seed, info.crc32);
        boost::hash_combine(seed, info.lastModified.time_of_day().ticks());
        boost::hash_combine(seed, info.lastModified.date().day_number());
    }
    return seed;
}

} // namespace storage::zipprovider
