#pragma once

#include "FaultPlan.h"
#include "ForwardingByteStream.h"

#include <algorithm>

namespace kx::test {

/// A stream whose operations are counted by a plan and fail as it says. A close that is made to fail does not
/// reach the stream below.
class FaultInjectingByteStream final : public ForwardingByteStream {
public:
    using StorageIRI = foundation::storage::provider::StorageIRI;

    FaultInjectingByteStream(std::unique_ptr<ByteStream> target, std::shared_ptr<FaultPlan> plan,
                             StorageIRI location)
        : ForwardingByteStream(std::move(target)), m_plan(std::move(plan)), m_location(std::move(location)) {}

private:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        m_plan->enter(ProviderOperation::StreamRead, m_location);
        const auto limit = m_plan->readLimit();
        return ForwardingByteStream::doRead(buffer, limit > 0 ? std::min(count, limit) : count);
    }
    std::int64_t doWrite(const char* buffer, std::int64_t count) override {
        m_plan->enter(ProviderOperation::StreamWrite, m_location);
        return ForwardingByteStream::doWrite(buffer, count);
    }
    std::int64_t doSeek(std::int64_t offset, foundation::storage::provider::SeekOrigin origin) override {
        m_plan->enter(ProviderOperation::StreamSeek, m_location);
        return ForwardingByteStream::doSeek(offset, origin);
    }
    void doClose() override {
        // A stream that failed to close counts as closed.
        if (!std::exchange(m_closed, true)) {
            m_plan->enter(ProviderOperation::StreamClose, m_location);
            ForwardingByteStream::doClose();
        }
    }

    const std::shared_ptr<FaultPlan> m_plan;
    const StorageIRI m_location;
    bool m_closed = false;
};

} // namespace kx::test
