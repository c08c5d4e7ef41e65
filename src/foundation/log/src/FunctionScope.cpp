#include <foundation/log/FunctionScope.h>

#include <foundation/log/indent_attribute.h>

#include <exception>
#include <new>
#include <optional>
#include <utility>

namespace foundation::log {

namespace {

/// The path of a source file below the root of the sources, without its extension: all that follows the first
/// dot of its name, so that the parts of a class's implementation ("ZipState.flush.ipp") go by its name. A
/// file from elsewhere keeps its whole path.
std::string_view sourceName(std::string_view file) {
    constexpr std::string_view thisFile = __FILE__;
    constexpr std::string_view belowRoot = "src/foundation/log/src/FunctionScope.cpp";
    constexpr std::string_view root =
        thisFile.ends_with(belowRoot) ? thisFile.substr(0, thisFile.size() - belowRoot.size()) : "";
    if (file.starts_with(root)) {
        file.remove_prefix(root.size());
    }
    const std::size_t slash = file.rfind('/');
    const std::size_t name = slash == std::string_view::npos ? 0 : slash + 1;
    return file.substr(0, file.find('.', name));
}

} // namespace

struct FunctionScope::Open {
    basic_diagnostic_logger logger;
    // An exception that was on its way before the scope began does not leave it.
    int exceptionsAtBegin;
    std::optional<std::string> result;
};

void FunctionScope::OpenDeleter::operator()(Open* open) const noexcept {
    delete open;
}

void FunctionScope::open(const basic_diagnostic_logger& logger, const char* signature, const char* file,
                         int line) noexcept {
    m_open.reset(new (std::nothrow) Open{logger, std::uncaught_exceptions(), std::nullopt});
    if (m_open) {
        Record(logger, severity::info) << signature << ' ' << sourceName(file) << ':' << line;
        indent_attribute::increase();
    }
}

void FunctionScope::close() noexcept {
    indent_attribute::decrease();
    if (!m_open->logger.enabled(severity::info)) {
        return;
    }
    if (std::uncaught_exceptions() > m_open->exceptionsAtBegin) {
        Record(m_open->logger, severity::info) << "[throw]";
    } else if (m_open->result) {
        Record(m_open->logger, severity::info) << *m_open->result;
    }
}

void FunctionScope::setResult(std::string text) noexcept {
    m_open->result = std::move(text);
}

} // namespace foundation::log
