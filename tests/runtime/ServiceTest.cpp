#include <runtime/RuntimeTest.h>

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/servicecomponent/ComponentConstants.hpp>

#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>

namespace runtime {
namespace {

using bundle::Farewell;
using bundle::Greeting;
using cppmicroservices::any_cast;
using cppmicroservices::Bundle;
using cppmicroservices::ServiceReference;
using cppmicroservices::ServiceReferenceU;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
namespace Constants = cppmicroservices::Constants;

class ComponentService : public RuntimeTest {};

TEST_F(ComponentService, IsFoundByItsInterfaceAndAFilterOnceTheBundleIsStarted) {
    Bundle bundle = installGreeting();
    EXPECT_EQ(findOne("(language=en)"), nullptr);
    bundle.Start();
    const std::shared_ptr<Greeting> greeting = findOne("(language=en)");
    ASSERT_NE(greeting, nullptr);
    EXPECT_EQ(greeting->greet("world"), "Hello, world");
    EXPECT_EQ(findOne("(language=fr)"), nullptr);
}

TEST_F(ComponentService, IsFoundByEachOfItsInterfacesAsOneObject) {
    startGreeting();
    const std::shared_ptr<Greeting> greeting = findOne("(language=en)");
    const std::shared_ptr<Farewell> farewell = findOne<Farewell>("");
    ASSERT_NE(farewell, nullptr);
    EXPECT_EQ(farewell->takeLeave(), "Goodbye");
    EXPECT_EQ(dynamic_cast<void*>(greeting.get()), dynamic_cast<void*>(farewell.get()));
}

TEST_F(ComponentService, HasThePropertiesOfTheManifestAndItsOwn) {
    Bundle bundle = startGreeting();
    const ServiceReference<Farewell> reference = context().GetServiceReference<Farewell>();
    ASSERT_TRUE(reference);
    EXPECT_TRUE(reference.GetBundle() == bundle);
    EXPECT_EQ(any_cast<std::string>(reference.GetProperty("language")), "en");
    EXPECT_EQ(any_cast<int>(reference.GetProperty("politeness")), 3);
    EXPECT_TRUE(any_cast<bool>(reference.GetProperty("formal")));
    EXPECT_EQ(reference.GetProperty("LANGUAGE").ToString(), "en");
    EXPECT_TRUE(reference.GetProperty("nothing").Empty());
    EXPECT_THAT(any_cast<std::vector<std::string>>(reference.GetProperty(Constants::OBJECTCLASS)),
                IsSupersetOf({"runtime::bundle::Greeting", "runtime::bundle::Farewell"}));
    EXPECT_EQ(reference.GetProperty(Constants::SERVICE_SCOPE).ToString(), Constants::SCOPE_SINGLETON);
    namespace component = cppmicroservices::service::component::ComponentConstants;
    EXPECT_EQ(reference.GetProperty(component::COMPONENT_NAME).ToString(), "runtime::bundle::Greeter");
    EXPECT_EQ(context().GetServiceReferences<Greeting>("(component.name=the sulker)").size(), 1U);
}

TEST_F(ComponentService, IsFoundThroughFiltersOnAllItsProperties) {
    startGreeting();
    EXPECT_NE(findOne("(&(language=en)(politeness>=3)(formal=true))"), nullptr);
    EXPECT_EQ(findOne("(&(language=en)(politeness>=4))"), nullptr);
    EXPECT_NE(findOne("(&(language=e*)(!(formal=false)))"), nullptr);
    EXPECT_EQ(context().GetServiceReferences("", "(objectclass=runtime::bundle::Farewell)").size(), 1U);
}

TEST_F(ComponentService, AMalformedFilterIsRefused) {
    startGreeting();
    EXPECT_THROW(context().GetServiceReferences<Greeting>("(language=en"), std::invalid_argument);
}

TEST_F(ComponentService, ItsObjectIsMadeWhenItIsFirstAskedForAndIsOneForAll) {
    const std::shared_ptr<Diary> diary = keepDiary();
    startGreeting();
    const ServiceReference<Farewell> reference = context().GetServiceReference<Farewell>();
    EXPECT_THAT(diary->events(), IsEmpty());
    const std::shared_ptr<Farewell> first = context().GetService(reference);
    EXPECT_THAT(diary->events(), ElementsAre("made", "activated for en in test_greeting"));
    EXPECT_EQ(context().GetService(reference), first);
    EXPECT_EQ(diary->events().size(), 2U);
}

TEST_F(ComponentService, ItsObjectIsKeptWhenNoUserIsLeft) {
    const std::shared_ptr<Diary> diary = keepDiary();
    startGreeting();
    findOne<Farewell>("");
    findOne<Farewell>("");
    EXPECT_THAT(diary->events(), ElementsAre("made", "activated for en in test_greeting"));
}

TEST_F(ComponentService, ItsObjectIsDestroyedWhenTheBundleStops) {
    const std::shared_ptr<Diary> diary = keepDiary();
    Bundle bundle = startGreeting();
    findOne<Farewell>("");
    bundle.Stop();
    EXPECT_THAT(diary->events(),
                ElementsAre("made", "activated for en in test_greeting", "deactivated", "destroyed"));
}

TEST_F(ComponentService, AnObjectThatIsNeverAskedForIsNeverMade) {
    const std::shared_ptr<Diary> diary = keepDiary();
    startGreeting().Stop();
    EXPECT_THAT(diary->events(), IsEmpty());
}

TEST_F(ComponentService, AnObjectThatIsHeldOutlivesTheStopOfItsBundle) {
    const std::shared_ptr<Diary> diary = keepDiary();
    Bundle bundle = startGreeting();
    std::shared_ptr<Farewell> farewell = findOne<Farewell>("");
    bundle.Stop();
    EXPECT_THAT(diary->events(), ElementsAre("made", "activated for en in test_greeting", "deactivated"));
    EXPECT_EQ(farewell->takeLeave(), "Goodbye");
    farewell.reset();
    EXPECT_THAT(diary->events(),
                ElementsAre("made", "activated for en in test_greeting", "deactivated", "destroyed"));
}

TEST_F(ComponentService, ItsReferenceIsInvalidAfterTheStopOfItsBundle) {
    Bundle bundle = startGreeting();
    const ServiceReference<Farewell> reference = context().GetServiceReference<Farewell>();
    bundle.Stop();
    EXPECT_FALSE(reference);
    EXPECT_FALSE(context().GetServiceReference<Farewell>());
    EXPECT_THROW(context().GetService(reference), std::invalid_argument);
    EXPECT_EQ(reference.GetProperty("language").ToString(), "en");
}

TEST_F(ComponentService, EachStartOfTheBundleMakesANewObject) {
    Bundle bundle = startGreeting();
    const std::shared_ptr<Greeting> first = findOne("(language=ia)");
    ASSERT_NE(first, nullptr);
    bundle.Stop();
    bundle.Start();
    const std::shared_ptr<Greeting> second = findOne("(language=ia)");
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first);
    EXPECT_EQ(second->greet("you"), "Salute, you");
}

TEST_F(ComponentService, ThreadsThatAskFirstAtTheSameTimeGetOneObject) {
    constexpr int threadCount = 8;
    const std::shared_ptr<Diary> diary = keepDiary();
    startGreeting();
    const ServiceReference<Farewell> reference = context().GetServiceReference<Farewell>();
    std::vector<std::shared_ptr<Farewell>> objects(threadCount);
    std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back([&, i] {
            for (++ready; ready < threadCount;)
                std::this_thread::yield();
            objects[static_cast<std::size_t>(i)] = context().GetService(reference);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_NE(objects.front(), nullptr);
    EXPECT_EQ(std::set(objects.begin(), objects.end()).size(), 1U);
    EXPECT_THAT(diary->events(), ElementsAre("made", "activated for en in test_greeting"));
}

TEST_F(ComponentService, IsNullIfItsObjectCannotBeMade) {
    startGreeting();
    const auto references = context().GetServiceReferences<Greeting>("(language=none)");
    ASSERT_EQ(references.size(), 1U);
    EXPECT_EQ(context().GetService(references.front()), nullptr);
    EXPECT_EQ(context().GetService(references.front()), nullptr);
}

TEST_F(ComponentService, KnowsItsBundleThroughTheContext) {
    startGreeting();
    EXPECT_EQ(findOne("(language=en)")->ownBundle(), "test_greeting");
}

class HostService : public RuntimeTest {
protected:
    struct Quiet : Greeting {
        std::string greet(const std::string&) override { return "…"; }
        std::string ownBundle() override { return std::string(); }
    };
};

TEST_F(HostService, IsFoundUntilItIsUnregistered) {
    const auto object = std::make_shared<Quiet>();
    auto registration = context().RegisterService<Greeting>(object, {{"language", std::string("none")}});
    EXPECT_TRUE(registration.GetReference());
    EXPECT_EQ(findOne("(language=none)"), object);
    registration.Unregister();
    EXPECT_EQ(findOne("(language=none)"), nullptr);
    EXPECT_THROW(registration.Unregister(), std::logic_error);
}

TEST_F(HostService, IsPreferredByRankingThenByAge) {
    const auto first = std::make_shared<Quiet>();
    const auto second = std::make_shared<Quiet>();
    const auto best = std::make_shared<Quiet>();
    context().RegisterService<Greeting>(first);
    auto registration = context().RegisterService<Greeting>(second);
    context().RegisterService<Greeting>(best, {{Constants::SERVICE_RANKING, 5}});
    EXPECT_EQ(context().GetService(context().GetServiceReference<Greeting>()), best);
    const auto all = context().GetServiceReferences<Greeting>();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(context().GetService(all[1]), first);
    EXPECT_TRUE(all[1] < all[0]);
    EXPECT_TRUE(all[2] < all[1]);
    registration.SetProperties({{Constants::SERVICE_RANKING, 6}});
    EXPECT_EQ(context().GetService(context().GetServiceReference<Greeting>()), second);
}

TEST_F(HostService, ItsPropertiesCanBeReplacedExceptItsOwn) {
    auto registration = context().RegisterService<Greeting>(std::make_shared<Quiet>(), {{"a", 1}, {"b", 2}});
    const auto reference = registration.GetReference();
    const long id = any_cast<long>(reference.GetProperty(Constants::SERVICE_ID));
    registration.SetProperties({{"b", 3}, {Constants::SERVICE_ID, 77L}});
    EXPECT_TRUE(reference.GetProperty("a").Empty());
    EXPECT_EQ(any_cast<int>(reference.GetProperty("b")), 3);
    EXPECT_EQ(any_cast<long>(reference.GetProperty(Constants::SERVICE_ID)), id);
}

TEST_F(HostService, WithoutAnObjectIsRefused) {
    EXPECT_THROW(context().RegisterService<Greeting>(std::shared_ptr<Quiet>()), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(context().RegisterService(cppmicroservices::InterfaceMapConstPtr())),
                 std::invalid_argument);
}

TEST_F(HostService, WithTwoKeysThatDifferInCaseOnlyIsRefused) {
    EXPECT_THROW(context().RegisterService<Greeting>(std::make_shared<Quiet>(), {{"a", 1}, {"A", 2}}),
                 std::runtime_error);
}

TEST_F(HostService, AReferenceOfAnotherInterfaceIsInvalid) {
    const auto registration = context().RegisterService<Greeting>(std::make_shared<Quiet>());
    const ServiceReferenceU any = registration.GetReference();
    EXPECT_TRUE(ServiceReference<Greeting>(any));
    EXPECT_FALSE(ServiceReference<Farewell>(any));
    EXPECT_THROW(context().GetService(ServiceReference<Greeting>()), std::invalid_argument);
}

TEST_F(HostService, AllInterfacesOfAnObjectAreHandedOutTogether) {
    const auto object = std::make_shared<Quiet>();
    const auto registration = context().RegisterService<Greeting>(object);
    const auto map = context().GetService(ServiceReferenceU(registration.GetReference()));
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(cppmicroservices::ExtractInterface<Greeting>(map), object);
    EXPECT_EQ(cppmicroservices::ExtractInterface<Farewell>(map), nullptr);
}

TEST_F(HostService, IsListedAmongTheServicesOfItsBundle) {
    context().RegisterService<Greeting>(std::make_shared<Quiet>(), {{"mine", true}});
    bool found = false;
    for (const ServiceReferenceU& reference : context().GetBundle().GetRegisteredServices())
        found = found || !reference.GetProperty("mine").Empty();
    EXPECT_TRUE(found);
}

} // namespace
} // namespace runtime
