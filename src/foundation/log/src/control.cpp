#include "Core.h"

#include <foundation/log/control.h>

namespace foundation::log {

void enable(severity level, const std::vector<std::string>& channels) {
    detail::Core::instance().setConsole(detail::Selection{level, channels});
}

void enableFromText(std::string_view text) {
    detail::Core::instance().setConsole(detail::parseSelection(text));
}

void disable() {
    detail::Core::instance().setConsole(std::nullopt);
}

} // namespace foundation::log
