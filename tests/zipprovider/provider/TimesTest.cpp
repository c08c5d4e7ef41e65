#include "ZipProviderTest.h"

#include <foundation/storage/provider/FileAttributes.h>
#include <support/archives/ArchiveBuilder.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <ctime>

namespace kx::test {

namespace {

using boost::posix_time::minutes;
using boost::posix_time::ptime;
using boost::posix_time::time_from_string;
using Stamp = std::array<int, 6>;

/// The process is in another time zone.
class ScopedZone {
public:
    explicit ScopedZone(const std::string& zone) : m_variable("TZ", zone) { ::tzset(); }
    ScopedZone(const ScopedZone&) = delete;
    ScopedZone& operator=(const ScopedZone&) = delete;

private:
    struct Reset {
        ~Reset() { ::tzset(); }
    };
    // Runs after the variable has its old value back.
    const Reset m_reset;
    const ScopedVariable m_variable;
};

class ZipProviderTimes : public ZipProviderTest {
protected:
    static std::string archiveOf(const DosTime& time) {
        ArchiveBuilder builder;
        builder.add("kept", "1");
        builder.last().modified = time;
        return builder.build();
    }

    Stamp stampOf(const std::string& name) {
        for (const auto& entry : seenEntries(archive())) {
            if (entry.name == name) {
                return entry.modified;
            }
        }
        ADD_FAILURE() << name << " is not there";
        return {};
    }
    ptime timeOf(const char* path) {
        return zip.provider().getFileAttributes(zip.at(path)).getLastModified();
    }
};

TEST_F(ZipProviderTimes, InUtcStampsOfCarriedOverEntriesStayPut) {
    const ScopedZone zone("UTC");
    mount(archiveOf(DosTime::of(2021, 7, 8, 9, 10, 12)));
    for (int i = 0; i < 3; ++i) {
        zip.createFolder("/f" + std::to_string(i));
        EXPECT_EQ(stampOf("kept"), (Stamp{2021, 7, 8, 9, 10, 12}));
        EXPECT_EQ(timeOf("/kept"), time_from_string("2021-07-08 09:10:12"));
    }
}

TEST_F(ZipProviderTimes, InUtcEveryStampAnArchiveCanHoldIsCarriedOver) {
    const ScopedZone zone("UTC");
    for (const auto& stamp : {Stamp{1980, 1, 1, 0, 0, 0}, Stamp{2000, 2, 29, 23, 59, 58},
                              Stamp{2038, 1, 19, 3, 14, 8}, Stamp{2107, 12, 31, 23, 59, 58}}) {
        mount(archiveOf(DosTime::of(stamp[0], stamp[1], stamp[2], stamp[3], stamp[4], stamp[5])));
        zip.createFolder("/f");
        EXPECT_EQ(stampOf("kept"), stamp);
    }
}

TEST_F(ZipProviderTimes, AWrittenEntryHasTheLocalTimeOfItsWorkingFile) {
    const ScopedTime standing;
    {
        const ScopedZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
        const auto stream = zip.writer("/winter");
        zip.createFolder("/folder");
        stream->close();
    }
    EXPECT_EQ(stampOf("winter"), (Stamp{2022, 3, 4, 6, 6, 8}));
    EXPECT_EQ(stampOf("folder/"), (Stamp{2022, 3, 4, 6, 6, 8}));
    EXPECT_EQ(timeOf("/winter"), time_from_string("2022-03-04 06:06:08"));
}

TEST_F(ZipProviderTimes, AFileBeingWrittenTellsTheTimeOfItsWorkingFileInUtc) {
    const ScopedZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const ptime now = boost::posix_time::second_clock::universal_time();
    const auto stream = zip.writer("/new");
    writeAll(*stream, "1");
    EXPECT_LT(timeOf("/new") - now, minutes(5));
    EXPECT_GT(timeOf("/new") - now, minutes(-5));
    stream->close();
    EXPECT_GT(timeOf("/new") - now, minutes(55));
}

TEST_F(ZipProviderTimes, OutsideUtcACarriedOverStampMovesByTheZonesOffsetAtEachRebuild) {
    const ScopedZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    mount(archiveOf(DosTime::of(2021, 1, 8, 9, 10, 12)));
    zip.createFolder("/f");
    EXPECT_EQ(stampOf("kept"), (Stamp{2021, 1, 8, 10, 10, 12}));
    zip.createFolder("/g");
    EXPECT_EQ(stampOf("kept"), (Stamp{2021, 1, 8, 11, 10, 12}));
    mount(archiveOf(DosTime::of(2021, 7, 8, 9, 10, 12)));
    zip.createFolder("/f");
    EXPECT_EQ(stampOf("kept"), (Stamp{2021, 7, 8, 11, 10, 12}));
}

TEST_F(ZipProviderTimes, WestOfUtcStampsMoveBack) {
    const ScopedZone zone("XYZ5:30");
    mount(archiveOf(DosTime::of(2021, 1, 1, 2, 0, 0)));
    zip.createFolder("/f");
    EXPECT_EQ(stampOf("kept"), (Stamp{2020, 12, 31, 20, 30, 0}));
}

TEST_F(ZipProviderTimes, SecondsAreStoredInStepsOfTwo) {
    const ScopedZone zone("UTC");
    mount({{"a", "1"}});
    const auto before = boost::posix_time::second_clock::universal_time();
    zip.write("/a", "2");
    const auto stored = timeOf("/a");
    EXPECT_EQ(stored.time_of_day().seconds() % 2, 0);
    EXPECT_GE(stored, before - boost::posix_time::seconds(2));
}

TEST_F(ZipProviderTimes, AMovedEntryKeepsItsOwnStamp) {
    const ScopedZone zone("UTC");
    mount(archiveOf(DosTime::of(2021, 7, 8, 9, 10, 12)));
    zip.moveFile("/kept", "/moved");
    EXPECT_EQ(stampOf("moved"), (Stamp{2021, 7, 8, 9, 10, 12}));
    zip.createFolder("/f");
    zip.moveFile("/moved", "/f/moved");
    zip.moveFolder("/f", "/g");
    EXPECT_EQ(stampOf("g/moved"), (Stamp{2021, 7, 8, 9, 10, 12}));
}

TEST_F(ZipProviderTimes, TheSameChangesAtTheSameTimeGiveTheSameBytes) {
    const ScopedTime standing;
    const auto once = [&] {
        mount({{"docs/a", "1"}, {"docs/b", "2"}});
        zip.write("/docs/c", "3");
        zip.createFolder("/f");
        zip.moveFile("/docs/a", "/f/a");
        return archive();
    };
    EXPECT_EQ(once(), once());
}

} // namespace

} // namespace kx::test
