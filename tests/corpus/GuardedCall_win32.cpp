#include "GuardedCall.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <thread>

#include <windows.h>

#include <psapi.h>

namespace kx::test {

namespace {

/// Wine is slower than the machine that the limits are for.
constexpr int slowness = 5;

std::uint64_t peakOfProcess() {
    PROCESS_MEMORY_COUNTERS counters{};
    ::K32GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
    return counters.PeakWorkingSetSize;
}

} // namespace

/// A process cannot be copied here: the call is made in a thread, and one that hangs, crashes or takes all
/// memory ends the whole test.
GuardedResult guardedCall(const std::function<std::string()>& call, const Guard& guard) {
    GuardedResult result;
    std::packaged_task<std::string()> task(call);
    auto text = task.get_future();
    std::jthread thread(std::move(task));
    if (text.wait_for(guard.wallTime * slowness) != std::future_status::ready) {
        std::fputs("a guarded call took too long\n", stderr);
        std::_Exit(EXIT_FAILURE);
    }
    try {
        result.text = text.get();
    } catch (const std::exception& error) {
        result.problem = std::string("ended with status 1: ") + error.what();
    }
    result.peakMemory = peakOfProcess();
    return result;
}

} // namespace kx::test
