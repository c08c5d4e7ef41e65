#include "StandIn.h"

#include <cstdlib>
#include <new>

// What C++ allocates. minizip writes through some of its own allocations before it looks whether they
// succeeded.
namespace {

void* allocated(std::size_t size) noexcept {
    using namespace kx::test;
    const auto verdict =
        detail::enter(InjectedFaults::Subject::Memory, "operator new", detail::CallKind::Other);
    return verdict == detail::Verdict::Goes ? std::malloc(size == 0 ? 1 : size) : nullptr;
}

void* allocatedOrThrown(std::size_t size) {
    auto* const block = allocated(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

} // namespace

[[gnu::visibility("default")]] void* operator new(std::size_t size) {
    return allocatedOrThrown(size);
}

[[gnu::visibility("default")]] void* operator new[](std::size_t size) {
    return allocatedOrThrown(size);
}

[[gnu::visibility("default")]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocated(size);
}

[[gnu::visibility("default")]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocated(size);
}

[[gnu::visibility("default")]] void operator delete(void* block) noexcept {
    std::free(block);
}

[[gnu::visibility("default")]] void operator delete[](void* block) noexcept {
    std::free(block);
}

[[gnu::visibility("default")]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

[[gnu::visibility("default")]] void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
