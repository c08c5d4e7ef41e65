#include <apps/kxvfs/src/Output.h>

#include <apps/kxvfs/src/Printable.h>
#include <apps/kxvfs/src/Terminal.h>

#include <cerrno>
#include <cstdio>

namespace apps::kxvfs {

namespace {

constexpr std::size_t bufferSize = 64 * 1024;

} // namespace

OutputError::OutputError(int error)
    : std::system_error(error, std::generic_category(), "cannot write standard output") {}

Output::Output(bool json) : m_json(json), m_terminal(outputIsTerminal()), m_colour(colourWanted()) {
    if (!m_terminal)
        std::setvbuf(stdout, nullptr, _IOFBF, bufferSize);
}

void Output::bytes(const char* data, std::size_t count) {
    if (count > 0 && std::fwrite(data, 1, count, stdout) != count)
        throw OutputError(errno);
}

void Output::line(std::string_view text) {
    bytes(text.data(), text.size());
    bytes("\n", 1);
}

std::string Output::name(std::string_view text) const {
    return m_terminal ? escaped(text) : std::string(text);
}

std::string Output::folderName(std::string_view text) const {
    return m_colour ? "\x1b[1;34m" + name(text) + "\x1b[0m" : name(text);
}

void Output::object(const nlohmann::ordered_json& value) {
    const std::string text = (m_first ? "[\n  " : ",\n  ") +
                             value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    m_first = false;
    bytes(text.data(), text.size());
}

void Output::finish() {
    if (m_json)
        line(m_first ? "[]" : "\n]");
    if (std::fflush(stdout) != 0)
        throw OutputError(errno);
}

} // namespace apps::kxvfs
