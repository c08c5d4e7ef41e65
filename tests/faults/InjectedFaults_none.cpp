#include "InjectedFaults.h"

namespace kx::test {

const char* InjectedFaults::unavailable() noexcept {
    return "the sanitizer stands in for the functions that would have to fail";
}

void InjectedFaults::start(const Plan&) noexcept {}

void InjectedFaults::stop() noexcept {}

std::uint64_t InjectedFaults::count() noexcept {
    return 0;
}

std::uint64_t InjectedFaults::failures() noexcept {
    return 0;
}

const char* InjectedFaults::firstFailure() noexcept {
    return "";
}

bool InjectedFaults::failedToRemove(const std::string&) {
    return false;
}

} // namespace kx::test
