#include "FaultLoop.h"

#include <cerrno>

namespace kx::test {

namespace {

class FileFaults : public FaultLoop {};

} // namespace

TEST_P(FileFaults, OfOneCallLoseNothing) {
    FaultBench bench(GetParam());
    std::uint64_t points = 0;
    for (const int error : errors({EIO, ENOSPC, EACCES})) {
        points += loop(bench, Manner::Once, error);
    }
    EXPECT_GT(points, 0U);
    report("fault points tried, one call failing", points);
}

TEST_P(FileFaults, OfAllCallsFromOneOnLoseNothing) {
    FaultBench bench(GetParam());
    std::uint64_t points = 0;
    for (const int error : errors({ENOSPC, EIO})) {
        points += loop(bench, Manner::FromThenOn, error);
    }
    EXPECT_GT(points, 0U);
    report("fault points tried, all calls failing from one on", points);
}

TEST_P(FileFaults, ThatAreNoneAreGoneOnWithWhereLessIsMovedThanAskedFor) {
    FaultBench bench(GetParam());
    const auto points = loop(bench, Manner::ShortOnce, 0);
    expectSound(bench, {Subject::Files, Manner::AlwaysShort, 1, 0});
    EXPECT_FALSE(bench.reported());
    report("fault points tried, one transfer cut short or all of them", points + 1);
}

TEST_P(FileFaults, ThatAreSignalsHaveTheCallMadeAgain) {
    FaultBench bench(GetParam());
    for (std::uint64_t number = 1;; ++number) {
        expectSound(bench, {Subject::Files, Manner::Interrupted, number, 0});
        EXPECT_FALSE(bench.reported()) << "call " << number << " (" << InjectedFaults::firstFailure() << ')';
        if (bench.failures() == 0) {
            report("fault points tried, one call interrupted by a signal", number - 1);
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Of, FileFaults, testing::ValuesIn(scenarios()),
                         [](const auto& tested) { return tested.param.name; });

} // namespace kx::test
