#pragma once

#include <foundation/storage/provider/Export.h>

#include <cstdint>

namespace foundation::storage::provider {

/// Where a seek counts from. The numbers are part of the interface.
enum class SeekOrigin : int {
    Begin = 0,
    Current = 1,
    End = 2,
};

/// The bytes of one open file, with a position.
///
/// Close is the commit: only a stream whose close() returned has certainly delivered what was written.
/// Providers that can, discard the changes of a stream that is destroyed without close(); a destructor never
/// throws.
///
/// Errors: operations throw the provider's Exception (or, from a container format, the failure below it)
/// unless they say otherwise; a stream that failed may be closed and destroyed, nothing else.
/// Threads: one thread at a time; different streams are independent, also on one file.
///
/// The public operations check their arguments and forward to the virtual ones; a new virtual needs its
/// forwarder here, in ForwardingByteStream of the tests, and in GenericByteStreamDevice if Boost.Iostreams
/// is to see it.
class KXFLSTORAGEPROVIDER_API ByteStream {
public:
    virtual ~ByteStream();

    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;

    /// Reads up to `count` bytes at the position and moves it behind them.
    /// Returns the number of bytes read, 0 at the end of the file; fewer than asked for is no sign of the
    /// end. Errors: std::invalid_argument for a negative count.
    std::int64_t read(char* buffer, std::int64_t count);

    /// Writes `count` bytes at the position (at the end of the file for a stream opened to append) and moves
    /// the position behind them. Returns `count`: a stream accepts all bytes or throws.
    /// Errors: std::invalid_argument for a negative count.
    std::int64_t write(const char* buffer, std::int64_t count);

    /// Moves the position to `offset` bytes from `origin` and returns it, counted from the begin. Beyond the
    /// end is allowed: bytes between the old end and a later write read as zeros.
    /// Errors: a position before the begin.
    std::int64_t seek(std::int64_t offset, SeekOrigin origin);

    /// Delivers what was written and releases the file. Calling it again does nothing.
    /// Errors: what kept the bytes from being saved; the stream counts as closed all the same.
    void close();

protected:
    ByteStream() = default;

    virtual std::int64_t doRead(char* buffer, std::int64_t count) = 0;
    virtual std::int64_t doWrite(const char* buffer, std::int64_t count) = 0;
    virtual std::int64_t doSeek(std::int64_t offset, SeekOrigin origin) = 0;
    /// Must tolerate being called more than once.
    virtual void doClose() = 0;
};

} // namespace foundation::storage::provider
