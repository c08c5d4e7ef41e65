#pragma once

#include <foundation/log/Export.h>

namespace foundation::log {

/// The attribute "Indent" of every record: how many logged function scopes are open on the calling thread.
/// Scopes of a channel that is off do not count.
class KXFOUNDATION_LOG_API indent_attribute {
public:
    static unsigned current() noexcept;

private:
    friend class FunctionScope;

    static void increase() noexcept;
    static void decrease() noexcept;
};

} // namespace foundation::log
