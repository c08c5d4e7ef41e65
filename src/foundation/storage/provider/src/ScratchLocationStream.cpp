#include "ScratchLocationStream.h"

#include "StreamCopy.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

#include <random>
#include <utility>

namespace foundation::storage::provider::detail {

namespace {

/// A location in the folder at which nothing stands. 80 random bits: that two writers come to the same name
/// between the look and the opening need not be reckoned with.
StorageIRI unusedLocation(IProvider& provider, const StorageIRI& folder) {
    constexpr fl::i18n::ustring_view digits = u"0123456789abcdefghijklmnopqrstuv";
    static_assert(digits.size() == 32);
    std::random_device random;
    for (;;) {
        fl::i18n::ustring name = u".kxstorage-";
        for (int digit = 0; digit < 16; ++digit) {
            name += digits[random() % digits.size()];
        }
        auto location = folder.child(name + u".tmp");
        if (!provider.exists(location)) {
            return location;
        }
    }
}

} // namespace

ScratchLocationStream::ScratchLocationStream(std::shared_ptr<IProvider> provider, StorageIRI location,
                                             const StorageIRI& scratchFolder,
                                             const ByteStreamOpenOptions& options)
    : m_provider(std::move(provider)), m_location(std::move(location)),
      m_scratch(unusedLocation(*m_provider, scratchFolder)) {
    auto scratchOptions = options;
    scratchOptions.disposition = StreamDisposition::OpenOrCreate;
    m_stream = m_provider->openStream(m_scratch, scratchOptions);
    try {
        takeOverContents(options);
    } catch (...) {
        discard();
        throw;
    }
}

ScratchLocationStream::~ScratchLocationStream() {
    if (m_state == State::Open) {
        discard();
    }
}

std::int64_t ScratchLocationStream::doRead(char* buffer, std::int64_t count) {
    return openStream().read(buffer, count);
}

std::int64_t ScratchLocationStream::doWrite(const char* buffer, std::int64_t count) {
    return openStream().write(buffer, count);
}

std::int64_t ScratchLocationStream::doSeek(std::int64_t offset, SeekOrigin origin) {
    return openStream().seek(offset, origin);
}

void ScratchLocationStream::doClose() {
    if (std::exchange(m_state, State::Closed) == State::Closed) {
        return;
    }
    try {
        m_stream->close();
        m_stream.reset();
        m_provider->moveFile(m_scratch, m_location, MoveOption::ReplaceExisting);
    } catch (...) {
        discard();
        throw;
    }
}

ByteStream& ScratchLocationStream::openStream() const {
    if (m_state != State::Open) {
        throw Exception(ErrorCode::InvalidArgument, m_location, "the stream is closed");
    }
    return *m_stream;
}

void ScratchLocationStream::takeOverContents(const ByteStreamOpenOptions& options) {
    if (options.truncation != StreamTruncation::Keep || !m_provider->isFile(m_location)) {
        return;
    }
    const auto source = m_provider->openReadStream(m_location);
    copyBytes(*source, *m_stream);
    source->close();
    m_stream->seek(0, SeekOrigin::Begin);
}

void ScratchLocationStream::discard() noexcept {
    // Not every provider's stream lets go of the file without close().
    try {
        if (m_stream) {
            m_stream->close();
        }
    } catch (...) {
    }
    m_stream.reset();
    try {
        m_provider->removeFile(m_scratch);
    } catch (...) {
        // The file may never have come to be; and what keeps it from being removed matters less than the
        // failure that led here.
    }
}

} // namespace foundation::storage::provider::detail
