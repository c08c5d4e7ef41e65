// A logging statement of a logger that is off: one atomic read and a branch.

#include <foundation/log/log.h>

#include <benchmark/benchmark.h>

namespace kx::bench {
namespace {

void logScopeAndRecordsSwitchedOff(benchmark::State& state) {
    const foundation::log::basic_diagnostic_logger logger("kx::bench");
    int value = 0;
    for (auto unused : state) {
        KX_LOG_FUNCTION(logger);
        KX_LOG(logger) << " value=" << value;
        KX_LOG_DEBUG(logger) << " twice=" << 2 * value;
        benchmark::DoNotOptimize(++value);
    }
}
BENCHMARK(logScopeAndRecordsSwitchedOff);

} // namespace
} // namespace kx::bench
