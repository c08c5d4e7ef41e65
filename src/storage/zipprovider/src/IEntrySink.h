#pragma once

#include <cstdint>

namespace storage::zipprovider {

/// Where the uncompressed bytes of one entry go.
class IEntrySink {
public:
    virtual ~IEntrySink() = default;

    /// Takes `count` bytes and returns `count`. Errors: MiniZipException.
    virtual std::int64_t write(const char* data, std::int64_t count) = 0;

protected:
    IEntrySink() = default;
    IEntrySink(const IEntrySink&) = default;
    IEntrySink& operator=(const IEntrySink&) = default;
};

} // namespace storage::zipprovider
