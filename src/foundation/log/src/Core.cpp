#include "Core.h"

#include "ConsoleLine.h"

#include <foundation/log/indent_attribute.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/attributes/function.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <utility>

namespace foundation::log::detail {

namespace {

namespace attrs = boost::log::attributes;
namespace sinks = boost::log::sinks;

using foundation::core::MutexLock;

// The names that Boost.Log's own severity and channel sources use, and ours beside them.
constexpr const char* severityName = "Severity";
constexpr const char* channelName = "Channel";
constexpr const char* indentName = "Indent";
constexpr const char* timeName = "TimeStamp";
constexpr const char* threadName = "ThreadID";
constexpr const char* messageName = "Message";

/// Records of a host's own loggers have another type of severity, and are not for our sink.
bool isOurs(const boost::log::attribute_value_set& values) {
    return !boost::log::extract<severity>(severityName, values).empty();
}

template <typename T>
std::string streamed(const T& value) {
    std::ostringstream out;
    out << value;
    return std::move(out).str();
}

} // namespace

struct Core::BoostChannel : Channel {
    explicit BoostChannel(const std::string& channelOfSource)
        : Channel(channelOfSource), source(boost::log::keywords::channel = channelOfSource) {
        source.add_attribute(indentName, attrs::make_function(&indent_attribute::current));
        source.add_attribute(timeName, attrs::utc_clock());
        source.add_attribute(threadName, attrs::current_thread_id());
    }

    boost::log::sources::severity_channel_logger_mt<severity> source;
};

class Core::SinkBackend : public sinks::basic_sink_backend<sinks::concurrent_feeding> {
public:
    static void consume(const boost::log::record_view& record) {
        const auto channel = boost::log::extract<std::string>(channelName, record);
        const auto level = boost::log::extract<severity>(severityName, record);
        const auto indent = boost::log::extract<unsigned>(indentName, record);
        const auto text = boost::log::extract<std::string>(messageName, record);
        const auto time = boost::log::extract<boost::posix_time::ptime>(timeName, record);
        const auto thread = boost::log::extract<attrs::current_thread_id::value_type>(threadName, record);
        if (channel && level && indent && text && time && thread) {
            instance().deliver({channel.get(), level.get(), indent.get(), text.get(),
                                boost::posix_time::to_iso_extended_string(time.get()) + 'Z',
                                streamed(thread.get())});
        }
    }
};

Core& Core::instance() {
    static Core& theCore = *new Core;
    return theCore;
}

Core::Core() {
    const char* const text = std::getenv("KX_LOG");
    if (text == nullptr) {
        return;
    }
    try {
        setConsole(parseSelection(text));
    } catch (const std::exception& failure) {
        std::cerr << "KX_LOG: " << failure.what() << '\n';
    }
}

Channel& Core::channel(std::string_view name) {
    const MutexLock lock(m_mutex);
    auto found = m_channels.find(name);
    if (found == m_channels.end()) {
        std::string key(name);
        auto made = std::make_unique<BoostChannel>(key);
        found = m_channels.emplace(std::move(key), std::move(made)).first;
        refreshThreshold(*found->second);
    }
    return *found->second;
}

void Core::setConsole(std::optional<Selection> selection) {
    const MutexLock lock(m_mutex);
    if (selection) {
        joinBoostCore();
    }
    m_console = std::move(selection);
    refreshAllThresholds();
}

void Core::addConsumer(Selection selection, RecordConsumer& consumer) {
    const MutexLock lock(m_mutex);
    joinBoostCore();
    m_consumers.emplace(&consumer, std::move(selection));
    refreshAllThresholds();
}

void Core::removeConsumer(RecordConsumer& consumer) {
    const MutexLock lock(m_mutex);
    m_consumers.erase(&consumer);
    refreshAllThresholds();
}

void Core::emit(Channel& channel, severity level, const std::string& text) noexcept {
    try {
        auto& source = static_cast<BoostChannel&>(channel).source;
        if (auto record = source.open_record(boost::log::keywords::severity = level)) {
            boost::log::record_ostream out(record);
            out << text;
            out.flush();
            source.push_record(std::move(record));
        }
    } catch (...) {
        // A diagnostic that cannot be written must not change what the program does.
    }
}

void Core::deliver(const EmittedRecord& record) {
    const auto wantedBy = [&record](const Selection& selection) {
        return record.level <= selection.level && selection.selects(record.channel);
    };
    const MutexLock lock(m_mutex);
    if (m_console && wantedBy(*m_console)) {
        std::cerr << consoleLine(record) << std::flush;
    }
    for (const auto& [consumer, selection] : m_consumers) {
        if (wantedBy(selection)) {
            consumer->consume(record);
        }
    }
}

void Core::joinBoostCore() {
    if (m_joined) {
        return;
    }
    auto sink = boost::make_shared<sinks::unlocked_sink<SinkBackend>>();
    sink->set_filter(&isOurs);
    // For good: while Boost.Log has no sink, its default one writes to standard output, which a record that
    // is on its way when logging is switched off would reach.
    boost::log::core::get()->add_sink(sink);
    m_joined = true;
}

void Core::refreshAllThresholds() {
    for (const auto& [name, channel] : m_channels) {
        refreshThreshold(*channel);
    }
}

void Core::refreshThreshold(Channel& channel) {
    int threshold = 0;
    const auto want = [&](const Selection& selection) {
        if (selection.selects(channel.name)) {
            threshold = std::max(threshold, static_cast<int>(selection.level));
        }
    };
    if (m_console) {
        want(*m_console);
    }
    for (const auto& [consumer, selection] : m_consumers) {
        want(selection);
    }
    channel.threshold.store(threshold, std::memory_order_relaxed);
}

} // namespace foundation::log::detail
