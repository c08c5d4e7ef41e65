#pragma once

#include "FaultBench.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace kx::test {

/// Runs a scenario for each of its calls in turn. Every loop prints how many points it tried.
class FaultLoop : public testing::TestWithParam<Scenario> {
protected:
    using Manner = InjectedFaults::Manner;
    using Subject = InjectedFaults::Subject;

    void SetUp() override;

    /// One run under a plan, all of whose consequences must be as they ought to.
    static void expectSound(FaultBench& bench, const InjectedFaults::Plan& plan);
    /// For every call until a run is without a fault. Returns the number of points tried.
    static std::uint64_t loop(FaultBench& bench, Manner manner, int error, Subject subject = Subject::Files);
    /// The first of them; all where the long loops are asked for.
    static std::vector<int> errors(std::vector<int> all);
    static void report(const char* what, std::uint64_t points);
};

} // namespace kx::test
