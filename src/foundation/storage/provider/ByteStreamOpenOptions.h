#pragma once

#include <cstdint>

namespace foundation::storage::provider {

/// What a stream opened with IProvider::openStream may do.
enum class StreamAccess : std::uint32_t {
    Write = 0,
    ReadWrite = 1,
};

/// What must be there already.
enum class StreamDisposition : std::uint32_t {
    /// An existing file is opened, a missing one is created.
    OpenOrCreate = 0,
    /// A missing file is an error (ErrorCode::NotFound).
    OpenExisting = 1,
};

/// What becomes of existing contents.
enum class StreamTruncation : std::uint32_t {
    Truncate = 0,
    Keep = 1,
};

/// Where writes go.
enum class StreamPositioning : std::uint32_t {
    /// Every write goes to the end of the file.
    Append = 0,
    /// Writes go to the stream's position, which starts at 0.
    Position = 1,
};

/// How IProvider::openStream opens a file for writing. Four 32-bit words in this order; providers may read
/// them as numbers. Truncate together with Append has no meaning and is refused by the provider.
struct ByteStreamOpenOptions {
    StreamAccess access = StreamAccess::Write;
    StreamDisposition disposition = StreamDisposition::OpenOrCreate;
    StreamTruncation truncation = StreamTruncation::Truncate;
    StreamPositioning positioning = StreamPositioning::Position;

    /// Replace the contents, or create the file.
    static constexpr ByteStreamOpenOptions overwrite() { return {}; }
    /// Write behind the existing contents, or create the file.
    static constexpr ByteStreamOpenOptions append() {
        return {StreamAccess::Write, StreamDisposition::OpenOrCreate, StreamTruncation::Keep,
                StreamPositioning::Append};
    }
    /// Read and change an existing file in place.
    static constexpr ByteStreamOpenOptions modify() {
        return {StreamAccess::ReadWrite, StreamDisposition::OpenExisting, StreamTruncation::Keep,
                StreamPositioning::Position};
    }

    friend constexpr bool operator==(const ByteStreamOpenOptions&, const ByteStreamOpenOptions&) = default;
};

} // namespace foundation::storage::provider
