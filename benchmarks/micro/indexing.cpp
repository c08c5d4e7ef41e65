// Path ordering, and the making of the folder index: how it grows from 1,000 to 1,000,000 entries.

#include "support.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

namespace kx::bench {
namespace {

using storage::zipprovider::ZipEntryPath;

std::vector<ZipEntryPath> shuffledPaths() {
    std::vector<ZipEntryPath> paths;
    for (std::size_t i = 0; i < 10'000; ++i) {
        paths.push_back(pathOf(i));
    }
    std::shuffle(paths.begin(), paths.end(), std::mt19937(1));
    return paths;
}

void orderOfPaths(benchmark::State& state) {
    const auto paths = shuffledPaths();
    std::size_t i = 0;
    for (auto unused : state) {
        i = (i + 1) % (paths.size() - 1);
        benchmark::DoNotOptimize(paths[i] < paths[i + 1]);
    }
}
BENCHMARK(orderOfPaths);

/// What the order is defined by, for comparison.
void orderOfTheirTexts(benchmark::State& state) {
    const auto paths = shuffledPaths();
    std::size_t i = 0;
    for (auto unused : state) {
        i = (i + 1) % (paths.size() - 1);
        benchmark::DoNotOptimize(paths[i].toString() < paths[i + 1].toString());
    }
}
BENCHMARK(orderOfTheirTexts);

void indexOfAnArchive(benchmark::State& state) {
    const LocalArchive archive(static_cast<std::size_t>(state.range(0)), 0);
    for (auto unused : state) {
        const State made(archive.item());
        benchmark::DoNotOptimize(&made);
    }
    state.counters["entries"] = benchmark::Counter(static_cast<double>(state.range(0)),
                                                   benchmark::Counter::kIsIterationInvariantRate);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(indexOfAnArchive)
    ->RangeMultiplier(10)
    ->Range(1'000, 1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

} // namespace
} // namespace kx::bench
