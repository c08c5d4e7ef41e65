#include "Core.h"

#include <foundation/log/basic_diagnostic_logger.h>

namespace foundation::log {

basic_diagnostic_logger::basic_diagnostic_logger(std::string_view channel)
    : m_channel(&detail::Core::instance().channel(channel)) {}

} // namespace foundation::log
