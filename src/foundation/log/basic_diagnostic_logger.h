#pragma once

#include <foundation/log/Export.h>
#include <foundation/log/severity.h>

#include <atomic>
#include <string>
#include <string_view>
#include <utility>

namespace foundation::log {

namespace detail {

/// A channel lives as long as the process, so a logger may be used from any static's destructor.
struct Channel {
    explicit Channel(std::string channelName) : name(std::move(channelName)) {}

    const std::string name;
    // Read by every logging statement without a lock: a statement that runs while logging is switched may go
    // either way. 0 while the channel is off, else the severity of the most detailed records that anyone
    // wants.
    std::atomic<int> threshold{0};
};

} // namespace detail

/// Where the records of one class go: a channel, named by the class's full name. Make one a class and log
/// through the macros of <foundation/log/log.h>.
///
/// Cheap to copy; loggers of one name share the channel. Threads: any.
class KXFOUNDATION_LOG_API basic_diagnostic_logger {
public:
    explicit basic_diagnostic_logger(std::string_view channel);

    const std::string& channel() const noexcept { return m_channel->name; }

    /// Whether anyone wants records of that severity: one atomic read.
    bool enabled(severity level) const noexcept {
        return m_channel->threshold.load(std::memory_order_relaxed) >= static_cast<int>(level);
    }

private:
    friend class Record;
    friend class FunctionScope;

    detail::Channel* m_channel;
};

} // namespace foundation::log
