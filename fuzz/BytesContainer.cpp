#include "BytesContainer.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

namespace kx::fuzz {

namespace {

using namespace foundation::storage::provider;

class BytesStream final : public ByteStream {
public:
    explicit BytesStream(std::string_view bytes) : m_bytes(bytes) {}

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        const std::size_t begin = std::min(m_position, m_bytes.size());
        const std::size_t obtained = m_bytes.copy(buffer, static_cast<std::size_t>(count), begin);
        m_position = begin + obtained;
        return static_cast<std::int64_t>(obtained);
    }

    std::int64_t doWrite(const char*, std::int64_t) override {
        throw std::logic_error("cannot write bytes container: it is read-only");
    }

    std::int64_t doSeek(std::int64_t offset, SeekOrigin origin) override {
        std::int64_t base = 0;
        if (origin == SeekOrigin::Current)
            base = static_cast<std::int64_t>(m_position);
        else if (origin == SeekOrigin::End)
            base = static_cast<std::int64_t>(m_bytes.size());
        std::int64_t position = 0;
        if (__builtin_add_overflow(base, offset, &position) || position < 0)
            throw std::out_of_range("cannot seek bytes container: position before the begin");
        m_position = static_cast<std::size_t>(position);
        return position;
    }

    void doClose() override {}

private:
    const std::string_view m_bytes;
    std::size_t m_position = 0;
};

class BytesProvider final : public IProvider {
public:
    explicit BytesProvider(std::string_view bytes) : m_bytes(bytes) {}
    ~BytesProvider() override { endChangePolling(); }

protected:
    bool doIsFile(const StorageIRI&) override { return true; }
    bool doIsFolder(const StorageIRI&) override { return false; }
    FileAttributes doGetFileAttributes(const StorageIRI&) override {
        const boost::posix_time::ptime time(boost::gregorian::date(2020, 1, 1));
        return {m_bytes.size(), time, false};
    }
    std::unique_ptr<ByteStream> doOpenReadStream(const StorageIRI&) override {
        return std::make_unique<BytesStream>(m_bytes);
    }

    FolderAttributes doGetFolderAttributes(const StorageIRI& location) override { refuse(location); }
    void doCreateFile(const StorageIRI& location) override { refuse(location); }
    void doCreateFolder(const StorageIRI& location) override { refuse(location); }
    void doRemoveFile(const StorageIRI& location) override { refuse(location); }
    void doRemoveFolder(const StorageIRI& location) override { refuse(location); }
    void doMoveFile(const StorageIRI& source, const StorageIRI&, MoveOption) override { refuse(source); }
    void doMoveFolder(const StorageIRI& source, const StorageIRI&, MoveOption) override { refuse(source); }
    std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& location,
                                             const ByteStreamOpenOptions&) override {
        refuse(location);
    }
    std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& folder) override { refuse(folder); }
    std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& folder) override { refuse(folder); }
    std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& folder) override { refuse(folder); }

private:
    [[noreturn]] static void refuse(const StorageIRI& location) {
        throw Exception(ErrorCode::NotSupported, location);
    }

    const std::string_view m_bytes;
};

} // namespace

StorageItem bytesContainer(std::string_view bytes) {
    return {std::make_shared<BytesProvider>(bytes), StorageIRI::parse("bytes:///archive.zip")};
}

} // namespace kx::fuzz
