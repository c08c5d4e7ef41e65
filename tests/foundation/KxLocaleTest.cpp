#include "Environment.h"
#include "TestFolder.h"

#include <fl/i18n/KxLocale.h>
#include <fl/i18n/codecvt_string_to_ustring.h>
#include <foundation/core/Export.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>

// For LeakSanitizer: the C library's newlocale() does not free its list of the folders in LOCPATH, which only
// a test here sets.
extern "C" KX_EXPORT_SYMBOL const char* __lsan_default_suppressions(); // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __lsan_default_suppressions() {
    return "leak:__argz_add_sep\n";
}

namespace {

using fl::i18n::KxLocale;

TEST(KxLocale, TheCLocaleCountsAsUtf8) {
    for (const char* name : {"C", "POSIX"}) {
        const ScopedEnvironment all("LC_ALL", name);
        EXPECT_EQ("UTF-8", KxLocale::system().codeSet()) << name;
    }
}

TEST(KxLocale, AnEnvironmentThatNamesNoLocaleCountsAsUtf8) {
    const ScopedEnvironment all("LC_ALL", std::nullopt);
    const ScopedEnvironment type("LC_CTYPE", std::nullopt);
    const ScopedEnvironment lang("LANG", std::nullopt);
    EXPECT_EQ("UTF-8", KxLocale::system().codeSet());
}

TEST(KxLocale, ALocaleThatTheSystemDoesNotHaveCountsAsUtf8) {
    const ScopedEnvironment all("LC_ALL", "xx_XX.ISO-8859-1");
    EXPECT_EQ("UTF-8", KxLocale::system().codeSet());
}

TEST(KxLocale, TellsTheCodeSetOfTheEnvironmentsLocale) {
    const TestFolder folder;
    const std::string command = "localedef --no-archive -c -i en_US -f ISO-8859-1 '" +
                                (folder.path() / "kx_test").string() + "' >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) {
        GTEST_SKIP() << "this system lacks the sources of locales: " << command;
    }
    const ScopedEnvironment path("LOCPATH", folder.path().string());
    const ScopedEnvironment all("LC_ALL", "kx_test");
    EXPECT_EQ("ISO-8859-1", KxLocale::system().codeSet());
    EXPECT_EQ(u"\u00E4", fl::i18n::codecvt_string_to_ustring(KxLocale::system().codeSet())("\xE4"));
}

TEST(KxLocale, LeavesTheLocaleOfTheProcessAlone) {
    const ScopedEnvironment all("LC_ALL", "C.UTF-8");
    const std::string before = std::setlocale(LC_ALL, nullptr);
    KxLocale::system();
    EXPECT_EQ(before, std::setlocale(LC_ALL, nullptr));
}

} // namespace
