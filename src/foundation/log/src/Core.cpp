#include "Core.h"

#include <foundation/log/indent_attribute.h>

#include <boost/core/null_deleter.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/attributes/function.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/log/utility/formatting_ostream.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iomanip>
#include <iostream>
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

/// Records of a host's own loggers have another type of severity, and are not for our sinks.
auto filterOf(Selection selection) {
    return [selection = std::move(selection)](const boost::log::attribute_value_set& values) {
        const auto level = boost::log::extract<severity>(severityName, values);
        const auto channel = boost::log::extract<std::string>(channelName, values);
        return level && channel && level.get() <= selection.level && selection.selects(channel.get());
    };
}

bool filterNone(const boost::log::attribute_value_set&) {
    return false;
}

/// Control characters would break the line up, or order the terminal about.
void writePrintable(boost::log::formatting_ostream& out, const std::string& text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            constexpr const char* digits = "0123456789abcdef";
            out << "\\x" << digits[byte >> 4] << digits[byte & 0xF];
        } else {
            out << c;
        }
    }
}

void formatLine(const boost::log::record_view& record, boost::log::formatting_ostream& out) {
    if (const auto time = boost::log::extract<boost::posix_time::ptime>(timeName, record)) {
        out << boost::posix_time::to_iso_extended_string(time.get()) << "Z ";
    }
    if (const auto thread = boost::log::extract<attrs::current_thread_id::value_type>(threadName, record)) {
        out << thread.get() << ' ';
    }
    const auto level = boost::log::extract<severity>(severityName, record);
    out << (level && level.get() == severity::debug ? "debug " : "info  ");
    if (const auto channel = boost::log::extract<std::string>(channelName, record)) {
        out << channel.get() << ": ";
    }
    if (const auto indent = boost::log::extract<unsigned>(indentName, record)) {
        out << std::string(std::size_t{2} * indent.get(), ' ');
    }
    if (const auto text = boost::log::extract<std::string>(messageName, record)) {
        writePrintable(out, text.get());
    }
}

class ConsumerBackend : public sinks::basic_sink_backend<sinks::synchronized_feeding> {
public:
    explicit ConsumerBackend(RecordConsumer consumer) : m_consumer(std::move(consumer)) {}

    void consume(const boost::log::record_view& record) {
        const auto channel = boost::log::extract<std::string>(channelName, record);
        const auto level = boost::log::extract<severity>(severityName, record);
        const auto indent = boost::log::extract<unsigned>(indentName, record);
        const auto text = boost::log::extract<std::string>(messageName, record);
        if (channel && level && indent && text) {
            m_consumer({channel.get(), level.get(), indent.get(), text.get()});
        }
    }

private:
    RecordConsumer m_consumer;
};

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

struct Core::Console {
    boost::shared_ptr<sinks::synchronous_sink<sinks::text_ostream_backend>> sink;
};

class Core::Consumer {
public:
    Consumer(const Selection& selection, RecordConsumer consumer)
        : m_sink(boost::make_shared<Sink>(boost::make_shared<ConsumerBackend>(std::move(consumer)))) {
        m_sink->set_filter(filterOf(selection));
        boost::log::core::get()->add_sink(m_sink);
    }
    Consumer(const Consumer&) = delete;
    Consumer& operator=(const Consumer&) = delete;
    ~Consumer() {
        Core& core = instance();
        const MutexLock lock(core.m_mutex);
        core.m_consumers.erase(this);
        core.refreshAllThresholds();
        boost::log::core::get()->remove_sink(m_sink);
        // Waits for a record that is being consumed at this moment.
        m_sink->locked_backend();
    }

private:
    using Sink = sinks::synchronous_sink<ConsumerBackend>;

    boost::shared_ptr<Sink> m_sink;
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
        requireConsole();
        m_console->sink->set_filter(filterOf(*selection));
    } else if (m_console) {
        m_console->sink->set_filter(&filterNone);
    }
    m_consoleSelection = std::move(selection);
    refreshAllThresholds();
}

std::shared_ptr<void> Core::addConsumer(Selection selection, RecordConsumer consumer) {
    const MutexLock lock(m_mutex);
    requireConsole();
    auto added = std::make_shared<Consumer>(selection, std::move(consumer));
    m_consumers.emplace(added.get(), std::move(selection));
    refreshAllThresholds();
    return added;
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

void Core::requireConsole() {
    if (m_console) {
        return;
    }
    auto backend = boost::make_shared<sinks::text_ostream_backend>();
    backend->add_stream(boost::shared_ptr<std::ostream>(&std::cerr, boost::null_deleter()));
    backend->auto_flush(true);
    auto console = std::make_unique<Console>();
    console->sink = boost::make_shared<sinks::synchronous_sink<sinks::text_ostream_backend>>(backend);
    console->sink->set_filter(&filterNone);
    console->sink->set_formatter(&formatLine);
    boost::log::core::get()->add_sink(console->sink);
    // It stays for good: while Boost.Log has no sink, its default one writes to standard output, which a
    // record on its way at the moment of switching off would reach.
    m_console = std::move(console);
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
    if (m_consoleSelection) {
        want(*m_consoleSelection);
    }
    for (const auto& [consumer, selection] : m_consumers) {
        want(selection);
    }
    channel.threshold.store(threshold, std::memory_order_relaxed);
}

} // namespace foundation::log::detail
