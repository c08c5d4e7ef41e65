#pragma once

#include <fl/filesystem/path.h>
#include <foundation/storage/provider/ByteStream.h>

#include <fstream>
#include <vector>

namespace storage::zipprovider {

/// The bytes of an archive in a local file, for reading. Threads: one at a time.
class LocalArchiveStream final : public foundation::storage::provider::ByteStream {
public:
    /// Errors: FsysExceptionBase when the file cannot be opened.
    explicit LocalArchiveStream(const fl::filesystem::path& path);

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* buffer, std::int64_t count) override;
    std::int64_t doSeek(std::int64_t offset, foundation::storage::provider::SeekOrigin origin) override;
    void doClose() override;

private:
    [[noreturn]] void fail(const char* operation, int cause) const;

    const fl::filesystem::path m_path;
    std::vector<char> m_buffer;
    std::filebuf m_file;
};

} // namespace storage::zipprovider
