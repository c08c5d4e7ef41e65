#include "FaultLoop.h"

#include <iostream>

namespace kx::test {

void FaultLoop::SetUp() {
    if (InjectedFaults::unavailable() != nullptr) {
        GTEST_SKIP() << InjectedFaults::unavailable();
    }
}

void FaultLoop::expectSound(FaultBench& bench, const InjectedFaults::Plan& plan) {
    const auto problems = bench.run(plan);
    EXPECT_EQ(problems, "") << "call " << plan.number << " (" << InjectedFaults::firstFailure()
                            << "), manner " << static_cast<int>(plan.manner) << ", error " << plan.error;
}

std::uint64_t FaultLoop::loop(FaultBench& bench, Manner manner, int error, Subject subject) {
    for (std::uint64_t number = 1;; ++number) {
        expectSound(bench, {subject, manner, number, error});
        if (bench.failures() == 0) {
            return number - 1;
        }
    }
}

std::vector<int> FaultLoop::errors(std::vector<int> all) {
    if (!areLongLoops()) {
        all.resize(1);
    }
    return all;
}

void FaultLoop::report(const char* what, std::uint64_t points) {
    std::cout << GetParam().name << ": " << points << ' ' << what << std::endl;
}

} // namespace kx::test
