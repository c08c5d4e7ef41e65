#include <runtime/RuntimeTest.h>

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/Constants.h>
#include <cppmicroservices/IllegalStateException.h>

#include <stdexcept>
#include <thread>

namespace runtime {
namespace {

using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::AnyMap;
using cppmicroservices::Bundle;
using cppmicroservices::BundleContext;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkEvent;
using cppmicroservices::FrameworkFactory;
using testing::Test;

TEST(FrameworkLife, ItsContextIsUsableFromInitToStop) {
    Framework framework = FrameworkFactory().NewFramework();
    EXPECT_FALSE(framework.GetBundleContext());
    framework.Init();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_STARTING);
    const BundleContext context = framework.GetBundleContext();
    EXPECT_TRUE(context);
    framework.Start();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_ACTIVE);
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds(0));
    EXPECT_FALSE(framework.GetBundleContext());
    EXPECT_FALSE(context);
    EXPECT_THROW(context.GetBundles(), cppmicroservices::IllegalStateException);
}

TEST(FrameworkLife, ItIsTheBundleWithNumberZero) {
    Framework framework = FrameworkFactory().NewFramework();
    framework.Start();
    EXPECT_EQ(framework.GetBundleId(), 0);
    EXPECT_EQ(framework.GetSymbolicName(), cppmicroservices::Constants::SYSTEM_BUNDLE_SYMBOLICNAME);
    EXPECT_EQ(framework.GetLocation(), cppmicroservices::Constants::SYSTEM_BUNDLE_LOCATION);
    EXPECT_TRUE(framework.GetBundleContext().GetBundle(0) == framework);
    EXPECT_THROW(framework.Uninstall(), std::runtime_error);
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds(0));
}

TEST(FrameworkLife, WaitingForItsStopTellsHowTheWaitEnded) {
    Framework framework = FrameworkFactory().NewFramework();
    framework.Start();
    EXPECT_EQ(framework.WaitForStop(std::chrono::milliseconds(1)).GetType(),
              FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);
    framework.Stop();
    EXPECT_EQ(framework.WaitForStop(std::chrono::milliseconds(0)).GetType(),
              FrameworkEvent::FRAMEWORK_STOPPED);
}

TEST(FrameworkLife, AnotherThreadCanWaitForItsStop) {
    Framework framework = FrameworkFactory().NewFramework();
    framework.Start();
    FrameworkEvent event;
    std::thread waiting([&] { event = framework.WaitForStop(std::chrono::milliseconds(0)); });
    framework.Stop();
    waiting.join();
    EXPECT_EQ(event.GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
}

TEST(FrameworkLife, ItCanBeStartedAgain) {
    Framework framework = FrameworkFactory().NewFramework();
    for (int round = 0; round < 2; ++round) {
        framework.Start();
        EXPECT_EQ(framework.GetState(), Bundle::STATE_ACTIVE);
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds(0));
        EXPECT_EQ(framework.GetState(), Bundle::STATE_RESOLVED);
    }
}

TEST(FrameworkLife, ItsConfigurationIsReadBackThroughTheContext) {
    Framework framework = FrameworkFactory().NewFramework(
        cppmicroservices::FrameworkConfiguration{{"colour", std::string("green")}});
    framework.Init();
    EXPECT_EQ(framework.GetBundleContext().GetProperty("colour").ToString(), "green");
    EXPECT_TRUE(framework.GetBundleContext().GetProperty("taste").Empty());
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds(0));
}

TEST(BundleHandle, ADefaultConstructedOneIsRefused) {
    Bundle bundle;
    EXPECT_FALSE(bundle);
    EXPECT_THROW(bundle.Start(), std::invalid_argument);
    EXPECT_THROW(bundle.GetState(), std::invalid_argument);
}

class BundleLife : public RuntimeTest {};

TEST_F(BundleLife, AnInstalledBundleHasWhatItsManifestSays) {
    const Bundle bundle = installGreeting();
    EXPECT_EQ(bundle.GetState() & (Bundle::STATE_INSTALLED | Bundle::STATE_RESOLVED), bundle.GetState());
    EXPECT_EQ(bundle.GetSymbolicName(), "test_greeting");
    EXPECT_EQ(bundle.GetLocation(), greetingBundle);
    EXPECT_GT(bundle.GetBundleId(), 0);
    const AnyMap& headers = bundle.GetHeaders();
    EXPECT_EQ(headers.at("bundle.version").ToString(), "1.2.3");
    EXPECT_FALSE(any_cast<bool>(headers.at("bundle.activator")));
    const AnyMap test = any_cast<AnyMap>(headers.at("test"));
    EXPECT_EQ(test.at("name").ToString(), "greeting");
    const auto list = any_cast<std::vector<Any>>(test.at("list"));
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(any_cast<int>(list[0]), 1);
    EXPECT_EQ(any_cast<std::string>(list[1]), "two");
    EXPECT_TRUE(any_cast<bool>(list[2]));
    EXPECT_EQ(any_cast<double>(list[3]), 2.5);
}

TEST_F(BundleLife, AnInstalledBundleIsAmongTheBundlesOfTheFramework) {
    const Bundle bundle = installGreeting();
    EXPECT_TRUE(context().GetBundle(bundle.GetBundleId()) == bundle);
    ASSERT_EQ(context().GetBundles(greetingBundle).size(), 1U);
    EXPECT_TRUE(context().GetBundles(greetingBundle).front() == bundle);
    EXPECT_FALSE(context().GetBundle(123456));
}

TEST_F(BundleLife, InstallingFromTheSamePlaceAgainGivesTheSameBundle) {
    const Bundle first = installGreeting();
    EXPECT_TRUE(installGreeting() == first);
}

TEST_F(BundleLife, InstallingAFileThatIsNotThereFails) {
    EXPECT_THROW(context().InstallBundles(KX_BINARY_DIR "/tests/bundles/nothing.so"), std::runtime_error);
    EXPECT_TRUE(context().GetBundles(KX_BINARY_DIR "/tests/bundles/nothing.so").empty());
}

TEST_F(BundleLife, StartAndStopChangeTheState) {
    Bundle bundle = installGreeting();
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    EXPECT_TRUE(bundle.GetBundleContext());
    EXPECT_TRUE(bundle.GetBundleContext().GetBundle() == bundle);
    bundle.Start();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_ACTIVE);
    bundle.Stop();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_FALSE(bundle.GetBundleContext());
    bundle.Stop();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
}

TEST_F(BundleLife, TheContextOfAStoppedBundleIsRefused) {
    Bundle bundle = startGreeting();
    BundleContext own = bundle.GetBundleContext();
    bundle.Stop();
    EXPECT_FALSE(own);
    EXPECT_THROW(own.GetServiceReference<bundle::Greeting>(), cppmicroservices::IllegalStateException);
}

TEST_F(BundleLife, AnUninstalledBundleIsGoneFromTheFrameworkAndCannotBeStarted) {
    Bundle bundle = startGreeting();
    const long id = bundle.GetBundleId();
    bundle.Uninstall();
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_UNINSTALLED);
    EXPECT_FALSE(context().GetBundle(id));
    EXPECT_TRUE(context().GetBundles(greetingBundle).empty());
    EXPECT_EQ(findOne("(language=en)"), nullptr);
    EXPECT_THROW(bundle.Start(), std::logic_error);
    EXPECT_THROW(bundle.Stop(), std::logic_error);
    EXPECT_THROW(bundle.Uninstall(), std::logic_error);
    EXPECT_EQ(bundle.GetSymbolicName(), "test_greeting");
}

TEST_F(BundleLife, AnUninstalledBundleCanBeInstalledAgain) {
    installGreeting().Uninstall();
    Bundle again = startGreeting();
    EXPECT_EQ(findOne("(language=en)")->greet("you"), "Hello, you");
}

TEST_F(BundleLife, StoppingTheFrameworkStopsItsBundles) {
    Bundle bundle = startGreeting();
    stopFramework();
    EXPECT_NE(bundle.GetState(), Bundle::STATE_ACTIVE);
    EXPECT_THROW(bundle.Start(), std::runtime_error);
}

} // namespace
} // namespace runtime
