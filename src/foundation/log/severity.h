#pragma once

namespace foundation::log {

/// How detailed a record is. A level includes those before it.
enum class severity : int {
    /// The operations, their arguments and what they return.
    info = 1,
    /// The questions that are answered on the way, and sizes.
    debug = 2,
};

} // namespace foundation::log
