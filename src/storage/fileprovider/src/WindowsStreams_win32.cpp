#include <storage/fileprovider/src/WindowsStreams.h>

#include <foundation/storage/provider/Exception.h>
#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WindowsPath.h>
#include <storage/fileprovider/src/WindowsSave.h>

#include <algorithm>
#include <limits>

namespace storage::fileprovider {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::SeekOrigin;
using foundation::storage::provider::StorageIRI;
using foundation::storage::provider::StreamAccess;
using foundation::storage::provider::StreamDisposition;
using foundation::storage::provider::StreamPositioning;
using foundation::storage::provider::StreamTruncation;

namespace {

constexpr std::int64_t largestPosition = std::numeric_limits<std::int64_t>::max();

[[noreturn]] void throwClosed(const StorageIRI& iri) {
    throw Exception(ErrorCode::InvalidArgument, iri, "the stream is closed");
}

std::uint64_t sizeOf(const StorageIRI& iri, HANDLE file) {
    const auto status = statusOf(file);
    if (!status) {
        throwWindowsError(iri, ::GetLastError());
    }
    return status->size;
}

/// The position that a seek leads to. Errors: InvalidArgument for one that is negative or beyond 2^63 - 1.
std::uint64_t seekTarget(const StorageIRI& iri, std::uint64_t base, std::int64_t offset) {
    const auto start = static_cast<std::int64_t>(base);
    if ((offset > 0 && start > largestPosition - offset) || start + offset < 0) {
        throw Exception(ErrorCode::InvalidArgument, iri, "cannot seek to a position outside the file");
    }
    return static_cast<std::uint64_t>(start + offset);
}

class ReadStream final : public ByteStream {
public:
    ReadStream(StorageIRI iri, FileHandle file) : m_iri(std::move(iri)), m_file(std::move(file)) {}

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        requireOpen();
        const auto got = readAt(m_file.get(), buffer, count, m_position);
        if (got < 0) {
            throwWindowsError(m_iri, ::GetLastError(), "cannot read");
        }
        m_position += static_cast<std::uint64_t>(got);
        return got;
    }

    std::int64_t doWrite(const char* /*buffer*/, std::int64_t /*count*/) override {
        throw Exception(ErrorCode::NotSupported, m_iri, "the stream is open for reading");
    }

    std::int64_t doSeek(std::int64_t offset, SeekOrigin origin) override {
        requireOpen();
        const auto base = origin == SeekOrigin::Begin     ? 0
                          : origin == SeekOrigin::Current ? m_position
                                                          : sizeOf(m_iri, m_file.get());
        m_position = seekTarget(m_iri, base, offset);
        return static_cast<std::int64_t>(m_position);
    }

    void doClose() override { m_file.close(); }

private:
    void requireOpen() const {
        if (!m_file.isOpen()) {
            throwClosed(m_iri);
        }
    }

    const StorageIRI m_iri;
    FileHandle m_file;
    std::uint64_t m_position = 0;
};

class WriteStream final : public ByteStream {
public:
    WriteStream(std::unique_ptr<WindowsSave> save, const ByteStreamOpenOptions& options)
        : m_iri(save->iri()), m_options(options), m_save(std::move(save)),
          m_size(sizeOf(m_iri, m_save->file())) {}

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        requireOpen();
        if (m_options.access != StreamAccess::ReadWrite) {
            throw Exception(ErrorCode::NotSupported, m_iri, "the stream is open for writing only");
        }
        const auto got = readAt(m_save->file(), buffer, count, m_position);
        if (got < 0) {
            throwWindowsError(m_iri, ::GetLastError(), "cannot read");
        }
        m_position += static_cast<std::uint64_t>(got);
        return got;
    }

    std::int64_t doWrite(const char* buffer, std::int64_t count) override {
        requireOpen();
        const auto position = m_options.positioning == StreamPositioning::Append ? m_size : m_position;
        if (count > largestPosition - static_cast<std::int64_t>(position)) {
            throw Exception(ErrorCode::NoSpace, m_iri, "the file would become too large");
        }
        if (!writeAt(m_save->file(), buffer, count, position)) {
            m_writeError = ::GetLastError();
            throwWindowsError(m_iri, m_writeError, "cannot write");
        }
        m_position = position + static_cast<std::uint64_t>(count);
        m_size = std::max(m_size, m_position);
        return count;
    }

    std::int64_t doSeek(std::int64_t offset, SeekOrigin origin) override {
        requireOpen();
        const auto base = origin == SeekOrigin::Begin     ? 0
                          : origin == SeekOrigin::Current ? m_position
                                                          : m_size;
        m_position = seekTarget(m_iri, base, offset);
        return static_cast<std::int64_t>(m_position);
    }

    void doClose() override {
        const auto save = std::move(m_save);
        if (!save) {
            return;
        }
        if (m_writeError != 0) {
            // The caller may have caught the failure of the write and go on to close as if all were well.
            throwWindowsError(m_iri, m_writeError, "not saved, since a write failed");
        }
        save->commit();
    }

private:
    void requireOpen() const {
        if (!m_save) {
            throwClosed(m_iri);
        }
    }

    const StorageIRI m_iri;
    const ByteStreamOpenOptions m_options;
    std::unique_ptr<WindowsSave> m_save;
    std::uint64_t m_size;
    std::uint64_t m_position = 0;
    DWORD m_writeError = 0;
};

} // namespace

std::unique_ptr<ByteStream> openForReading(const StorageIRI& iri) {
    const auto path = resolvePath(toWindowsFilePath(iri));
    const auto status = settledStatusOf(path);
    if (!status) {
        throwWindowsError(iri, path.empty() ? ERROR_FILE_NOT_FOUND : ::GetLastError());
    }
    if (status->isFolder) {
        throw Exception(ErrorCode::NotFound, iri, "it is a folder");
    }
    static_cast<void>(recoverTarget(iri, path));
    auto file = FileHandle::open(path, GENERIC_READ, OPEN_EXISTING);
    if (!file.isOpen() && settledStatusOf(path)) {
        file = FileHandle::open(path, GENERIC_READ, OPEN_EXISTING);
    }
    if (!file.isOpen()) {
        throwWindowsError(iri, ::GetLastError());
    }
    return std::make_unique<ReadStream>(iri, std::move(file));
}

std::unique_ptr<ByteStream> openForWriting(const StorageIRI& iri, const ByteStreamOpenOptions& options,
                                           bool sync) {
    const bool truncates = options.truncation == StreamTruncation::Truncate;
    if (truncates && options.positioning == StreamPositioning::Append) {
        throw Exception(ErrorCode::InvalidArgument, iri, "cannot both truncate a file and append to it");
    }
    WindowsSaveRequest request;
    request.mustExist = options.disposition == StreamDisposition::OpenExisting;
    request.keep = truncates ? 0 : WindowsSaveRequest::keepAll;
    return std::make_unique<WriteStream>(std::make_unique<WindowsSave>(iri, request, sync), options);
}

} // namespace storage::fileprovider
