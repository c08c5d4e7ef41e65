#include <runtime/BundleFile.h>
#include <runtime/RuntimeTest.h>

#include <cppmicroservices/Any.h>
#include <cppmicroservices/Constants.h>
#include <cppmicroservices/LDAPFilter.h>

#include <gmock/gmock.h>

#include <dlfcn.h>

#include <atomic>
#include <sstream>
#include <thread>

namespace runtime {
namespace {

using bundle::Farewell;
using bundle::Greeting;
using cppmicroservices::Bundle;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkEvent;
using cppmicroservices::FrameworkFactory;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

bool isLoaded(const std::string& library) {
    void* const handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle)
        ::dlclose(handle);
    return handle != nullptr;
}

class EmbeddedRuntime : public RuntimeTest {
protected:
    // Only uninstalling unloads the library, and the next test must find it unloaded.
    ~EmbeddedRuntime() override {
        for (Bundle& bundle : context().GetBundles())
            if (bundle.GetBundleId() != 0)
                bundle.Uninstall();
    }

    /// A copy that a test may leave loaded.
    std::string copyOfGreeting() const { return m_folder.file("libcopy.so", readFile(greetingBundle)); }

    const BundleFolder m_folder;
};

TEST_F(EmbeddedRuntime, NeedsNoBundleForDeclarativeServices) {
    EXPECT_STREQ(microservices::componentRuntimeName(), "embedded");
    EXPECT_STREQ(microservices::declarativeServicesBundle(), "");
}

TEST_F(EmbeddedRuntime, LoadsTheLibraryWithTheFirstObjectAndUnloadsItWithTheUninstallation) {
    Bundle bundle = startGreeting();
    const auto reference = context().GetServiceReference<Farewell>();
    EXPECT_FALSE(isLoaded(greetingBundle));
    context().GetService(reference);
    EXPECT_TRUE(isLoaded(greetingBundle));
    bundle.Stop();
    EXPECT_TRUE(isLoaded(greetingBundle));
    bundle.Uninstall();
    EXPECT_FALSE(isLoaded(greetingBundle));
}

TEST_F(EmbeddedRuntime, UnloadsTheLibraryOnlyWhenNoObjectOfItIsHeld) {
    const std::shared_ptr<Diary> diary = keepDiary();
    Bundle bundle = startGreeting();
    std::shared_ptr<Farewell> farewell = findOne<Farewell>("");
    bundle.Uninstall();
    EXPECT_TRUE(isLoaded(greetingBundle));
    EXPECT_EQ(farewell->takeLeave(), "Goodbye");
    farewell.reset();
    EXPECT_FALSE(isLoaded(greetingBundle));
    EXPECT_EQ(diary->events().back(), "destroyed");
}

TEST_F(EmbeddedRuntime, AnInterfaceTakenOutOfTheMapOfAllKeepsTheLibraryToo) {
    Bundle bundle = startGreeting();
    auto map =
        context().GetService(cppmicroservices::ServiceReferenceU(context().GetServiceReference<Farewell>()));
    std::shared_ptr<Greeting> greeting = cppmicroservices::ExtractInterface<Greeting>(map);
    map.reset();
    bundle.Uninstall();
    EXPECT_EQ(greeting->greet("you"), "Hello, you");
    greeting.reset();
    EXPECT_FALSE(isLoaded(greetingBundle));
}

TEST_F(EmbeddedRuntime, UnloadsALibraryThatHasNoObjectToGive) {
    const std::string path = m_folder.bundle("libhalf.so", readFile(greetingBundle),
                                             {{"half/manifest.json", R"({"bundle.symbolic_name": "half",
        "scr": {"version": 1, "components": [{"implementation-class": "a::b", "service": {"interfaces": ["i"]}}]}})"}});
    Bundle bundle = context().InstallBundles(path).at(0);
    bundle.Start();
    EXPECT_EQ(context().GetService(context().GetServiceReferences("i").at(0)), nullptr);
    EXPECT_TRUE(isLoaded(path));
    bundle.Uninstall();
    EXPECT_FALSE(isLoaded(path));
}

TEST_F(EmbeddedRuntime, ThreadsThatAskForDifferentComponentsFirstLoadTheLibraryOnce) {
    for (int round = 0; round < 50; ++round) {
        Bundle bundle = startGreeting();
        std::vector<std::thread> threads;
        for (const char* filter : {"(language=en)", "(language=self)"})
            threads.emplace_back([&, filter] { EXPECT_NE(findOne(filter), nullptr); });
        for (std::thread& thread : threads)
            thread.join();
        bundle.Uninstall();
        ASSERT_FALSE(isLoaded(greetingBundle));
    }
}

TEST_F(EmbeddedRuntime, LeavesTheLibraryLoadedWhenTheFrameworkStops) {
    const std::string library = copyOfGreeting();
    context().InstallBundles(library).at(0).Start();
    const std::shared_ptr<Farewell> farewell = findOne<Farewell>("");
    stopFramework();
    EXPECT_TRUE(isLoaded(library));
    EXPECT_EQ(farewell->takeLeave(), "Goodbye");
    m_framework.Start();
}

TEST_F(EmbeddedRuntime, AFrameworkThatIsDroppedStopsItselfAndLeavesTheLibraryLoaded) {
    const auto diary = std::make_shared<Diary>();
    const std::string library = copyOfGreeting();
    {
        Framework dropped = FrameworkFactory().NewFramework();
        dropped.Start();
        dropped.GetBundleContext().RegisterService<bundle::Witness>(diary);
        dropped.GetBundleContext().InstallBundles(library).at(0).Start();
        const auto reference = dropped.GetBundleContext().GetServiceReference<Farewell>();
        EXPECT_NE(dropped.GetBundleContext().GetService(reference), nullptr);
    }
    EXPECT_EQ(diary->events().back(), "destroyed");
    EXPECT_TRUE(isLoaded(library));
}

TEST_F(EmbeddedRuntime, GivesTheLibraryAContextWithEachStart) {
    const std::shared_ptr<Diary> diary = keepDiary();
    Bundle bundle = startGreeting();
    findOne<Farewell>("");
    bundle.Stop();
    bundle.Start();
    findOne<Farewell>("");
    EXPECT_THAT(diary->events(), ElementsAre("made", "activated for en in test_greeting", "deactivated",
                                             "destroyed", "made", "activated for en in test_greeting"));
}

TEST_F(EmbeddedRuntime, TakesTheContextBackFromABundleThatIsStopped) {
    Bundle bundle = startGreeting();
    const std::shared_ptr<Greeting> greeting = findOne("(language=en)");
    EXPECT_EQ(greeting->ownBundle(), "test_greeting");
    bundle.Stop();
    EXPECT_EQ(greeting->ownBundle(), "");
    bundle.Start();
    EXPECT_EQ(greeting->ownBundle(), "test_greeting");
}

TEST_F(EmbeddedRuntime, AComponentThatAsksForItselfWhileItIsMadeGetsNothing) {
    startGreeting();
    const std::shared_ptr<Greeting> narcissist = findOne("(language=self)");
    ASSERT_NE(narcissist, nullptr);
    EXPECT_EQ(narcissist->greet("you"), "I");
}

TEST_F(EmbeddedRuntime, AComponentThatStopsItsBundleWhileItIsMadeIsGivenUp) {
    Bundle bundle = startGreeting();
    EXPECT_EQ(findOne("(language=silence)"), nullptr);
    EXPECT_EQ(bundle.GetState(), Bundle::STATE_RESOLVED);
    bundle.Uninstall();
    EXPECT_FALSE(isLoaded(greetingBundle));
}

TEST_F(EmbeddedRuntime, FrameworksOfOneProcessKnowNothingOfEachOther) {
    startGreeting();
    Framework other = FrameworkFactory().NewFramework();
    other.Start();
    EXPECT_EQ(other.GetBundleContext().GetBundles().size(), 1U);
    EXPECT_FALSE(other.GetBundleContext().GetServiceReference<Farewell>());
    EXPECT_FALSE(other == m_framework);
}

TEST_F(EmbeddedRuntime, WaitingForTheStopOfAFrameworkThatNeverRanEndsAtOnce) {
    Framework idle = FrameworkFactory().NewFramework();
    EXPECT_EQ(idle.WaitForStop(std::chrono::milliseconds(0)).GetType(), FrameworkEvent::FRAMEWORK_ERROR);
}

TEST_F(EmbeddedRuntime, ABundleOfAnEarlierRunOfTheFrameworkStaysOut) {
    Bundle old = installGreeting();
    stopFramework();
    m_framework.Start();
    EXPECT_TRUE(context().GetBundles(greetingBundle).empty());
    EXPECT_THROW(old.Start(), std::runtime_error);
    Bundle again = startGreeting();
    old.Uninstall();
    EXPECT_TRUE(context().GetBundle(again.GetBundleId()) == again);
}

TEST_F(EmbeddedRuntime, SeveralBundlesOfOneFileAreInstalledTogether) {
    const std::string path = m_folder.bundle("libtwo.so", readFile(greetingBundle),
                                             {{"two/manifest.json", R"({"bundle.symbolic_name": "two"})"},
                                              {"one/manifest.json", R"({"bundle.symbolic_name": "one"})"}});
    std::vector<Bundle> bundles = context().InstallBundles(path);
    ASSERT_EQ(bundles.size(), 2U);
    EXPECT_EQ(bundles[0].GetSymbolicName(), "one");
    EXPECT_EQ(bundles[1].GetSymbolicName(), "two");
    EXPECT_EQ(context().GetBundles(path).size(), 2U);
    bundles[0].Start();
    EXPECT_EQ(bundles[0].GetState(), Bundle::STATE_ACTIVE);
    EXPECT_EQ(bundles[1].GetState(), Bundle::STATE_INSTALLED);
    EXPECT_TRUE(bundles[0].GetRegisteredServices().empty());
}

TEST_F(EmbeddedRuntime, TellsTheLoggerWhatHappensIfItIsAskedTo) {
    const std::string library = copyOfGreeting();
    std::ostringstream log;
    Framework framework =
        FrameworkFactory().NewFramework({{cppmicroservices::Constants::FRAMEWORK_LOG, true}}, &log);
    framework.Start();
    cppmicroservices::BundleContext frameworkContext = framework.GetBundleContext();
    Bundle bundle = frameworkContext.InstallBundles(library).at(0);
    bundle.Start();
    frameworkContext.GetService(frameworkContext.GetServiceReferences<Greeting>("(language=none)").front());
    framework.Stop();
    EXPECT_THAT(log.str(),
                AllOf(HasSubstr("installed " + library), HasSubstr("started " + library),
                      HasSubstr("cannot make component the sulker of " + library + ": not in the mood"),
                      HasSubstr("stopped " + library)));
}

TEST_F(EmbeddedRuntime, ADiaryOfOneThreadedLifeIsInOrder) {
    const std::shared_ptr<Diary> diary = keepDiary();
    Bundle bundle = startGreeting();
    findOne<Farewell>("");
    bundle.Uninstall();
    EXPECT_THAT(diary->events(),
                ElementsAre("made", "activated for en in test_greeting", "deactivated", "destroyed"));
}

TEST_F(EmbeddedRuntime, ThreadsThatStartStopAndUseABundleDoNotDisturbEachOther) {
    constexpr int rounds = 200;
    const std::shared_ptr<Diary> diary = keepDiary();
    Bundle bundle = installGreeting();
    std::atomic<bool> done = false;
    std::atomic<int> greeted = 0;
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i)
        users.emplace_back([&] {
            while (!done) {
                try {
                    const std::shared_ptr<Farewell> farewell = findOne<Farewell>("");
                    if (farewell && farewell->takeLeave() == "Goodbye")
                        ++greeted;
                } catch (const std::invalid_argument&) {
                    // The service was unregistered between finding it and asking for its object.
                }
            }
        });
    std::thread other([&] {
        for (int i = 0; i < rounds; ++i) {
            Bundle(bundle).Start();
            Bundle(bundle).Stop();
        }
    });
    for (int i = 0; i < rounds || greeted == 0; ++i) {
        bundle.Start();
        std::this_thread::yield();
        bundle.Stop();
    }
    other.join();
    done = true;
    for (std::thread& user : users)
        user.join();
    const std::vector<std::string> events = diary->events();
    EXPECT_EQ(std::count(events.begin(), events.end(), "made"),
              std::count(events.begin(), events.end(), "destroyed"));
    EXPECT_GT(greeted, 0);
}

TEST_F(EmbeddedRuntime, ThreadsThatInstallTheSameFileGetTheSameBundle) {
    std::vector<Bundle> installed(6);
    std::vector<std::thread> threads;
    for (Bundle& result : installed)
        threads.emplace_back([&] { result = installGreeting(); });
    for (std::thread& thread : threads)
        thread.join();
    for (const Bundle& result : installed)
        EXPECT_TRUE(result == installed.front());
}

TEST_F(EmbeddedRuntime, AnyTellsBothTypesOfACastThatFails) {
    const cppmicroservices::Any value = 5;
    try {
        static_cast<void>(cppmicroservices::any_cast<std::string>(value));
        FAIL() << "it was cast";
    } catch (const cppmicroservices::BadAnyCastException& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("int"), HasSubstr("string")));
    }
}

TEST_F(EmbeddedRuntime, AFilterThatIsNestedWithoutEndIsRefused) {
    std::string filter;
    for (int i = 0; i < 100'000; ++i)
        filter += "(!";
    EXPECT_THROW(cppmicroservices::LDAPFilter{filter}, std::invalid_argument);
}

TEST_F(EmbeddedRuntime, AServiceWhoseRankingIsNoNumberIsRefused) {
    EXPECT_THROW(
        context().RegisterService<bundle::Witness>(
            std::make_shared<Diary>(), {{cppmicroservices::Constants::SERVICE_RANKING, std::string("best")}}),
        std::invalid_argument);
}

TEST_F(EmbeddedRuntime, AServiceOfAFrameworkThatIsGoneIsUnregisteredAlready) {
    Framework dropped = FrameworkFactory().NewFramework();
    dropped.Start();
    auto registration =
        dropped.GetBundleContext().RegisterService<bundle::Witness>(std::make_shared<Diary>());
    EXPECT_TRUE(registration.GetReference());
    dropped = m_framework;
    EXPECT_THROW(registration.Unregister(), std::logic_error);
}

/// Withdraws a service when the component of the greeting bundle is deactivated.
class Withdrawer : public bundle::Witness {
public:
    void saw(const std::string& event) override {
        if (event != "deactivated")
            return;
        m_wasRegistered = static_cast<bool>(m_reference);
        m_registration.Unregister();
        m_isRegistered = static_cast<bool>(m_reference);
    }

    void withdraws(const cppmicroservices::ServiceRegistration<bundle::Witness>& registration) {
        m_registration = registration;
        m_reference = registration.GetReference();
    }

    bool wasRegistered() const { return m_wasRegistered; }
    bool isRegistered() const { return m_isRegistered; }

private:
    cppmicroservices::ServiceRegistration<bundle::Witness> m_registration;
    cppmicroservices::ServiceReference<bundle::Witness> m_reference;
    bool m_wasRegistered = false;
    bool m_isRegistered = true;
};

TEST_F(EmbeddedRuntime, AServiceCanBeWithdrawnWhileItsFrameworkIsGoing) {
    const auto withdrawer = std::make_shared<Withdrawer>();
    {
        Framework dropped = FrameworkFactory().NewFramework();
        dropped.Start();
        cppmicroservices::BundleContext droppedContext = dropped.GetBundleContext();
        withdrawer->withdraws(droppedContext.RegisterService<bundle::Witness>(withdrawer));
        droppedContext.InstallBundles(copyOfGreeting()).at(0).Start();
        EXPECT_NE(droppedContext.GetService(droppedContext.GetServiceReference<Farewell>()), nullptr);
    }
    EXPECT_TRUE(withdrawer->wasRegistered());
    EXPECT_FALSE(withdrawer->isRegistered());
    EXPECT_EQ(withdrawer.use_count(), 1);
}

TEST_F(EmbeddedRuntime, AListOfTextsHasAText) {
    EXPECT_EQ(cppmicroservices::Any(std::vector<std::string>{"zip", "jar"}).ToString(), "[zip, jar]");
}

TEST_F(EmbeddedRuntime, AnEmptyAnyHasNoText) {
    const cppmicroservices::Any empty;
    EXPECT_THROW(empty.ToString(), std::logic_error);
    EXPECT_EQ(empty.ToStringNoExcept(), "");
}

} // namespace
} // namespace runtime
