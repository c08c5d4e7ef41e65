#include "StandIn.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace kx::test {

namespace {

/// The plan under way and its counts.
struct State {
    InjectedFaults::Plan plan;
    std::uint64_t count = 0;
    std::uint64_t failures = 0;
    const char* firstFailure = "";
};

constinit thread_local bool counting = false;
constinit State state;

/// Paths whose removal failed, one after the other, each ended by a NUL.
constinit std::array<char, 1 << 16> unremoved{};
constinit std::size_t unremovedSize = 0;

/// C streams on which a transfer failed.
constinit std::array<FILE*, 16> badStreams{};

bool isTransfer(detail::CallKind kind) {
    return kind == detail::CallKind::Transfer || kind == detail::CallKind::InterruptibleTransfer;
}

bool isInterruptible(detail::CallKind kind) {
    return kind == detail::CallKind::Interruptible || kind == detail::CallKind::InterruptibleTransfer;
}

/// Whether the manner of the plan concerns calls of this kind.
bool concerns(InjectedFaults::Manner manner, detail::CallKind kind) {
    using Manner = InjectedFaults::Manner;
    switch (manner) {
    case Manner::Once:
    case Manner::FromThenOn:
        return true;
    case Manner::ShortOnce:
    case Manner::AlwaysShort:
        return isTransfer(kind);
    case Manner::Interrupted:
        return isInterruptible(kind);
    }
    return false;
}

} // namespace

namespace detail {

Verdict enter(InjectedFaults::Subject subject, const char* function, CallKind kind) noexcept {
    using Manner = InjectedFaults::Manner;
    const auto manner = state.plan.manner;
    if (!counting || state.plan.subject != subject || !concerns(manner, kind)) {
        return Verdict::Goes;
    }
    ++state.count;
    const auto number = state.plan.number;
    if (number == 0 || state.count < number ||
        (manner != Manner::FromThenOn && manner != Manner::AlwaysShort && state.count > number)) {
        return Verdict::Goes;
    }
    if (state.failures++ == 0) {
        state.firstFailure = function;
    }
    switch (manner) {
    case Manner::Once:
    case Manner::FromThenOn:
        errno = state.plan.error;
        return Verdict::Fails;
    case Manner::Interrupted:
        errno = EINTR;
        return Verdict::Interrupted;
    case Manner::ShortOnce:
    case Manner::AlwaysShort:
        break;
    }
    return Verdict::Short;
}

std::size_t shortened(std::size_t size) noexcept {
    return state.plan.manner == InjectedFaults::Manner::AlwaysShort && size >= 4 ? size / 2 - 1
                                                                                 : (size + 1) / 2;
}

void noteUnremoved(const char* path) noexcept {
    const auto length = std::strlen(path) + 1;
    if (unremovedSize + length <= unremoved.size()) {
        std::memcpy(unremoved.data() + unremovedSize, path, length);
        unremovedSize += length;
    }
}

void setBad(FILE* stream, bool bad) noexcept {
    const auto place = std::find(badStreams.begin(), badStreams.end(), bad ? nullptr : stream);
    if (place != badStreams.end()) {
        *place = bad ? stream : nullptr;
    }
}

bool isBad(FILE* stream) noexcept {
    return std::find(badStreams.begin(), badStreams.end(), stream) != badStreams.end();
}

} // namespace detail

const char* InjectedFaults::unavailable() noexcept {
    return nullptr;
}

void InjectedFaults::start(const Plan& plan) noexcept {
    state = {};
    state.plan = plan;
    unremovedSize = 0;
    badStreams.fill(nullptr);
    counting = true;
}

void InjectedFaults::stop() noexcept {
    counting = false;
}

std::uint64_t InjectedFaults::count() noexcept {
    return state.count;
}

std::uint64_t InjectedFaults::failures() noexcept {
    return state.failures;
}

const char* InjectedFaults::firstFailure() noexcept {
    return state.firstFailure;
}

bool InjectedFaults::failedToRemove(const std::string& path) {
    const std::string_view all(unremoved.data(), unremovedSize);
    return all.find(path + std::string(1, '\0')) != std::string_view::npos;
}

} // namespace kx::test
