#include "StandIn.h"

// The allocator itself, under the names that the C library exports beside the public ones.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

/// Whether an allocation is made. Also what stands behind `operator new`, which calls malloc.
bool goes(const char* function) noexcept {
    using namespace kx::test;
    return detail::enter(InjectedFaults::Subject::Memory, function, detail::CallKind::Other) ==
           detail::Verdict::Goes;
}

} // namespace

extern "C" {

KX_STAND_IN(void*, malloc, (std::size_t size)) {
    return goes("malloc") ? __libc_malloc(size) : nullptr;
}

KX_STAND_IN(void*, calloc, (std::size_t count, std::size_t size)) {
    return goes("calloc") ? __libc_calloc(count, size) : nullptr;
}

KX_STAND_IN(void*, realloc, (void* block, std::size_t size)) {
    return goes("realloc") ? __libc_realloc(block, size) : nullptr;
}
}
