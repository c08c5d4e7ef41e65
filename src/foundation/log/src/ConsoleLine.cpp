#include "ConsoleLine.h"

namespace foundation::log::detail {

std::string consoleLine(const EmittedRecord& record) {
    std::string line = record.time + ' ' + record.thread;
    line += record.level == severity::debug ? " debug " : " info  ";
    line += record.channel;
    line += ": ";
    line.append(std::size_t{2} * record.indent, ' ');
    for (const char c : record.text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            constexpr const char* digits = "0123456789abcdef";
            line += "\\x";
            line += digits[byte >> 4];
            line += digits[byte & 0xF];
        } else {
            line += c;
        }
    }
    line += '\n';
    return line;
}

} // namespace foundation::log::detail
