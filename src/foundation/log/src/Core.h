#pragma once

#include "Selection.h"

#include <foundation/log/basic_diagnostic_logger.h>
#include <foundation/log/severity.h>

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace foundation::log::detail {

/// A record as the sinks of this library see it.
struct EmittedRecord {
    const std::string& channel;
    severity level;
    unsigned indent;
    const std::string& text;
};

using RecordConsumer = std::function<void(const EmittedRecord&)>;

/// The channels, and who wants which of their records. Records travel through Boost.Log's core, so that a
/// host that uses Boost.Log has its own sinks see them as well. Threads: any.
class Core {
public:
    /// Made at the first use, when KX_LOG is read, and never destroyed: destructors of statics still log.
    static Core& instance();

    /// The channel of that name, the same object each time.
    Channel& channel(std::string_view name);

    /// What goes to standard error; nothing without a selection.
    void setConsole(std::optional<Selection> selection);

    /// Has `consumer` called with each record selected, one at a time, until the returned object goes. The
    /// consumer must not log.
    std::shared_ptr<void> addConsumer(Selection selection, RecordConsumer consumer);

    /// Hands a record to whoever wants it.
    static void emit(Channel& channel, severity level, const std::string& text) noexcept;

private:
    struct BoostChannel;
    class Consumer;
    struct Console;

    Core();
    ~Core() = delete;

    void requireConsole() KX_REQUIRES(m_mutex);
    void refreshAllThresholds() KX_REQUIRES(m_mutex);
    void refreshThreshold(Channel& channel) KX_REQUIRES(m_mutex);

    // Held while Boost.Log's core is changed, never while a record is on its way.
    foundation::core::Mutex m_mutex;
    std::map<std::string, std::unique_ptr<BoostChannel>, std::less<>> m_channels KX_GUARDED_BY(m_mutex);
    std::optional<Selection> m_consoleSelection KX_GUARDED_BY(m_mutex);
    std::unique_ptr<Console> m_console KX_GUARDED_BY(m_mutex);
    std::map<const Consumer*, Selection> m_consumers KX_GUARDED_BY(m_mutex);
};

} // namespace foundation::log::detail
