#include "Core.h"

#include <foundation/log/Record.h>

#include <fl/i18n/utf8.h>

namespace foundation::log {

void detail::put(std::ostream& out, std::u16string_view text) {
    out << fl::i18n::toUtf8(text);
}

void detail::put(std::ostream& out, const std::filesystem::path& path) {
    out << path.string();
}

Record::Record(const basic_diagnostic_logger& logger, severity level)
    : m_channel(*logger.m_channel), m_level(level) {}

Record::~Record() {
    try {
        detail::Core::emit(m_channel, m_level, std::move(m_text).str());
    } catch (...) {
        // No memory for the text: the record is lost, not the program.
    }
}

} // namespace foundation::log
