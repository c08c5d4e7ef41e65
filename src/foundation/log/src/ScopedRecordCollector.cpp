#include "Core.h"

#include <foundation/log/ScopedRecordCollector.h>

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <utility>

namespace foundation::log {

struct ScopedRecordCollector::Impl final : detail::RecordConsumer {
    void consume(const detail::EmittedRecord& record) override {
        const core::MutexLock lock(mutex);
        collected.push_back({record.channel, record.level, record.indent, record.text});
    }

    core::Mutex mutex;
    std::vector<CollectedRecord> collected KX_GUARDED_BY(mutex);
};

ScopedRecordCollector::ScopedRecordCollector(severity level, std::vector<std::string> channels)
    : m_impl(std::make_unique<Impl>()) {
    detail::Core::instance().addConsumer({level, std::move(channels)}, *m_impl);
}

ScopedRecordCollector::~ScopedRecordCollector() {
    detail::Core::instance().removeConsumer(*m_impl);
}

std::vector<CollectedRecord> ScopedRecordCollector::records() const {
    const core::MutexLock lock(m_impl->mutex);
    return m_impl->collected;
}

std::vector<std::string> ScopedRecordCollector::texts() const {
    std::vector<std::string> all;
    for (CollectedRecord& record : records()) {
        all.push_back(std::move(record.text));
    }
    return all;
}

} // namespace foundation::log
