#include <foundation/log/indent_attribute.h>

namespace foundation::log {

namespace {

thread_local unsigned depth = 0;

} // namespace

unsigned indent_attribute::current() noexcept {
    return depth;
}
void indent_attribute::increase() noexcept {
    ++depth;
}
void indent_attribute::decrease() noexcept {
    --depth;
}

} // namespace foundation::log
