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

/// A record on its way to those who want it.
struct EmittedRecord {
    const std::string& channel;
    severity level;
    unsigned indent;
    const std::string& text;
    /// In UTC, as "2024-06-01T12:00:00.000000Z".
    std::string time;
    std::string thread;
};

class RecordConsumer {
public:
    virtual void consume(const EmittedRecord& record) = 0;

protected:
    ~RecordConsumer() = default;
};

/// The channels, and who wants which of their records. Records travel through Boost.Log's core, so that a
/// host that uses Boost.Log has its own sinks see them as well; this library has one sink there, which serves
/// all who want some. It joins at the first one and stays. Threads: any.
class Core {
public:
    /// Made at the first use, when KX_LOG is read, and never destroyed: destructors of statics still log.
    static Core& instance();

    /// The channel of that name, the same object each time.
    Channel& channel(std::string_view name);

    /// What goes to standard error; nothing without a selection.
    void setConsole(std::optional<Selection> selection);

    /// Has `consumer` called with each record selected, one at a time, until it is removed. It must not log.
    void addConsumer(Selection selection, RecordConsumer& consumer);
    /// The consumer is not called any more once this has returned.
    void removeConsumer(RecordConsumer& consumer);

    /// Hands a record to whoever wants it.
    static void emit(Channel& channel, severity level, const std::string& text) noexcept;

private:
    struct BoostChannel;
    class SinkBackend;

    Core();
    ~Core() = delete;

    void deliver(const EmittedRecord& record);
    void joinBoostCore() KX_REQUIRES(m_mutex);
    void refreshAllThresholds() KX_REQUIRES(m_mutex);
    void refreshThreshold(Channel& channel) KX_REQUIRES(m_mutex);

    foundation::core::Mutex m_mutex;
    std::map<std::string, std::unique_ptr<BoostChannel>, std::less<>> m_channels KX_GUARDED_BY(m_mutex);
    std::optional<Selection> m_console KX_GUARDED_BY(m_mutex);
    std::map<RecordConsumer*, Selection> m_consumers KX_GUARDED_BY(m_mutex);
    bool m_joined KX_GUARDED_BY(m_mutex) = false;
};

} // namespace foundation::log::detail
