#pragma once

#include <foundation/log/severity.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::log::detail {

/// Which records someone wants.
struct Selection {
    severity level = severity::info;
    /// Names of channels, or of namespaces above them; empty for all channels.
    std::vector<std::string> channels;

    bool selects(std::string_view channel) const;
};

/// Reads "off" and the empty text as nothing, else "<level>[:<channel>,…]".
/// Errors: std::invalid_argument.
std::optional<Selection> parseSelection(std::string_view text);

} // namespace foundation::log::detail
