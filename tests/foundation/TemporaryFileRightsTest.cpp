#include "TestFolder.h"

#include <fl/filesystem/detail/path_forms.h>
#include <fl/filesystem/temporary.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = fl::filesystem;

TEST(TemporaryFile, IsReadableAndWritableByItsOwnerOnly) {
    const TestFolder folder;
    const mode_t before = ::umask(0);
    const fs::TemporaryFile made = fs::tmpfile(folder.path().u16string(), u"a", u"z");
    ::umask(before);
    struct stat status {};
    ASSERT_EQ(0, ::stat(fs::detail::make_native_form(made.name, true).c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 07777U);
}

TEST(TemporaryFile, IsNotInheritedByChildProcesses) {
    const TestFolder folder;
    const fs::TemporaryFile made = fs::tmpfile(folder.path().u16string(), u"a", u"z");
    EXPECT_NE(0, ::fcntl(::fileno(made.file.get()), F_GETFD) & FD_CLOEXEC);
}

} // namespace
