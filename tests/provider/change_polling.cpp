#include <foundation/storage/provider/Exception.h>
#include <support/FaultInjectingProvider.h>
#include <support/InMemoryProvider.h>
#include <support/ListenerLog.h>
#include <support/contents.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <list>
#include <thread>

namespace kx::test {

namespace {

using namespace foundation::storage::provider;
using namespace std::chrono_literals;
using Events = std::vector<ChangeEvent>;

class ChangePolling : public testing::Test {
protected:
    ChangePolling() { memory.createFolder(folder); }

    InMemoryProvider memory;
    const StorageIRI folder = memory.at(u"/f");
    const StorageIRI file = folder.child(u"a");
    ListenerLog log;
};

TEST_F(ChangePolling, OneLookTellsAllChangesInTheOrderOfTheNames) {
    for (const auto* name : {u"changed", u"gone", u"same", u"turned"}) {
        memory.createFile(folder.child(name));
    }
    memory.publishFolderEventsFor(folder, log.listener());
    memory.createFile(folder.child(u"born"));
    writeFile(memory, folder.child(u"changed"), "x");
    memory.removeFile(folder.child(u"gone"));
    memory.removeFile(folder.child(u"turned"));
    memory.createFolder(folder.child(u"turned"));
    memory.startChangePollingMechanism(1ms);

    EXPECT_EQ(log.waitFor(5), (Events{{ChangeKind::Created, folder.child(u"born")},
                                      {ChangeKind::Modified, folder.child(u"changed")},
                                      {ChangeKind::Removed, folder.child(u"gone")},
                                      {ChangeKind::Removed, folder.child(u"turned")},
                                      {ChangeKind::Created, folder.child(u"turned")}}));
}

TEST_F(ChangePolling, AChangeOfTheTimeAloneIsAModification) {
    memory.createFile(file);
    memory.publishFileEventsFor(file, log.listener());
    memory.setTime(file, {boost::gregorian::date(2001, 2, 3), boost::posix_time::hours(1)});
    memory.startChangePollingMechanism(1ms);
    EXPECT_EQ(log.waitFor(1), (Events{{ChangeKind::Modified, file}}));
}

TEST_F(ChangePolling, WhatHappensBelowASubfolderIsNotTold) {
    memory.createFolderRecursive(folder.child(u"sub/deep"));
    memory.publishFolderEventsFor(folder, log.listener());
    memory.createFile(folder.child(u"sub/deep/file"));
    memory.createFile(folder.child(u"last"));
    memory.startChangePollingMechanism(1ms);
    EXPECT_EQ(log.waitFor(1), (Events{{ChangeKind::Created, folder.child(u"last")}}));
}

TEST_F(ChangePolling, ALocationIsOneHoweverItIsSpelled) {
    ListenerLog replaced;
    memory.publishFileEventsFor(memory.at(u"/f//a"), replaced.listener());
    memory.publishFileEventsFor(memory.at(u"/f/a/"), log.listener());
    memory.createFile(file);
    memory.startChangePollingMechanism(1ms);
    EXPECT_EQ(log.waitFor(1), (Events{{ChangeKind::Created, file}}));
    EXPECT_TRUE(replaced.events().empty());

    memory.stopPublishingEventsFor(memory.at(u"//f/a"));
    memory.publishFolderEventsFor(memory.at(u"/"), replaced.listener());
    memory.removeFile(file);
    replaced.waitFor(1);
    EXPECT_EQ(log.events().size(), 1U);
}

TEST_F(ChangePolling, ARunningMechanismTakesOverTheNewInterval) {
    memory.publishFileEventsFor(file, log.listener());
    memory.startChangePollingMechanism(1h);
    std::this_thread::sleep_for(20ms);
    memory.createFile(file);
    memory.startChangePollingMechanism(1ms);
    EXPECT_EQ(log.waitFor(1).size(), 1U);
}

TEST_F(ChangePolling, ALookThatFailsIsMadeAgainTheNextTime) {
    const auto target = std::make_shared<InMemoryProvider>();
    const auto plan = std::make_shared<FaultPlan>();
    target->createFolder(folder);
    FaultInjectingProvider failing(target, plan);
    failing.publishFolderEventsFor(folder, log.listener());
    target->createFile(file);
    plan->failCall(1, {ProviderOperation::ListAll}, FaultPlan::Afterwards::FailsOn);
    failing.startChangePollingMechanism(1ms);
    while (plan->failures() < 3) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_TRUE(log.events().empty());

    plan->failCall(1, {ProviderOperation::GetFileAttributes});
    EXPECT_EQ(log.waitFor(1), (Events{{ChangeKind::Created, file}}));
    EXPECT_EQ(plan->failures(), 1U);
}

TEST_F(ChangePolling, TheFirstLookFailsLoudly) {
    const auto plan = std::make_shared<FaultPlan>();
    FaultInjectingProvider failing(std::make_shared<InMemoryProvider>(), plan);
    plan->failCall(1, {ProviderOperation::ListAll}, FaultPlan::Afterwards::Works, ErrorCode::Busy);
    try {
        failing.publishFolderEventsFor(memory.at(u"/"), log.listener());
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Exception& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::Busy);
    }
}

TEST_F(ChangePolling, AListenerThatThrowsHarmsNoOther) {
    std::atomic<int> calls = 0;
    memory.publishFolderEventsFor(folder, [&calls](const ChangeEvent&) {
        ++calls;
        throw std::runtime_error("a listener must not");
    });
    memory.publishFileEventsFor(file, log.listener());
    memory.createFile(file);
    memory.createFile(folder.child(u"b"));
    memory.startChangePollingMechanism(1ms);
    EXPECT_EQ(log.waitFor(1).size(), 1U);
    while (calls < 2) {
        std::this_thread::sleep_for(1ms);
    }
}

TEST_F(ChangePolling, TakingAListenerAwayWaitsForItsRunningCall) {
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<bool> left = false;
    memory.publishFileEventsFor(file, [&](const ChangeEvent&) {
        entered.set_value();
        release.get_future().wait();
        left = true;
    });
    memory.createFile(file);
    memory.startChangePollingMechanism(1ms);
    entered.get_future().wait();
    auto leftBeforeReturn = std::async(std::launch::async, [&] {
        memory.stopPublishingEventsFor(file);
        return left.load();
    });
    EXPECT_EQ(leftBeforeReturn.wait_for(30ms), std::future_status::timeout);
    release.set_value();
    EXPECT_TRUE(leftBeforeReturn.get());
}

TEST_F(ChangePolling, StoppingWaitsForTheRunningCall) {
    std::promise<void> entered;
    std::atomic<bool> left = false;
    memory.publishFileEventsFor(file, [&](const ChangeEvent&) {
        entered.set_value();
        std::this_thread::sleep_for(30ms);
        left = true;
    });
    memory.createFile(file);
    memory.startChangePollingMechanism(1ms);
    entered.get_future().wait();
    memory.stopChangePollingMechanism();
    EXPECT_TRUE(left);
}

TEST_F(ChangePolling, EventsThatAStopHeldBackAreToldAfterTheNextStart) {
    std::promise<void> entered;
    std::promise<void> release;
    auto released = release.get_future().share();
    std::atomic<int> calls = 0;
    memory.publishFolderEventsFor(folder, [&, released](const ChangeEvent&) {
        if (++calls == 1) {
            entered.set_value();
            released.wait();
        }
    });
    memory.createFile(folder.child(u"1"));
    memory.createFile(folder.child(u"2"));
    memory.startChangePollingMechanism(1ms);
    entered.get_future().wait();
    auto stopped = std::async(std::launch::async, [&] { memory.stopChangePollingMechanism(); });
    stopped.wait_for(20ms);
    release.set_value();
    stopped.get();
    EXPECT_EQ(calls, 1);
    memory.startChangePollingMechanism(1ms);
    while (calls < 2) {
        std::this_thread::sleep_for(1ms);
    }
}

TEST_F(ChangePolling, AListenerMayTakeItselfAwayAndWatchOthers) {
    std::atomic<int> calls = 0;
    memory.publishFolderEventsFor(folder, [&](const ChangeEvent&) {
        ++calls;
        memory.stopPublishingEventsFor(folder);
        memory.publishFileEventsFor(file, log.listener());
        memory.startChangePollingMechanism(2ms);
        memory.createFile(file);
    });
    memory.createFile(folder.child(u"1"));
    memory.createFile(folder.child(u"2"));
    memory.startChangePollingMechanism(1ms);
    EXPECT_EQ(log.waitFor(1), (Events{{ChangeKind::Created, file}}));
    EXPECT_EQ(calls, 1);
}

TEST_F(ChangePolling, AListenerThatWouldWaitForItselfIsTold) {
    std::promise<bool> refused;
    memory.publishFileEventsFor(file, [&](const ChangeEvent&) {
        try {
            memory.stopChangePollingMechanism();
            refused.set_value(false);
        } catch (const std::logic_error&) {
            refused.set_value(true);
        }
    });
    memory.createFile(file);
    memory.startChangePollingMechanism(1ms);
    EXPECT_TRUE(refused.get_future().get());
}

TEST_F(ChangePolling, AProviderMayGoWhileItIsLookedAt) {
    for (int round = 0; round < 200; ++round) {
        const auto provider = std::make_shared<InMemoryProvider>();
        for (const auto* name : {u"/a", u"/b", u"/c"}) {
            provider->createFile(provider->at(name));
        }
        provider->publishFolderEventsFor(provider->at(u"/"), log.listener());
        provider->startChangePollingMechanism(1ms);
        provider->removeFile(provider->at(u"/b"));
        if (round % 4 == 0) {
            std::this_thread::sleep_for(1ms);
        }
    }
}

TEST_F(ChangePolling, ThreadsStartStopWatchAndChangeAtOnce) {
    std::atomic<bool> over = false;
    std::list<std::thread> threads;
    const auto repeat = [&](auto work) {
        threads.emplace_back([&over, work] {
            while (!over) {
                work();
            }
        });
    };
    repeat([this] { memory.startChangePollingMechanism(1ms); });
    repeat([this] { memory.stopChangePollingMechanism(); });
    repeat([this] { memory.startChangePollingMechanism(2ms); });
    repeat([this] { memory.publishFolderEventsFor(folder, log.listener()); });
    repeat([this] { memory.stopPublishingEventsFor(folder); });
    repeat([this] { memory.shutdown(); });
    repeat([this] {
        writeFile(memory, file, "x");
        memory.removeFile(file);
    });
    std::this_thread::sleep_for(400ms);
    over = true;
    for (auto& thread : threads) {
        thread.join();
    }
    memory.shutdown();
    const auto told = log.events().size();
    memory.createFile(folder.child(u"after"));
    std::this_thread::sleep_for(10ms);
    EXPECT_EQ(log.events().size(), told);

    ListenerLog later;
    memory.publishFileEventsFor(file, later.listener());
    memory.startChangePollingMechanism(1ms);
    memory.createFile(file);
    EXPECT_EQ(later.waitFor(1).size(), 1U);
}

} // namespace

} // namespace kx::test
