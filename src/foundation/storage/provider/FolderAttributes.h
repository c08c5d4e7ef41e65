#pragma once

#include <boost/date_time/posix_time/ptime.hpp>

namespace foundation::storage::provider {

/// What is known of a folder. A value.
class FolderAttributes {
public:
    FolderAttributes(boost::posix_time::ptime lastModified, bool writable)
        : m_lastModified(lastModified), m_writable(writable) {}

    /// As FileAttributes::getLastModified.
    boost::posix_time::ptime getLastModified() const { return m_lastModified; }
    /// Whether entries can be created and removed in it.
    bool isWritable() const { return m_writable; }

private:
    boost::posix_time::ptime m_lastModified;
    bool m_writable;
};

} // namespace foundation::storage::provider
