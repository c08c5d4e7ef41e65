#pragma once

#include <foundation/storage/provider/ByteStream.h>

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/positioning.hpp>

#include <concepts>
#include <ios>
#include <memory>
#include <utility>

namespace foundation::storage::provider {

/// What GenericByteStreamDevice needs of a stream type.
template <typename Stream>
concept SeekableByteStream = requires(Stream& stream, char* in, const char* out, std::int64_t n,
                                      SeekOrigin origin) {
    { stream.read(in, n) } -> std::convertible_to<std::int64_t>;
    { stream.write(out, n) } -> std::convertible_to<std::int64_t>;
    { stream.seek(n, origin) } -> std::convertible_to<std::int64_t>;
    stream.close();
};

/// A Boost.Iostreams seekable device over a byte stream. Copies share the stream, which lives as long as the
/// last of them; closing one closes the stream for all.
template <SeekableByteStream Stream>
class GenericByteStreamDevice {
public:
    using char_type = char;
    struct category : boost::iostreams::seekable_device_tag, boost::iostreams::closable_tag {};

    /// Takes the stream over. Precondition: not null.
    explicit GenericByteStreamDevice(std::unique_ptr<Stream> stream) : m_stream(std::move(stream)) {}

    /// As ByteStream::read, but -1 at the end of the file, as Boost.Iostreams has it.
    std::streamsize read(char* buffer, std::streamsize count) {
        const auto got = m_stream->read(buffer, count);
        return got == 0 && count > 0 ? -1 : got;
    }

    /// As ByteStream::write.
    std::streamsize write(const char* buffer, std::streamsize count) {
        return m_stream->write(buffer, count);
    }

    /// As ByteStream::seek; reading and writing share one position.
    std::streampos seek(boost::iostreams::stream_offset offset, std::ios_base::seekdir way) {
        const auto origin = way == std::ios_base::beg   ? SeekOrigin::Begin
                            : way == std::ios_base::cur ? SeekOrigin::Current
                                                        : SeekOrigin::End;
        return boost::iostreams::offset_to_position(m_stream->seek(offset, origin));
    }

    /// Closes the stream, for all copies. Errors: those of ByteStream::close.
    void close() { m_stream->close(); }

private:
    std::shared_ptr<Stream> m_stream;
};

/// The device over the host's streams.
using ByteStreamDevice = GenericByteStreamDevice<ByteStream>;

} // namespace foundation::storage::provider
