#include "throwing_plugin.h"

#include <fl/filesystem/FsysExceptionBase.h>
#include <foundation/core/except/throwInternal.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace {

using foundation::core::SourceLocation;
using foundation::core::except::IException;
using foundation::core::except::IInternalException;
using foundation::core::except::throwInternal;

struct NotAStandardException {
    int number = 0;
};

/// The exception of type T that `action` throws, as what `ask` makes of it.
template <typename T, typename Action, typename Ask>
auto caughtAs(Action action, Ask ask) {
    try {
        action();
    } catch (const T& caught) {
        return ask(caught);
    }
    throw std::logic_error("nothing was thrown");
}

TEST(InternalException, IsCaughtAsTheTypeThatWasThrown) {
    const auto action = [] { throwInternal(std::range_error("too far")); };
    EXPECT_EQ("too far",
              caughtAs<std::range_error>(action, [](const auto& e) { return std::string(e.what()); }));
}

TEST(InternalException, IsCaughtAsABaseOfTheTypeThatWasThrown) {
    const auto action = [] { throwInternal(std::range_error("too far")); };
    EXPECT_EQ("too far",
              caughtAs<std::exception>(action, [](const auto& e) { return std::string(e.what()); }));
}

TEST(InternalException, IsCaughtAsAnInternalExceptionWithTheTextOfWhatWasThrown) {
    const auto action = [] { throwInternal(std::range_error("too far")); };
    const auto text = [](const auto& e) { return std::string(e.getText()); };
    EXPECT_EQ("too far", caughtAs<IInternalException>(action, text));
    EXPECT_EQ("too far", caughtAs<IException>(action, text));
}

TEST(InternalException, TellsTheFileTheLineAndTheFunctionOfTheThrow) {
    std::uint32_t line = 0;
    const auto action = [&line] {
        line = __LINE__ + 1;
        throwInternal(std::runtime_error("here"));
    };
    const auto location = caughtAs<IException>(action, [](const auto& e) { return e.getSourceLocation(); });
    EXPECT_TRUE(std::string(location.file()).ends_with("ExceptionTest.cpp")) << location.file();
    EXPECT_EQ(line, location.line());
    EXPECT_EQ("operator()", std::string(location.function()));
}

TEST(InternalException, TellsThePlaceThatItWasGiven) {
    const auto action = [] {
        throwInternal(std::runtime_error("there"), SourceLocation("other.cpp", 7, "other"));
    };
    const auto location = caughtAs<IException>(action, [](const auto& e) { return e.getSourceLocation(); });
    EXPECT_STREQ("other.cpp", location.file());
    EXPECT_EQ(7U, location.line());
    EXPECT_STREQ("other", location.function());
}

TEST(InternalException, WrapsClassesThatAreNoStandardExceptions) {
    const auto action = [] { throwInternal(NotAStandardException{42}); };
    EXPECT_EQ(42, caughtAs<NotAStandardException>(action, [](const auto& e) { return e.number; }));
    EXPECT_EQ("exception without a text",
              caughtAs<IInternalException>(action, [](const auto& e) { return std::string(e.getText()); }));
}

TEST(InternalException, LeavesTheObjectItWasMadeFromAlone) {
    const std::runtime_error original("kept");
    EXPECT_THROW(throwInternal(original), std::runtime_error);
    EXPECT_STREQ("kept", original.what());
}

/// A loaded library, RTLD_LOCAL as for a bundle.
class ThrowingPlugin : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(nullptr, m_library) << ::dlerror(); }

    template <typename Function>
    Function* function(const char* name) const {
        return reinterpret_cast<Function*>(::dlsym(m_library.get(), name));
    }

private:
    struct Unload {
        void operator()(void* library) const { ::dlclose(library); }
    };

    std::unique_ptr<void, Unload> m_library{::dlopen(KX_THROWING_PLUGIN, RTLD_NOW | RTLD_LOCAL)};
};

TEST_F(ThrowingPlugin, ItsOwnExceptionsReachTheHostAsInternalExceptions) {
    const auto action = function<decltype(kxThrowPluginException)>("kxThrowPluginException");
    ASSERT_NE(nullptr, action);
    EXPECT_EQ("thrown by the plug-in",
              caughtAs<IInternalException>(action, [](const auto& e) { return std::string(e.getText()); }));
    EXPECT_EQ("thrown by the plug-in",
              caughtAs<std::runtime_error>(action, [](const auto& e) { return std::string(e.what()); }));
}

TEST_F(ThrowingPlugin, ItCatchesItsOwnExceptionsByTheirType) {
    const auto catches = function<decltype(kxCatchesItsOwnException)>("kxCatchesItsOwnException");
    ASSERT_NE(nullptr, catches);
    EXPECT_TRUE(catches());
}

TEST_F(ThrowingPlugin, ExceptionsOfAPlatformLibraryAreCaughtByTypeOnTheOtherSide) {
    const auto action = function<decltype(kxThrowFileSystemException)>("kxThrowFileSystemException");
    ASSERT_NE(nullptr, action);
    EXPECT_EQ("/nonexistent/file", caughtAs<fl::filesystem::FsysExceptionBase>(
                                       action, [](const auto& e) { return e.getPath().string(); }));
    EXPECT_EQ(
        std::errc::no_such_file_or_directory,
        caughtAs<fl::filesystem::FsysExceptionBase>(action, [](const auto& e) { return e.getErrorCode(); }));
    EXPECT_TRUE(caughtAs<IInternalException>(action, [](const auto& e) {
        return dynamic_cast<const fl::filesystem::FsysExceptionBase*>(&e) != nullptr;
    }));
}

} // namespace
