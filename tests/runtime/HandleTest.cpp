#include <runtime/RuntimeTest.h>

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/IllegalStateException.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceException.h>
#include <cppmicroservices/SharedLibraryException.h>

#include <gmock/gmock.h>

#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace runtime {
namespace {

using bundle::Farewell;
using bundle::Greeting;
using cppmicroservices::Bundle;
using cppmicroservices::BundleContext;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkEvent;
using cppmicroservices::LDAPFilter;
using cppmicroservices::ServiceReference;
using cppmicroservices::ServiceRegistration;
using testing::Contains;
using testing::HasSubstr;
namespace Constants = cppmicroservices::Constants;

template <typename T>
std::string text(const T& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

/// Bundles, contexts, references, registrations and events as values of a host.
class Handle : public RuntimeTest {
protected:
    struct Quiet : Greeting {
        std::string greet(const std::string&) override { return "…"; }
        std::string ownBundle() override { return std::string(); }
    };

    ServiceRegistration<Greeting> registerQuiet(int ranking = 0) {
        return context().RegisterService<Greeting>(std::make_shared<Quiet>(),
                                                   {{Constants::SERVICE_RANKING, ranking}});
    }
};

TEST_F(Handle, ABundleThatIsSetToNothingIsNone) {
    Bundle bundle = installGreeting();
    bundle = nullptr;
    EXPECT_FALSE(bundle);
    EXPECT_TRUE(bundle == Bundle());
    EXPECT_THROW(bundle.GetBundleId(), std::invalid_argument);
}

TEST_F(Handle, BundlesAreKeysOfAMap) {
    const Bundle greeting = installGreeting();
    std::map<Bundle, std::string> names{{greeting, "greeting"}, {m_framework, "framework"}};
    EXPECT_EQ(names.size(), 2U);
    EXPECT_EQ(names[context().GetBundle(greeting.GetBundleId())], "greeting");
    EXPECT_EQ(names[context().GetBundle(0)], "framework");
    EXPECT_TRUE(Bundle(m_framework) < greeting);
    EXPECT_FALSE(greeting < greeting);
    EXPECT_NE(greeting < Bundle(), Bundle() < greeting);
}

TEST_F(Handle, BundlesOfTwoFrameworksHaveAnOrderToo) {
    const Bundle other = cppmicroservices::FrameworkFactory().NewFramework();
    const Bundle own = m_framework;
    EXPECT_FALSE(own == other);
    EXPECT_NE(own < other, other < own);
}

TEST_F(Handle, ABundleIsCopiedAndMovedAsWhatItRefersTo) {
    const Bundle greeting = installGreeting();
    Bundle copy = greeting;
    EXPECT_TRUE(copy == greeting);
    const Bundle moved = std::move(copy);
    EXPECT_TRUE(moved == greeting);
    copy = m_framework;
    EXPECT_TRUE(copy == m_framework);
    copy = Bundle(moved);
    EXPECT_TRUE(copy == greeting);
    copy.Start();
    EXPECT_EQ(greeting.GetState(), Bundle::STATE_ACTIVE);
}

TEST_F(Handle, AFrameworkIsCopiedAndMovedAsWhatItRefersTo) {
    Framework other = cppmicroservices::FrameworkFactory().NewFramework();
    other.Start();
    Framework copy = other;
    EXPECT_TRUE(copy == other);
    Framework moved = std::move(copy);
    EXPECT_TRUE(moved == other);
    copy = m_framework;
    EXPECT_TRUE(copy == m_framework);
    EXPECT_FALSE(copy == other);
    copy = std::move(moved);
    EXPECT_TRUE(copy == other);
    copy.Stop();
    EXPECT_EQ(other.WaitForStop(std::chrono::milliseconds(0)).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
    EXPECT_EQ(m_framework.GetState(), Bundle::STATE_ACTIVE);
}

TEST_F(Handle, AFrameworkIsMadeOfItsOwnBundleAndOfNoOther) {
    const Framework same(context().GetBundle(0));
    EXPECT_TRUE(same == m_framework);
    const Bundle greeting = installGreeting();
    EXPECT_THROW(Framework{greeting}, std::logic_error);
    EXPECT_EQ(m_framework.GetState(), Bundle::STATE_ACTIVE);
}

TEST_F(Handle, ABundleHasATextForPeople) {
    Bundle bundle = startGreeting();
    EXPECT_THAT(text(bundle), HasSubstr("test_greeting"));
    EXPECT_THAT(text(bundle), HasSubstr("ACTIVE"));
    EXPECT_EQ(text(Bundle::STATE_INSTALLED), "INSTALLED");
    EXPECT_EQ(text(Bundle::STATE_RESOLVED), "RESOLVED");
    EXPECT_EQ(text(Bundle::STATE_STARTING), "STARTING");
    EXPECT_EQ(text(Bundle::STATE_STOPPING), "STOPPING");
    EXPECT_EQ(text(Bundle::STATE_ACTIVE), "ACTIVE");
    EXPECT_EQ(text(Bundle::STATE_UNINSTALLED), "UNINSTALLED");
}

TEST_F(Handle, TheServicesOfAnUninstalledBundleCannotBeAskedFor) {
    Bundle bundle = startGreeting();
    EXPECT_FALSE(bundle.GetRegisteredServices().empty());
    bundle.Uninstall();
    EXPECT_THROW(bundle.GetRegisteredServices(), std::logic_error);
}

TEST_F(Handle, ContextsAreEqualIfTheyAreOfOneBundle) {
    Bundle bundle = startGreeting();
    EXPECT_TRUE(bundle.GetBundleContext() == bundle.GetBundleContext());
    EXPECT_FALSE(bundle.GetBundleContext() == context());
    EXPECT_NE(bundle.GetBundleContext() < context(), context() < bundle.GetBundleContext());
    EXPECT_FALSE(context() == BundleContext());
    EXPECT_TRUE(BundleContext() == BundleContext());
    BundleContext own = context();
    own = nullptr;
    EXPECT_FALSE(own);
    EXPECT_TRUE(context());
}

TEST_F(Handle, AContextTellsAllPropertiesOfItsFramework) {
    Framework framework = cppmicroservices::FrameworkFactory().NewFramework(
        cppmicroservices::FrameworkConfiguration{{"colour", std::string("green")}});
    framework.Init();
    const auto properties = framework.GetBundleContext().GetProperties();
    ASSERT_EQ(properties.count("colour"), 1U);
    EXPECT_EQ(properties.at("colour").ToString(), "green");
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds(0));
}

TEST_F(Handle, AReferenceTellsTheNamesOfItsProperties) {
    startGreeting();
    const auto keys = context().GetServiceReference<Farewell>().GetPropertyKeys();
    for (const auto& key :
         {std::string("language"), std::string("politeness"), Constants::OBJECTCLASS, Constants::SERVICE_ID})
        EXPECT_THAT(keys, Contains(key));
}

TEST_F(Handle, ReferencesToOneServiceAreOneKey) {
    const auto registration = registerQuiet();
    const auto found = context().GetServiceReference<Greeting>();
    EXPECT_TRUE(found == registration.GetReference());
    EXPECT_FALSE(found < registration.GetReference());
    EXPECT_EQ(std::hash<ServiceReference<Greeting>>()(found),
              std::hash<ServiceReference<Greeting>>()(registration.GetReference()));
    const auto other = registerQuiet().GetReference();
    EXPECT_FALSE(found == other);
    EXPECT_EQ((std::set<ServiceReference<Greeting>>{found, other, registration.GetReference()}.size()), 2U);
    ServiceReference<Greeting> none = found;
    none = nullptr;
    EXPECT_FALSE(none);
    EXPECT_FALSE(none == found);
    EXPECT_TRUE(none < found);
    EXPECT_FALSE(found < none);
    none = found;
    EXPECT_TRUE(none == found);
    EXPECT_TRUE(none);
}

TEST_F(Handle, RegistrationsHaveTheOrderOfTheirServices) {
    const auto low = registerQuiet(1);
    const auto high = registerQuiet(2);
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    EXPECT_FALSE(low < low);
    EXPECT_FALSE(low == high);
    ServiceRegistration<Greeting> same = low;
    EXPECT_TRUE(same == low);
    ServiceRegistration<Greeting> moved = std::move(same);
    EXPECT_TRUE(moved == low);
    moved = high;
    EXPECT_TRUE(moved == high);
    moved = ServiceRegistration<Greeting>(low);
    EXPECT_TRUE(moved == low);
    moved = nullptr;
    EXPECT_FALSE(moved);
    EXPECT_FALSE(moved == low);
    EXPECT_TRUE(low.GetReference());
}

TEST_F(Handle, ARegistrationOfNothingIsRefused) {
    ServiceRegistration<Greeting> none;
    EXPECT_FALSE(none);
    EXPECT_THROW(none.Unregister(), std::logic_error);
    EXPECT_THROW(none.SetProperties({}), std::logic_error);
    EXPECT_THROW(static_cast<void>(none.GetReference()), std::logic_error);
}

TEST_F(Handle, AFilterJudgesServicesAndBundles) {
    const Bundle bundle = startGreeting();
    const auto reference = context().GetServiceReference<Farewell>();
    EXPECT_TRUE(LDAPFilter("(&(language=en)(politeness>=3))").Match(reference));
    EXPECT_FALSE(LDAPFilter("(language=fr)").Match(reference));
    EXPECT_TRUE(LDAPFilter("(bundle.symbolic_name=test_*)").Match(bundle));
    EXPECT_FALSE(LDAPFilter("(bundle.version=9.*)").Match(bundle));
    const LDAPFilter filter("(language=en)");
    const LDAPFilter copy = filter;
    EXPECT_TRUE(copy == filter);
    EXPECT_TRUE(copy.Match(reference));
    LDAPFilter assigned("(language=fr)");
    EXPECT_FALSE(assigned == filter);
    assigned = filter;
    EXPECT_TRUE(assigned == filter);
    EXPECT_TRUE(assigned.Match(reference));
}

TEST_F(Handle, AnEventIsWhatItWasMadeOf) {
    const auto cause = std::make_exception_ptr(std::runtime_error("worn out"));
    const FrameworkEvent event(FrameworkEvent::FRAMEWORK_WARNING, m_framework, "it rattles", cause);
    EXPECT_TRUE(event);
    EXPECT_EQ(event.GetType(), FrameworkEvent::FRAMEWORK_WARNING);
    EXPECT_TRUE(event.GetBundle() == m_framework);
    EXPECT_EQ(event.GetMessage(), "it rattles");
    EXPECT_THROW(std::rethrow_exception(event.GetThrowable()), std::runtime_error);
    const FrameworkEvent copy = event;
    EXPECT_EQ(copy.GetMessage(), "it rattles");
    FrameworkEvent assigned;
    assigned = copy;
    EXPECT_EQ(assigned.GetType(), FrameworkEvent::FRAMEWORK_WARNING);
    EXPECT_TRUE(assigned.GetBundle() == m_framework);
    EXPECT_EQ(assigned.GetMessage(), "it rattles");
    EXPECT_EQ(assigned.GetThrowable(), cause);
    EXPECT_FALSE(FrameworkEvent());
}

TEST_F(Handle, TheEventOfAStopNamesItsFramework) {
    stopFramework();
    const FrameworkEvent event = m_framework.WaitForStop(std::chrono::milliseconds(0));
    EXPECT_TRUE(event);
    EXPECT_TRUE(event.GetBundle() == m_framework);
    EXPECT_EQ(event.GetThrowable(), nullptr);
}

TEST_F(Handle, CopiesOfExceptionsTellTheSame) {
    const cppmicroservices::IllegalStateException late("too late");
    const cppmicroservices::IllegalStateException lateToo = late;
    EXPECT_STREQ(lateToo.what(), "too late");
    const auto missing = std::make_error_code(std::errc::no_such_file_or_directory);
    const cppmicroservices::SharedLibraryException failure(missing, "cannot load it", m_framework);
    const cppmicroservices::SharedLibraryException copy = failure;
    EXPECT_EQ(copy.code(), missing);
    EXPECT_TRUE(copy.GetBundle() == m_framework);
    EXPECT_STREQ(copy.what(), failure.what());
    EXPECT_THAT(copy.what(), HasSubstr("cannot load it"));
}

TEST_F(Handle, AServiceExceptionTellsItsKind) {
    const cppmicroservices::ServiceException failure("it failed",
                                                     cppmicroservices::ServiceException::FACTORY_ERROR);
    const cppmicroservices::ServiceException copy = failure;
    EXPECT_STREQ(copy.what(), "it failed");
    EXPECT_EQ(copy.GetType(), cppmicroservices::ServiceException::FACTORY_ERROR);
    cppmicroservices::ServiceException assigned("it waits", cppmicroservices::ServiceException::UNREGISTERED);
    assigned = copy;
    EXPECT_STREQ(assigned.what(), "it failed");
    EXPECT_EQ(assigned.GetType(), cppmicroservices::ServiceException::FACTORY_ERROR);
}

} // namespace
} // namespace runtime
