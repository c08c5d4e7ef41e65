#include "Core.h"

#include <foundation/log/ScopedRecordCollector.h>

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <utility>

namespace foundation::log {

struct ScopedRecordCollector::Impl {
    void collect(const detail::EmittedRecord& record) {
        const core::MutexLock lock(mutex);
        collected.push_back({record.channel, record.level, record.indent, record.text});
    }

    mutable core::Mutex mutex;
    std::vector<CollectedRecord> collected KX_GUARDED_BY(mutex);
    // Last, so that nothing is collected into members that are gone.
    std::shared_ptr<void> registration;
};

ScopedRecordCollector::ScopedRecordCollector(severity level, std::vector<std::string> channels)
    : m_impl(std::make_unique<Impl>()) {
    m_impl->registration = detail::Core::instance().addConsumer(
        {level, std::move(channels)}, [impl = m_impl.get()](const auto& record) { impl->collect(record); });
}

ScopedRecordCollector::~ScopedRecordCollector() = default;

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
