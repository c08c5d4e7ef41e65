#pragma once

#include "InjectedFaults.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <dlfcn.h>
#include <sys/types.h>

/// How the functions are written that stand in for functions of the C library.
namespace kx::test::detail {

/// What all calls can do and what only some can.
enum class CallKind { Other, Transfer, Interruptible, InterruptibleTransfer };

enum class Verdict { Goes, Fails, Short, Interrupted };

/// Counts a call of this subject and says what becomes of it; `errno` is set where it is not made. Allocates
/// nothing.
Verdict enter(InjectedFaults::Subject subject, const char* function, CallKind kind) noexcept;

inline Verdict enter(const char* function, CallKind kind = CallKind::Other) noexcept {
    return enter(InjectedFaults::Subject::Files, function, kind);
}

/// How much of `size` bytes a transfer that is cut short moves.
std::size_t shortened(std::size_t size) noexcept;

/// Notes that a file may be left over.
void noteUnremoved(const char* path) noexcept;

/// Whether a transfer failed on a C stream, for ferror.
void setBad(FILE* stream, bool bad) noexcept;
bool isBad(FILE* stream) noexcept;

/// The function of this name that would have been called.
template <typename Function>
Function* next(const char* name) noexcept {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// The same, of this version where the library has it.
template <typename Function>
Function* nextOf(const char* name, const char* version) noexcept {
    auto* const found = ::dlvsym(RTLD_NEXT, name, version);
    return found != nullptr ? reinterpret_cast<Function*>(found) : next<Function>(name);
}

/// A call that fails with -1 instead of being made.
template <typename Call>
auto guarded(const char* function, CallKind kind, Call call) {
    return enter(function, kind) == Verdict::Goes ? call() : static_cast<decltype(call())>(-1);
}

/// A transfer of `size` bytes.
template <typename Call>
ssize_t transferred(const char* function, std::size_t size, Call call) {
    switch (enter(function, CallKind::InterruptibleTransfer)) {
    case Verdict::Goes:
        return call(size);
    case Verdict::Short:
        return call(shortened(size));
    case Verdict::Fails:
    case Verdict::Interrupted:
        break;
    }
    return -1;
}

/// The removal of a path.
template <typename Call>
int removed(const char* function, const char* path, Call call) {
    if (enter(function) == Verdict::Goes) {
        return call();
    }
    noteUnremoved(path);
    return -1;
}

} // namespace kx::test::detail

/// Defines a function under a name of its own, since the headers' declarations of what it stands in for
/// differ between versions of the C library.
#define KX_STAND_IN(result, name, parameters)                                                                \
    [[gnu::visibility("default")]] result standIn_##name parameters __asm__(#name);                          \
    result standIn_##name parameters
