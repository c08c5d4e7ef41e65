#include "LocalFilesTest.h"
#include "SimulatedCrash.h"

#include <cerrno>
#include <vector>

namespace kx::test {

namespace fs = std::filesystem;

namespace {

std::size_t openFiles() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// Of one call that fails, while all before and after it work. The parameter: whether the file has a second
/// link, so that it must be overwritten.
class FaultTest : public LocalFilesTest, public testing::WithParamInterface<bool> {
protected:
    void startAgain() {
        for (const auto& name : namesIn(folder())) {
            fs::remove(file(name));
        }
        spit(file("a"), m_old);
        if (GetParam()) {
            fs::create_hard_link(file("a"), file("link"));
        }
    }

    std::shared_ptr<SimulatedCrash> makeCalls() const {
        return std::make_shared<SimulatedCrash>(std::vector<fs::path>{folder(), stateFolder()});
    }

    const std::string m_old = randomBytes(9000, 1);
    const std::string m_new = randomBytes(20000, 2);
};

} // namespace

TEST_P(FaultTest, ACallThatFailsIsReportedAndLeavesAWholeFile) {
    startAgain();
    const auto whole = makeCalls();
    writeFile(*LocalFileProvider::create(options(whole)), iri("a"), m_new);
    const auto filesBefore = openFiles();
    std::size_t reported = 0;
    for (const int error : {ENOSPC, EIO, EACCES}) {
        for (std::uint64_t number = 1; number <= whole->count(); ++number) {
            SCOPED_TRACE(testing::Message() << "call " << number << " fails with " << error);
            startAgain();
            bool saved = true;
            {
                const auto calls = makeCalls();
                calls->failCall(number, error);
                try {
                    writeFile(*LocalFileProvider::create(options(calls)), iri("a"), m_new);
                } catch (const Exception& failure) {
                    saved = false;
                    ++reported;
                    EXPECT_FALSE(failure.getCause().empty());
                }
            }
            const auto bytes = read("a");
            ASSERT_TRUE(bytes == m_new || (!saved && bytes == m_old)) << bytes.size() << " bytes";
            if (GetParam()) {
                ASSERT_EQ(statusOf(file("a")).st_nlink, 2U);
            }
            static_cast<void>(recover("a"));
            expectNothingLeft();
            ASSERT_EQ(openFiles(), filesBefore);
        }
    }
    EXPECT_GT(reported, whole->count());
}

TEST_P(FaultTest, AFullMediumIsToldAsSuch) {
    startAgain();
    const auto calls = makeCalls();
    const auto provider = LocalFileProvider::create(options(calls));
    auto stream = provider->openStream(iri("a"), {});
    calls->failCall(calls->count() + 1, ENOSPC);
    expectError(ErrorCode::NoSpace, [&] { writeAll(*stream, m_new); });
    expectError(ErrorCode::NoSpace, [&] { stream->close(); });
    stream.reset();
    EXPECT_EQ(read("a"), m_old);
    expectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Files, FaultTest, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Overwritten" : "Renamed"; });

} // namespace kx::test
