#include "FileTimes.h"
#include "TestFolder.h"

#include <fl/filesystem/operations.h>

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

namespace fs = fl::filesystem;
using std::filesystem::file_type;

TEST(SpecialFiles, APipeIsOne) {
    const TestFolder folder;
    const auto pipe = folder.path() / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(fs::status(pipe).type, file_type::fifo);
    EXPECT_TRUE(fs::exists(pipe));
    EXPECT_TRUE(fs::remove(pipe));
}

TEST(SpecialFiles, ASocketIsOne) {
    const TestFolder folder;
    const auto path = folder.path() / "socket";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.native().size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(socket, 0);
    const int bound = ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::close(socket);
    ASSERT_EQ(bound, 0);
    EXPECT_EQ(fs::status(path).type, file_type::socket);
}

TEST(SpecialFiles, ADiskIsOne) {
    const TestFolder folder;
    const auto disk = folder.path() / "disk";
    if (::mknod(disk.c_str(), S_IFBLK | 0600, makedev(7, 200)) != 0)
        GTEST_SKIP() << "devices cannot be made here";
    EXPECT_EQ(fs::status(disk).type, file_type::block);
}

TEST(SpecialFiles, ATimeOutsideOfTheCalendarIsNone) {
    const TestFolder folder;
    // Few file systems keep such times; that in memory does.
    const auto file = std::filesystem::is_directory("/dev/shm")
                          ? std::filesystem::path("/dev/shm") / folder.path().filename()
                          : folder.path() / "file";
    std::ofstream(file).close();
    constexpr std::int64_t inTheYear11476 = 300'000'000'000;
    setLastModified(file, inTheYear11476, 0);
    struct stat kept {};
    const bool known = ::stat(file.c_str(), &kept) == 0;
    const auto time = fs::status(file).lastModified;
    std::filesystem::remove(file);
    ASSERT_TRUE(known);
    if (kept.st_mtim.tv_sec != inTheYear11476)
        GTEST_SKIP() << "the file system keeps no such times";
    EXPECT_TRUE(time.is_not_a_date_time());
}

} // namespace
