// Opening one entry of an archive: the time must not depend on how many others there are.

#include "support.h"

#include <benchmark/benchmark.h>

#include <array>

namespace kx::bench {
namespace {

void entryByItsRememberedPosition(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const LocalArchive archive(count, 100);
    const State index(archive.item());
    std::size_t number = 0;
    for (auto unused : state) {
        number = (number + 7919) % count;
        std::array<char, 100> bytes{};
        const auto source = index.reopenOriginalEntry(pathOf(number));
        benchmark::DoNotOptimize(source->read(bytes.data(), bytes.size()));
    }
}
BENCHMARK(entryByItsRememberedPosition)->RangeMultiplier(10)->Range(1'000, 100'000);

/// The same through the provider: the entry goes through a working file.
void entryThroughTheProvider(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const LocalArchive archive(count, 100);
    Provider provider(archive.item());
    const auto at = [&](std::size_t number) {
        return foundation::storage::provider::StorageIRI::inContainer("zip", archive.item().getLocation(),
                                                                      pathOf(number).toString());
    };
    std::size_t number = 0;
    // The first one makes the index.
    provider.openReadStream(at(number));
    for (auto unused : state) {
        number = (number + 7919) % count;
        std::array<char, 100> bytes{};
        benchmark::DoNotOptimize(provider.openReadStream(at(number))->read(bytes.data(), bytes.size()));
    }
}
BENCHMARK(entryThroughTheProvider)->RangeMultiplier(10)->Range(1'000, 100'000);

} // namespace
} // namespace kx::bench
