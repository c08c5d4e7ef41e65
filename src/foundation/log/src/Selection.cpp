#include "Selection.h"

#include <algorithm>
#include <stdexcept>

namespace foundation::log::detail {

namespace {

bool isOrEncloses(std::string_view selector, std::string_view channel) {
    return channel.starts_with(selector) &&
           (channel.size() == selector.size() || channel.substr(selector.size()).starts_with("::"));
}

std::vector<std::string> splitAtCommas(std::string_view list) {
    std::vector<std::string> pieces;
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(',', begin), list.size());
        pieces.emplace_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return pieces;
}

[[noreturn]] void refuse(std::string_view text, const char* cause) {
    throw std::invalid_argument("cannot read log selection \"" + std::string(text) + "\": " + cause);
}

} // namespace

bool Selection::selects(std::string_view channel) const {
    return channels.empty() ||
           std::any_of(channels.begin(), channels.end(),
                       [channel](const std::string& selector) { return isOrEncloses(selector, channel); });
}

std::optional<Selection> parseSelection(std::string_view text) {
    if (text.empty() || text == "off") {
        return std::nullopt;
    }
    const std::size_t colon = text.find(':');
    const std::string_view level = text.substr(0, colon);
    Selection selection;
    if (level == "debug") {
        selection.level = severity::debug;
    } else if (level != "info") {
        refuse(text, "expected info, debug or off, and channels behind a colon");
    }
    if (colon != std::string_view::npos) {
        selection.channels = splitAtCommas(text.substr(colon + 1));
        if (std::any_of(selection.channels.begin(), selection.channels.end(),
                        [](const std::string& channel) { return channel.empty(); })) {
            refuse(text, "a channel has no name");
        }
    }
    return selection;
}

} // namespace foundation::log::detail
