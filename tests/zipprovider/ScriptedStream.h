#pragma once

#include <foundation/storage/provider/ByteStream.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace kx::test {

/// What streams over one text do, and what was asked of them.
struct StreamScript {
    std::string bytes;
    std::int64_t longestRead = std::numeric_limits<std::int64_t>::max();
    bool failReads = false;
    bool failSeeks = false;
    bool failWrites = false;
    bool failClose = false;
    /// Reads from there on fail.
    std::int64_t unreadableFrom = std::numeric_limits<std::int64_t>::max();

    int reads = 0;
    int seeks = 0;
    /// How many of the seeks went to a place that counts from the end.
    int seeksFromEnd = 0;
    int closes = 0;
    int alive = 0;
};

/// A stream over a text in memory that fails when its script says so.
class ScriptedStream final : public foundation::storage::provider::ByteStream {
    using SeekOrigin = foundation::storage::provider::SeekOrigin;

public:
    explicit ScriptedStream(std::shared_ptr<StreamScript> script) : m_script(std::move(script)) {
        ++m_script->alive;
    }
    ~ScriptedStream() override { --m_script->alive; }

protected:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        ++m_script->reads;
        const auto size = static_cast<std::int64_t>(m_script->bytes.size());
        const auto got =
            std::min({count, std::max<std::int64_t>(0, size - m_position), m_script->longestRead});
        if (m_script->failReads || m_position + got > m_script->unreadableFrom) {
            throw std::runtime_error("cannot read: scripted");
        }
        std::memcpy(buffer, m_script->bytes.data() + std::min(m_position, size),
                    static_cast<std::size_t>(got));
        m_position += got;
        return got;
    }

    std::int64_t doWrite(const char* buffer, std::int64_t count) override {
        if (m_script->failWrites) {
            throw std::runtime_error("cannot write: scripted");
        }
        const auto end = static_cast<std::size_t>(m_position + count);
        m_script->bytes.resize(std::max(m_script->bytes.size(), end));
        m_script->bytes.replace(static_cast<std::size_t>(m_position), static_cast<std::size_t>(count), buffer,
                                static_cast<std::size_t>(count));
        m_position += count;
        return count;
    }

    std::int64_t doSeek(std::int64_t offset, SeekOrigin origin) override {
        ++m_script->seeks;
        m_script->seeksFromEnd += origin == SeekOrigin::End ? 1 : 0;
        const auto base = origin == SeekOrigin::Begin     ? 0
                          : origin == SeekOrigin::Current ? m_position
                                                          : static_cast<std::int64_t>(m_script->bytes.size());
        if (m_script->failSeeks || base + offset < 0) {
            throw std::runtime_error("cannot seek: scripted");
        }
        return m_position = base + offset;
    }

    void doClose() override {
        ++m_script->closes;
        if (m_script->failClose) {
            throw std::runtime_error("cannot close: scripted");
        }
    }

private:
    std::shared_ptr<StreamScript> m_script;
    std::int64_t m_position = 0;
};

} // namespace kx::test
