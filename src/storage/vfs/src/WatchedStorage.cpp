#include <storage/vfs/src/WatchedStorage.h>

#include <foundation/storage/provider/Exception.h>

#include <algorithm>
#include <bitset>

namespace storage::vfs {

using namespace foundation::storage::provider;

namespace {

using Phase = SaveProgress::Phase;
using CutOff = std::shared_ptr<std::atomic<bool>>;

void refuseCutOff(const std::atomic<bool>& cutOff, const StorageIRI& location) {
    if (cutOff)
        throw Exception(ErrorCode::NotFound, location, "the container was given up");
}

/// How much of a file was looked at, in thousandths: an archive is read to and fro, some of it twice.
class Coverage {
public:
    explicit Coverage(std::uint64_t size) : m_size(size) {}

    void add(std::uint64_t position, std::uint64_t count) {
        if (m_size == 0 || count == 0)
            return;
        const auto first = std::min(partAt(position), partCount - 1);
        const auto end = std::min(std::max(partAt(position + count), first + 1), partCount);
        for (auto part = first; part < end; ++part)
            m_parts.set(part);
    }

    std::uint64_t bytes() const {
        return static_cast<std::uint64_t>(static_cast<double>(m_size) * static_cast<double>(m_parts.count()) /
                                          static_cast<double>(partCount));
    }
    std::uint64_t size() const { return m_size; }

private:
    static constexpr std::size_t partCount = 1000;

    std::size_t partAt(std::uint64_t position) const {
        const auto share = static_cast<double>(position) / static_cast<double>(m_size);
        return static_cast<std::size_t>(share * static_cast<double>(partCount));
    }

    const std::uint64_t m_size;
    std::bitset<partCount> m_parts;
};

/// Whether a stream's close puts anything in place: one that only reads may be closed at any time.
enum class StreamUse { Reading, Writing };

class WatchedStream : public ByteStream {
public:
    WatchedStream(std::unique_ptr<ByteStream> target, StorageIRI location,
                  std::shared_ptr<const ContainerWatch> watch, CutOff cutOff, StreamUse use,
                  std::uint64_t oldSize = 0)
        : m_target(std::move(target)), m_location(std::move(location)), m_watch(std::move(watch)),
          m_cutOff(std::move(cutOff)), m_use(use), m_read(oldSize) {}

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        refuseCutOff(*m_cutOff, m_location);
        const auto got = m_target->read(buffer, count);
        m_read.add(m_position, static_cast<std::uint64_t>(got));
        m_position += static_cast<std::uint64_t>(got);
        tell(Phase::Reading, m_read.bytes());
        return got;
    }

    std::int64_t doWrite(const char* buffer, std::int64_t count) override {
        refuseCutOff(*m_cutOff, m_location);
        const auto put = m_target->write(buffer, count);
        m_position += static_cast<std::uint64_t>(put);
        m_written += static_cast<std::uint64_t>(put);
        tell(Phase::Writing, m_written);
        return put;
    }

    std::int64_t doSeek(std::int64_t offset, SeekOrigin origin) override {
        refuseCutOff(*m_cutOff, m_location);
        const auto position = m_target->seek(offset, origin);
        m_position = static_cast<std::uint64_t>(position);
        return position;
    }

    void doClose() override {
        if (m_use == StreamUse::Writing)
            refuseCutOff(*m_cutOff, m_location);
        if (m_written > 0)
            tell(Phase::Closing, m_written);
        m_target->close();
    }

private:
    void tell(Phase phase, std::uint64_t bytes) const {
        if (m_watch->isOn())
            m_watch->tell({m_location, phase, bytes, m_read.size()});
    }

    const std::unique_ptr<ByteStream> m_target;
    const StorageIRI m_location;
    const std::shared_ptr<const ContainerWatch> m_watch;
    const CutOff m_cutOff;
    const StreamUse m_use;
    Coverage m_read;
    std::uint64_t m_position = 0;
    std::uint64_t m_written = 0;
};

/// 0 where unknown: then no share of it can be told.
std::uint64_t sizeOf(IProvider& provider, const StorageIRI& location) {
    try {
        return provider.getFileAttributes(location).getSize().value_or(0);
    } catch (const std::exception&) {
        return 0;
    }
}

} // namespace

WatchedStorage::WatchedStorage(std::shared_ptr<IProvider> target, std::shared_ptr<const ContainerWatch> watch)
    : m_target(std::move(target)), m_watch(std::move(watch)) {}

WatchedStorage::~WatchedStorage() {
    endChangePolling();
}

IProvider& WatchedStorage::target(const IRI& location) const {
    refuseCutOff(*m_cutOff, location);
    return *m_target;
}

WatchedStorage::Stream WatchedStorage::doOpenStream(const IRI& location, const OpenOptions& options) {
    return std::make_unique<WatchedStream>(target(location).openStream(location, options), location, m_watch,
                                           m_cutOff, StreamUse::Writing);
}

WatchedStorage::Stream WatchedStorage::doOpenReadStream(const IRI& location) {
    auto stream = target(location).openReadStream(location);
    const auto size = m_watch->isOn() ? sizeOf(*m_target, location) : 0;
    return std::make_unique<WatchedStream>(std::move(stream), location, m_watch, m_cutOff, StreamUse::Reading,
                                           size);
}

WatchedStorage::Stream WatchedStorage::doOpenTransactionalStream(const IRI& location,
                                                                 const OpenOptions& options) {
    return std::make_unique<WatchedStream>(target(location).openTransactionalStream(location, options),
                                           location, m_watch, m_cutOff, StreamUse::Writing);
}

void WatchedStorage::doCreateFile(const IRI& location) {
    target(location).createFile(location);
}

void WatchedStorage::doCreateFolder(const IRI& location) {
    target(location).createFolder(location);
}

bool WatchedStorage::doIsFile(const IRI& location) {
    return target(location).isFile(location);
}

bool WatchedStorage::doIsFolder(const IRI& location) {
    return target(location).isFolder(location);
}

void WatchedStorage::doRemoveFile(const IRI& location) {
    target(location).removeFile(location);
}

void WatchedStorage::doMoveFile(const IRI& source, const IRI& destination, MoveOption option) {
    target(source).moveFile(source, destination, option);
}

void WatchedStorage::doRemoveFolder(const IRI& location) {
    target(location).removeFolder(location);
}

void WatchedStorage::doMoveFolder(const IRI& source, const IRI& destination, MoveOption option) {
    target(source).moveFolder(source, destination, option);
}

FileAttributes WatchedStorage::doGetFileAttributes(const IRI& location) {
    return target(location).getFileAttributes(location);
}

FolderAttributes WatchedStorage::doGetFolderAttributes(const IRI& location) {
    return target(location).getFolderAttributes(location);
}

WatchedStorage::Listing WatchedStorage::doListAll(const IRI& folder) {
    return target(folder).listAll(folder);
}

WatchedStorage::Listing WatchedStorage::doListFiles(const IRI& folder) {
    return target(folder).listFiles(folder);
}

WatchedStorage::Listing WatchedStorage::doListFolders(const IRI& folder) {
    return target(folder).listFolders(folder);
}

bool WatchedStorage::doHasFeature(Feature feature) {
    return m_target->hasFeature(feature);
}

WatchedStorage::IRI WatchedStorage::doGetCanonicalLocation(const IRI& location) {
    return target(location).getCanonicalLocation(location);
}

FilenameSensitivity WatchedStorage::doGetFilenameSensitivity() {
    return m_target->getFilenameSensitivity();
}

bool WatchedStorage::doExists(const IRI& location) {
    return target(location).exists(location);
}

ExtendedAttributes WatchedStorage::doGetExtendedAttributes(const IRI& location) {
    return target(location).getExtendedAttributes(location);
}

void WatchedStorage::doCopyFile(const IRI& source, const IRI& destination, MoveOption option) {
    target(source).copyFile(source, destination, option);
}

void WatchedStorage::doCopyFileAtomic(const IRI& source, const IRI& destination, MoveOption option) {
    target(source).copyFileAtomic(source, destination, option);
}

void WatchedStorage::doSetLastModified(const IRI& location, boost::posix_time::ptime time) {
    target(location).setLastModified(location, time);
}

void WatchedStorage::doSetWritable(const IRI& location, bool writable) {
    target(location).setWritable(location, writable);
}

void WatchedStorage::doTruncateToSize(const IRI& file, std::uint64_t size) {
    target(file).truncateToSize(file, size);
}

PathComparator WatchedStorage::doGetPathComparator() {
    return m_target->getPathComparator();
}

ProviderStorageInfo WatchedStorage::doGetProviderStorageInfo() {
    return m_target->getProviderStorageInfo();
}

} // namespace storage::vfs
