#pragma once

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <optional>

namespace foundation::storage::provider {

/// What is known of a file without opening it. A value.
class FileAttributes {
public:
    FileAttributes(std::optional<std::uint64_t> size, boost::posix_time::ptime lastModified, bool writable)
        : m_size(size), m_lastModified(lastModified), m_writable(writable) {}

    /// In bytes; disengaged when the provider cannot tell without reading the file.
    std::optional<std::uint64_t> getSize() const { return m_size; }
    /// UTC as far as the provider knows the zone; a container format that stores local times returns them as
    /// they stand. `not_a_date_time` when unknown.
    boost::posix_time::ptime getLastModified() const { return m_lastModified; }
    bool isWritable() const { return m_writable; }

private:
    std::optional<std::uint64_t> m_size;
    boost::posix_time::ptime m_lastModified;
    bool m_writable;
};

} // namespace foundation::storage::provider
