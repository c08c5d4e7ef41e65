#include "FaultLoop.h"

#include <foundation/log/ScopedRecordCollector.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

namespace kx::test {

namespace {

class MemoryFaults : public FaultLoop {
protected:
    void SetUp() override {
        FaultLoop::SetUp();
        if (!IsSkipped()) {
            // What is made once in a process is not made under faults.
            FaultBench(GetParam()).run({});
        }
    }
};

class LoggedMemoryFaults : public MemoryFaults {};

/// Logging multiplies the allocations, so these are few where no long loops are asked for.
std::vector<Scenario> loggedScenarios() {
    auto logged = scenarios();
    if (!areLongLoops()) {
        std::erase_if(logged, [](const Scenario& scenario) {
            const auto names = {"Read", "GiveUpAStream", "MoveAFolderWithOpenFiles", "CreateFile"};
            return std::find(names.begin(), names.end(), std::string_view(scenario.name)) == names.end();
        });
    }
    return logged;
}

} // namespace

TEST_P(MemoryFaults, OfOneAllocationLoseNothing) {
    FaultBench bench(GetParam());
    const auto points = loop(bench, Manner::Once, ENOMEM, Subject::Memory);
    EXPECT_GT(points, 0U);
    report("fault points tried, one allocation failing", points);
}

TEST_P(MemoryFaults, OfAllAllocationsFromOneOnLoseNothing) {
    FaultBench bench(GetParam());
    const auto points = loop(bench, Manner::FromThenOn, ENOMEM, Subject::Memory);
    EXPECT_GT(points, 0U);
    report("fault points tried, all allocations failing from one on", points);
}

TEST_P(LoggedMemoryFaults, LoseNothingWhereEverythingIsLogged) {
    FaultBench bench(GetParam());
    std::uint64_t points = 0;
    for (const auto manner : {Manner::Once, Manner::FromThenOn}) {
        std::uint64_t number = 0;
        do {
            const foundation::log::ScopedRecordCollector log;
            expectSound(bench, {Subject::Memory, manner, ++number, ENOMEM});
            EXPECT_FALSE(log.records().empty());
        } while (bench.failures() > 0);
        points += number - 1;
    }
    EXPECT_GT(points, 0U);
    report("fault points tried, allocations failing with logging on", points);
}

INSTANTIATE_TEST_SUITE_P(Of, MemoryFaults, testing::ValuesIn(scenarios()),
                         [](const auto& tested) { return tested.param.name; });

INSTANTIATE_TEST_SUITE_P(Of, LoggedMemoryFaults, testing::ValuesIn(loggedScenarios()),
                         [](const auto& tested) { return tested.param.name; });

} // namespace kx::test
