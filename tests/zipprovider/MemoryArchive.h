#pragma once

#include <support/InMemoryProvider.h>
#include <support/archives/WrittenArchives.h>
#include <support/contents.h>

#include <foundation/storage/provider/StorageItem.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

namespace kx::test {

/// An archive in memory, as the container of a provider. At its end independent readers judge it, unless it
/// holds what the test put in.
class MemoryArchive {
public:
    explicit MemoryArchive(std::string_view bytes)
        : m_memory(std::make_shared<InMemoryProvider>()), m_location(m_memory->at(u"/archive.zip")) {
        replace(bytes);
        m_memory->setTime(m_location, time());
    }
    ~MemoryArchive() {
        m_archives.add(m_location.toUtf8(), bytes());
        EXPECT_EQ(m_archives.problems(), "");
    }
    MemoryArchive(const MemoryArchive&) = delete;
    MemoryArchive& operator=(const MemoryArchive&) = delete;

    foundation::storage::provider::StorageItem item() const { return {m_memory, m_location}; }
    /// The same file behind another provider over the memory.
    foundation::storage::provider::StorageItem
    itemOf(std::shared_ptr<foundation::storage::provider::IProvider> provider) const {
        return {std::move(provider), m_location};
    }
    const std::shared_ptr<InMemoryProvider>& memory() const { return m_memory; }
    std::string bytes() const { return readFile(*m_memory, m_location); }
    void replace(std::string_view bytes) {
        m_archives.remember(bytes);
        writeFile(*m_memory, m_location, bytes);
    }
    /// The location of a path inside.
    foundation::storage::provider::StorageIRI at(fl::i18n::ustring_view path) const {
        return foundation::storage::provider::StorageIRI::inContainer("zip", m_location, path);
    }

    /// When the file was last modified.
    static boost::posix_time::ptime time() {
        return boost::posix_time::ptime(boost::gregorian::date(2019, 5, 6),
                                        boost::posix_time::time_duration(7, 8, 9));
    }

private:
    std::shared_ptr<InMemoryProvider> m_memory;
    foundation::storage::provider::StorageIRI m_location;
    WrittenArchives m_archives;
};

} // namespace kx::test
