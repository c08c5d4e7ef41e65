// Covers what an interrupted save may have left beside a file: a journal with any bytes, in a folder with a
// staging file and with marks of any kind. Opening the file recovers or is refused; it must neither do
// anything to a file that the journal does not belong to, nor lose the only copy of the new contents.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <foundation/storage/provider/ByteStream.h>
#include <storage/fileprovider/LocalFileProvider.h>
#include <storage/fileprovider/src/Journal.h>
#include <support/TemporaryFolder.h>

namespace {

using namespace storage::fileprovider;

const std::string oldBytes = "the old bytes of the file";
const std::string newBytes = "and the new ones, which are longer";
constexpr const char* attributeName = "user.kxvfs.save";

void spit(const std::filesystem::path& file, std::string_view bytes) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
}

std::string slurp(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

struct stat statusOf(const std::filesystem::path& file) {
    struct stat status {};
    ::stat(file.c_str(), &status);
    return status;
}

/// The first byte says what the rest is: the journal itself, or changes to one that fits the files.
std::string journalBytes(std::string_view input, const kx::test::TemporaryFolder& folder) {
    if (input.empty() || (input[0] & 1) != 0)
        return std::string(input.substr(input.empty() ? 0 : 1));
    Journal journal;
    const auto target = statusOf(folder.file("a"));
    const auto staging = statusOf(folder.file(".a.kxvfs-new0"));
    journal.phase = (input[0] & 2) != 0 ? CopyOverPhase::Overwriting : CopyOverPhase::Prepared;
    journal.marked = (input[0] & 4) != 0;
    journal.device = target.st_dev;
    journal.inode = target.st_ino;
    journal.oldSize = oldBytes.size();
    journal.newSize = newBytes.size();
    journal.stagingInode = staging.st_ino;
    journal.id = "0123456789abcdef";
    journal.target = folder.file("a").string();
    journal.stagingName = ".a.kxvfs-new0";
    const auto fields = input.substr(1);
    const auto field = [&](std::size_t place) { return place < fields.size() ? fields[place] : '\0'; };
    journal.oldSize += static_cast<std::uint64_t>(field(0));
    journal.newSize += static_cast<std::uint64_t>(field(1));
    journal.inode += static_cast<std::uint64_t>(field(2));
    journal.stagingInode += static_cast<std::uint64_t>(field(3));
    if (fields.size() > 5)
        journal.stagingName = std::string(fields.substr(5));
    return encodeJournal(journal);
}

void recover(std::string_view input) {
    const kx::test::TemporaryFolder folder;
    const kx::test::TemporaryFolder state;
    spit(folder.file("a"), oldBytes);
    spit(folder.file("bystander"), oldBytes);
    spit(folder.file(".a.kxvfs-new0"), newBytes);
    spit(folder.file(".a.kxvfs-journal"), journalBytes(input, folder));
    if (!input.empty() && (input[0] & 8) != 0) {
        const auto mark = "0123456789abcdef:" + folder.file(".a.kxvfs-journal").string();
        ::setxattr(folder.file("a").c_str(), attributeName, mark.data(), mark.size(), 0);
    }
    LocalFileOptions options;
    options.stateFolder = state.path().string();
    options.sync = false;
    bool opened = false;
    try {
        LocalFileProvider::create(options)->openReadStream(folder.iri("a"))->close();
        opened = true;
    } catch (const std::exception&) {
        // What cannot be settled is told, and everything that could help stays.
    }
    const auto bytes = slurp(folder.file("a"));
    const bool stagingKept = std::filesystem::exists(folder.file(".a.kxvfs-new0"));
    const bool sound = bytes == oldBytes || bytes == newBytes;
    if (slurp(folder.file("bystander")) != oldBytes || (opened && !sound) || (!sound && !stagingKept))
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    recover({reinterpret_cast<const char*>(data), size});
    return 0;
}
