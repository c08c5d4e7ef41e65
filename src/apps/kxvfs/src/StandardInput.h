#pragma once

#include <foundation/storage/provider/ByteStream.h>

namespace apps::kxvfs {

/// Standard input as a stream to read from. Errors: std::system_error.
class StandardInput : public foundation::storage::provider::ByteStream {
protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* buffer, std::int64_t count) override;
    std::int64_t doSeek(std::int64_t offset, foundation::storage::provider::SeekOrigin origin) override;
    void doClose() override {}
};

} // namespace apps::kxvfs
