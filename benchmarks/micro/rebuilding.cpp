// One change of an archive, which rebuilds all of it: what an entry and what a byte costs, as carried over
// stored and as inflated and deflated again.

#include "support.h"

#include <storage/zipprovider/src/RebuildMode.h>

#include <benchmark/benchmark.h>

namespace kx::bench {
namespace {

using storage::zipprovider::RebuildMode;

void rebuild(benchmark::State& state, RebuildMode mode) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto size = static_cast<std::size_t>(state.range(1));
    const LocalArchive archive(count, size);
    Provider provider(archive.item());
    const auto at = [&](const char16_t* path) {
        return foundation::storage::provider::StorageIRI::inContainer("zip", archive.item().getLocation(),
                                                                      path);
    };
    storage::zipprovider::setRebuildMode(mode);
    bool there = false;
    for (auto unused : state) {
        if (there) {
            provider.removeFolder(at(u"/zz"));
        } else {
            provider.createFolder(at(u"/zz"));
        }
        there = !there;
    }
    storage::zipprovider::setRebuildMode(RebuildMode::Fast);
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * state.range(0) * state.range(1));
}

void rebuildAsStored(benchmark::State& state) {
    rebuild(state, RebuildMode::Fast);
}
BENCHMARK(rebuildAsStored)->Args({10'000, 0})->Args({100, 100'000})->Unit(benchmark::kMillisecond);

void rebuildDeflatingAgain(benchmark::State& state) {
    rebuild(state, RebuildMode::Plain);
}
BENCHMARK(rebuildDeflatingAgain)->Args({10'000, 0})->Args({100, 100'000})->Unit(benchmark::kMillisecond);

} // namespace
} // namespace kx::bench
