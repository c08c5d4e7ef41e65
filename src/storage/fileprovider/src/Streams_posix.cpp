#include <storage/fileprovider/src/Streams.h>

#include <storage/fileprovider/src/Descriptor.h>
#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/ReadAhead.h>
#include <storage/fileprovider/src/Recoverer.h>
#include <storage/fileprovider/src/SaveTransaction.h>
#include <storage/fileprovider/src/SettledFiles.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <utility>
#include <vector>

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

[[noreturn]] void throwClosed(const StorageIRI& iri) {
    throw Exception(ErrorCode::InvalidArgument, iri, "the stream is closed");
}

std::uint64_t sizeOf(const StorageIRI& iri, int file) {
    struct stat status {};
    if (::fstat(file, &status) != 0) {
        throwSystemError(iri, errno);
    }
    return static_cast<std::uint64_t>(status.st_size);
}

/// The position that a seek leads to. Errors: InvalidArgument for one that is negative or beyond 2^63 - 1.
std::uint64_t seekTarget(const StorageIRI& iri, std::uint64_t base, std::int64_t offset) {
    std::int64_t result = 0;
    if (__builtin_add_overflow(static_cast<std::int64_t>(base), offset, &result) || result < 0) {
        throw Exception(ErrorCode::InvalidArgument, iri, "cannot seek to a position outside the file");
    }
    return static_cast<std::uint64_t>(result);
}

class ReadStream final : public ByteStream {
public:
    ReadStream(EnvironmentPtr environment, StorageIRI iri, Descriptor file)
        : m_iri(std::move(iri)), m_file(std::move(file)), m_ahead(std::move(environment)) {}

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        requireOpen();
        const auto got = m_ahead.read(m_file.get(), buffer, count, m_position);
        if (got < 0) {
            throwSystemError(m_iri, errno, "cannot read");
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
    Descriptor m_file;
    ReadAhead m_ahead;
    std::uint64_t m_position = 0;
};

class WriteStream final : public ByteStream {
public:
    WriteStream(std::unique_ptr<SaveTransaction> save, const ByteStreamOpenOptions& options)
        : m_iri(save->iri()), m_options(options), m_save(std::move(save)),
          m_size(sizeOf(m_iri, m_save->file())) {}

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        requireOpen();
        if (m_options.access != StreamAccess::ReadWrite) {
            throw Exception(ErrorCode::NotSupported, m_iri, "the stream is open for writing only");
        }
        flush();
        const auto got = readAt(m_save->environment(), m_save->file(), buffer, count, m_position);
        if (got < 0) {
            throwSystemError(m_iri, errno, "cannot read");
        }
        m_position += static_cast<std::uint64_t>(got);
        return got;
    }

    std::int64_t doWrite(const char* buffer, std::int64_t count) override {
        requireOpen();
        const auto position = m_options.positioning == StreamPositioning::Append ? m_size : m_position;
        if (count > std::numeric_limits<std::int64_t>::max() - static_cast<std::int64_t>(position)) {
            throw Exception(ErrorCode::NoSpace, m_iri, "the file would become too large");
        }
        if (position != m_behind + m_gathered.size() || m_gathered.size() >= gatheredSize) {
            flush();
        }
        if (m_gathered.empty()) {
            m_behind = position;
        }
        if (count < largePiece) {
            m_gathered.insert(m_gathered.end(), buffer, buffer + count);
        } else {
            flush();
            write(*m_save, buffer, count, position);
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
            throwSystemError(m_iri, m_writeError, "not saved, since a write failed");
        }
        flush(*save);
        save->commit();
    }

private:
    /// Small pieces are gathered up to this many bytes before they go to the file; large ones go there at
    /// once.
    static constexpr std::size_t gatheredSize = 256 * 1024;
    static constexpr std::int64_t largePiece = 16 * 1024;

    void flush() { flush(*m_save); }

    void flush(const SaveTransaction& save) {
        if (!m_gathered.empty()) {
            write(save, m_gathered.data(), static_cast<std::int64_t>(m_gathered.size()), m_behind);
            m_gathered.clear();
        }
    }

    void write(const SaveTransaction& save, const char* buffer, std::int64_t count, std::uint64_t position) {
        if (const int error = writeAt(save.environment(), save.file(), buffer, count, position); error != 0) {
            m_writeError = error;
            throwSystemError(m_iri, error, "cannot write");
        }
    }

    void requireOpen() const {
        if (!m_save) {
            throwClosed(m_iri);
        }
    }

    const StorageIRI m_iri;
    const ByteStreamOpenOptions m_options;
    std::unique_ptr<SaveTransaction> m_save;
    std::uint64_t m_size;
    std::uint64_t m_position = 0;
    /// Bytes that belong at m_behind and are not in the file yet.
    std::vector<char> m_gathered;
    std::uint64_t m_behind = 0;
    int m_writeError = 0;
};

/// The file at `path`, if it is known that nothing of an interrupted save is left for it; not open otherwise.
Descriptor openSettled(const Environment& environment, const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !environment.settled->contains(path, status)) {
        return {};
    }
    auto file = Descriptor::open(environment.calls, path.c_str(), O_RDONLY | O_NONBLOCK);
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !environment.settled->contains(path, status)) {
        return {};
    }
    return file;
}

} // namespace

std::unique_ptr<ByteStream> openForReading(const EnvironmentPtr& environment, const StorageIRI& iri) {
    const auto asked = toLocalFilePath(iri);
    if (auto settled = openSettled(*environment, asked); settled.isOpen()) {
        return std::make_unique<ReadStream>(environment, iri, std::move(settled));
    }
    std::string path;
    if (const int error = resolveLinks(asked, path); error != 0) {
        throwSystemError(iri, error);
    }
    const auto now = environment->calls->now();
    struct stat before {};
    if (::stat(path.c_str(), &before) != 0) {
        throwSystemError(iri, errno);
    }
    if (S_ISDIR(before.st_mode)) {
        throw Exception(ErrorCode::NotFound, iri, "it is a folder");
    }
    if (!S_ISREG(before.st_mode)) {
        throw Exception(ErrorCode::NotSupported, iri, "not a regular file");
    }
    Recoverer recoverer(environment, iri, path);
    static_cast<void>(recoverer.recoverForReading());
    const bool mayBeRemembered = SettledFiles::mayBeRemembered(before, now) && recoverer.hasSeenAllPlaces();
    // Without O_NONBLOCK, a FIFO that took the file's place meanwhile would be waited for.
    auto file = Descriptor::open(environment->calls, path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        throwSystemError(iri, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Exception(ErrorCode::NotSupported, iri, "not a regular file");
    }
    if (mayBeRemembered) {
        environment->settled->add(asked, before);
    }
    return std::make_unique<ReadStream>(environment, iri, std::move(file));
}

std::unique_ptr<ByteStream> openForWriting(const EnvironmentPtr& environment, const StorageIRI& iri,
                                           const ByteStreamOpenOptions& options) {
    const bool truncates = options.truncation == StreamTruncation::Truncate;
    if (truncates && options.positioning == StreamPositioning::Append) {
        throw Exception(ErrorCode::InvalidArgument, iri, "cannot both truncate a file and append to it");
    }
    SaveRequest request;
    request.mustExist = options.disposition == StreamDisposition::OpenExisting;
    request.keep = truncates ? 0 : SaveRequest::keepAll;
    return std::make_unique<WriteStream>(std::make_unique<SaveTransaction>(environment, iri, request),
                                         options);
}

} // namespace storage::fileprovider
