#include <runtime/RuntimeTest.h>

#include <cppmicroservices/Any.h>
#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/Constants.h>
#include <cppmicroservices/LDAPFilter.h>

#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>

namespace runtime {
namespace {

using bundle::Farewell;
using cppmicroservices::Bundle;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkEvent;
using cppmicroservices::LDAPFilter;

/// Handles and values where runtimes differ.
class EmbeddedHandle : public RuntimeTest {};

TEST_F(EmbeddedHandle, NoRegistrationComesBeforeEveryOther) {
    const auto some = context().RegisterService<bundle::Witness>(std::make_shared<Diary>());
    const cppmicroservices::ServiceRegistration<bundle::Witness> none;
    EXPECT_TRUE(none < some);
    EXPECT_FALSE(some < none);
    EXPECT_FALSE(none < none);
}

TEST_F(EmbeddedHandle, AFrameworkMadeOfNoBundleIsNone) {
    Framework none{Bundle()};
    EXPECT_FALSE(none);
    EXPECT_THROW(none.Init(), std::invalid_argument);
    EXPECT_THROW(none.WaitForStop(std::chrono::milliseconds(1)), std::invalid_argument);
}

TEST_F(EmbeddedHandle, AReferenceToNothingHasNoProperties) {
    const cppmicroservices::ServiceReference<Farewell> none;
    EXPECT_TRUE(none.GetProperty("language").Empty());
    EXPECT_TRUE(none.GetPropertyKeys().empty());
    EXPECT_FALSE(none.GetBundle());
}

TEST_F(EmbeddedHandle, ABundleThatIsNoneHasAText) {
    std::ostringstream stream;
    stream << Bundle() << " " << FrameworkEvent::FRAMEWORK_STARTED << " " << FrameworkEvent::FRAMEWORK_ERROR
           << " " << FrameworkEvent::FRAMEWORK_WARNING << " " << FrameworkEvent::FRAMEWORK_INFO << " "
           << FrameworkEvent::FRAMEWORK_STOPPED << " " << FrameworkEvent::FRAMEWORK_STOPPED_UPDATE << " "
           << FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT;
    stream << " " << static_cast<FrameworkEvent::Type>(5) << " " << static_cast<Bundle::State>(3);
    EXPECT_EQ(stream.str(), "Bundle[] STARTED ERROR WARNING INFO STOPPED STOPPED_UPDATE WAIT_TIMEDOUT 5 3");
}

TEST_F(EmbeddedHandle, AFilterTakesBracketsInPairsAndLooksIntoLiterals) {
    cppmicroservices::AnyMap names(cppmicroservices::AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    names.emplace("name", std::string("plan (old)"));
    const char* const literal = "zip";
    names.emplace("scheme", literal);
    EXPECT_TRUE(LDAPFilter("(name=plan (old))").Match(names));
    EXPECT_FALSE(LDAPFilter("(name=plan (new))").Match(names));
    EXPECT_TRUE(LDAPFilter("(scheme=z*)").Match(names));
    EXPECT_FALSE(LDAPFilter("(scheme=tar)").Match(names));
}

TEST_F(EmbeddedHandle, AValueWithoutATextShowsItsType) {
    EXPECT_EQ(cppmicroservices::Any(std::set<int>{1}).ToString().find("std::set<int"), 0U);
}

TEST_F(EmbeddedHandle, AFrameworkLogsToTheStandardLogUnlessItIsGivenAnother) {
    std::ostringstream log;
    {
        const auto putBack = [](std::streambuf* before) { std::clog.rdbuf(before); };
        const std::unique_ptr<std::streambuf, decltype(putBack)> before(std::clog.rdbuf(log.rdbuf()));
        Framework framework = cppmicroservices::FrameworkFactory().NewFramework(
            {{cppmicroservices::Constants::FRAMEWORK_LOG, true}}, nullptr);
        framework.Start();
        framework.GetBundleContext().InstallBundles(greetingBundle);
    }
    EXPECT_EQ(log.str(), "installed " + greetingBundle + "\n");
}

} // namespace
} // namespace runtime
