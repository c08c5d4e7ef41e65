#include "ProviderConformance.h"

#include <support/ListenerLog.h>

#include <chrono>
#include <thread>

namespace kx::test {

using provider::ChangeEvent;
using provider::ChangeKind;
using namespace std::chrono_literals;

TEST_P(ChangeEventConformance, AFoldersListenerIsToldOfEveryChangeInIt) {
    makeFolder(u"f");
    write(u"f/a", "1");
    ListenerLog log;
    storage().publishFolderEventsFor(at(u"f"), log.listener());
    storage().startChangePollingMechanism(5ms);

    write(u"f/b", "2");
    const ChangeEvent created{ChangeKind::Created, at(u"f/b")};
    ASSERT_GE(log.waitFor(1).size(), 1U);
    EXPECT_EQ(log.events().front(), created);
    storage().removeFile(at(u"f/b"));
    // The file may be seen between its creation and its first bytes.
    const ChangeEvent removed{ChangeKind::Removed, at(u"f/b")};
    auto events = log.waitFor(2);
    while (!events.empty() && events.back() == ChangeEvent{ChangeKind::Modified, at(u"f/b")}) {
        events = log.waitFor(events.size() + 1);
    }
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back(), removed);

    log.clear();
    write(u"f/a", "longer than before");
    events = log.waitFor(1);
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), (ChangeEvent{ChangeKind::Modified, at(u"f/a")}));
    storage().shutdown();
}

TEST_P(ChangeEventConformance, AFilesListenerIsToldOfTheFileAlone) {
    ListenerLog log;
    storage().publishFileEventsFor(at(u"a"), log.listener());
    write(u"beside", "x");
    storage().createFile(at(u"a"));
    storage().startChangePollingMechanism(5ms);

    EXPECT_EQ(log.waitFor(1), (std::vector<ChangeEvent>{{ChangeKind::Created, at(u"a")}}));
    storage().removeFile(at(u"a"));
    EXPECT_EQ(log.waitFor(2).back(), (ChangeEvent{ChangeKind::Removed, at(u"a")}));
    storage().shutdown();
}

TEST_P(ChangeEventConformance, AFolderThatGoesTakesItsEntriesAlong) {
    makeFolder(u"f");
    write(u"f/a", "1");
    ListenerLog log;
    storage().publishFolderEventsFor(at(u"f"), log.listener());
    storage().removeFolderRecursively(at(u"f"));
    storage().startChangePollingMechanism(5ms);

    EXPECT_EQ(log.waitFor(1), (std::vector<ChangeEvent>{{ChangeKind::Removed, at(u"f/a")}}));
    storage().shutdown();
}

TEST_P(ChangeEventConformance, ChangesWhileThePollingStandsStillAreToldWhenItRunsAgain) {
    makeFolder(u"f");
    ListenerLog log;
    storage().publishFolderEventsFor(at(u"f"), log.listener());
    storage().startChangePollingMechanism(5ms);
    storage().stopChangePollingMechanism();
    write(u"f/a", "1");
    std::this_thread::sleep_for(30ms);
    EXPECT_TRUE(log.events().empty());

    storage().startChangePollingMechanism(5ms);
    EXPECT_EQ(log.waitFor(1), (std::vector<ChangeEvent>{{ChangeKind::Created, at(u"f/a")}}));
    storage().shutdown();
}

TEST_P(ChangeEventConformance, NoEventArrivesAfterTheListenerWasTakenAway) {
    makeFolder(u"f");
    ListenerLog removed;
    ListenerLog replaced;
    ListenerLog current;
    storage().publishFolderEventsFor(at(u"f"), removed.listener());
    storage().stopPublishingEventsFor(at(u"f"));
    storage().publishFileEventsFor(at(u"f/a"), replaced.listener());
    storage().publishFileEventsFor(at(u"f/a"), current.listener());
    storage().startChangePollingMechanism(5ms);
    storage().createFile(at(u"f/a"));

    // Where making it and saving it are far apart, its times are told, too.
    const auto events = current.waitFor(1);
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), (ChangeEvent{ChangeKind::Created, at(u"f/a")}));
    storage().shutdown();
    EXPECT_TRUE(removed.events().empty());
    EXPECT_TRUE(replaced.events().empty());
    EXPECT_NO_THROW(storage().stopPublishingEventsFor(at(u"never/heard/of")));
}

TEST_P(ChangeEventConformance, ShutdownForgetsTheWatchedLocations) {
    makeFolder(u"f");
    ListenerLog forgotten;
    ListenerLog current;
    storage().publishFolderEventsFor(at(u"f"), forgotten.listener());
    storage().shutdown();
    storage().publishFileEventsFor(at(u"f/a"), current.listener());
    storage().createFile(at(u"f/a"));
    storage().startChangePollingMechanism(5ms);

    EXPECT_EQ(current.waitFor(1).size(), 1U);
    storage().shutdown();
    EXPECT_TRUE(forgotten.events().empty());
}

TEST_P(ChangeEventConformance, WatchingWhatIsNoFolderFails) {
    write(u"file", "x");
    Names noFolders{u"no"};
    if (tested().traits().refusesToListFiles) {
        noFolders.emplace_back(u"file");
    }
    for (const auto& path : noFolders) {
        expectError(ErrorCode::NotFound,
                    [&] { storage().publishFolderEventsFor(at(path), [](const ChangeEvent&) {}); });
    }
    expectError(ErrorCode::InvalidArgument,
                [&] { storage().publishFolderEventsFor(tested().root(), nullptr); });
    expectError(ErrorCode::InvalidArgument, [&] { storage().publishFileEventsFor(at(u"file"), nullptr); });
}

TEST_P(ChangeEventConformance, AnIntervalBelowAMillisecondIsRefused) {
    for (const auto interval : {0ms, -1ms, std::chrono::milliseconds::min()}) {
        expectError(ErrorCode::InvalidArgument, [&] { storage().startChangePollingMechanism(interval); });
    }
    EXPECT_NO_THROW(storage().startChangePollingMechanism(std::chrono::milliseconds::max()));
    EXPECT_NO_THROW(storage().stopChangePollingMechanism());
}

} // namespace kx::test
