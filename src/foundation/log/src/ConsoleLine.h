#pragma once

#include "Core.h"

#include <string>

namespace foundation::log::detail {

/// The line for standard error, with its end: time, thread, severity, channel and the indented text. Control
/// characters in the text would break the line up, or order the terminal about; they are written as \xNN.
std::string consoleLine(const EmittedRecord& record);

} // namespace foundation::log::detail
