#include <storage/mount/src/Contents.h>

#include <storage/mount/src/SystemFailure.h>

#include <foundation/storage/provider/Exception.h>

#include <cerrno>
#include <vector>

namespace storage::mount {

using namespace foundation::storage::provider;
using foundation::core::MutexLock;

namespace {

constexpr int attempts = 8;
constexpr std::size_t blockSize = std::size_t{256} << 10;
/// Each takes a thread, and may wait for a save; the others answer programs meanwhile.
constexpr int mostReadingAhead = 4;

} // namespace

Contents::Contents(Tree& tree, WorkingSpace& space) : m_tree(tree), m_space(space) {}

void Contents::startEmpty(Node& file) {
    const MutexLock lock(file.body->mutex);
    file.body->local = std::make_unique<LocalContent>(m_space);
}

std::size_t Contents::read(Node& file, std::uint64_t offset, char* buffer, std::size_t count) {
    auto& body = *file.body;
    const MutexLock lock(body.mutex);
    body.fetched = true;
    if (body.local)
        return body.local->read(offset, buffer, count);
    if (!body.reading)
        openReading(file, body);
    const auto wanted = static_cast<std::int64_t>(offset);
    if (body.position != wanted)
        body.position = body.reading->seek(wanted, SeekOrigin::Begin);
    std::size_t done = 0;
    while (done < count) {
        const auto got = body.reading->read(buffer + done, static_cast<std::int64_t>(count - done));
        if (got <= 0)
            break;
        done += static_cast<std::size_t>(got);
        body.position += got;
    }
    return done;
}

void Contents::readAhead(Node& file) noexcept {
    if (m_readingAhead++ < mostReadingAhead) {
        try {
            auto& body = *file.body;
            const MutexLock lock(body.mutex);
            if (!body.local && !body.reading && !body.fetched && isOpen(file))
                openReading(file, body);
        } catch (...) {
            // Whoever reads is told.
        }
    }
    --m_readingAhead;
}

bool Contents::isOpen(const Node& file) const {
    const MutexLock lock(m_tree.mutex);
    return file.openers > 0 && file.size > 0;
}

void Contents::openReading(Node& file, FileBody& body) {
    body.fetched = true;
    for (int attempt = 0;; ++attempt) {
        std::string path;
        {
            const MutexLock lock(m_tree.mutex);
            if (!file.linked)
                failWith(ESTALE);
            path = Tree::pathOf(file);
        }
        try {
            body.reading = file.backing->provider->openReadStream(file.backing->at(path));
            body.position = 0;
            return;
        } catch (const Exception& failure) {
            // It may have been moved in between.
            if (failure.getErrorCode() != ErrorCode::NotFound || attempt >= attempts)
                throw;
        }
    }
}

LocalContent& Contents::makeLocal(Node& file, FileBody& body, bool empty) {
    if (body.local) {
        body.fetched = false;
        return *body.local;
    }
    auto local = std::make_unique<LocalContent>(m_space);
    bool hasBytes = false;
    {
        const MutexLock lock(m_tree.mutex);
        hasBytes = file.size > 0;
    }
    if (!empty && hasBytes) {
        if (!body.reading)
            openReading(file, body);
        body.reading->seek(0, SeekOrigin::Begin);
        local->fillFrom(*body.reading);
    }
    body.reading.reset();
    body.local = std::move(local);
    body.fetched = false;
    return *body.local;
}

void Contents::write(const NodePtr& file, std::uint64_t offset, const char* data, std::size_t count) {
    auto& body = *file->body;
    const MutexLock lock(body.mutex);
    auto& local = makeLocal(*file, body, false);
    try {
        local.write(offset, data, count);
    } catch (...) {
        changed(file, local.size());
        throw;
    }
    changed(file, local.size());
}

void Contents::resize(const NodePtr& file, std::uint64_t size) {
    auto& body = *file->body;
    const MutexLock lock(body.mutex);
    auto& local = makeLocal(*file, body, size == 0);
    local.resize(size);
    changed(file, size);
}

void Contents::extend(const NodePtr& file, std::uint64_t size) {
    auto& body = *file->body;
    const MutexLock lock(body.mutex);
    auto& local = makeLocal(*file, body, false);
    if (size > local.size())
        local.resize(size);
    changed(file, local.size());
}

void Contents::clear(const NodePtr& file, std::uint64_t offset, std::uint64_t count) {
    auto& body = *file->body;
    const MutexLock lock(body.mutex);
    auto& local = makeLocal(*file, body, false);
    local.clear(offset, count);
    changed(file, local.size());
}

void Contents::changed(const NodePtr& file, std::uint64_t size) {
    const MutexLock lock(m_tree.mutex);
    file->size = size;
    file->modified = file->changed = currentTime();
    if (!file->linked)
        return;
    m_tree.dropView(*file);
    if (!file->dirty)
        m_tree.markDirty(file);
}

void Contents::keepReadable(Node& file) {
    auto& body = *file.body;
    const MutexLock lock(body.mutex);
    if (!body.local && !body.reading)
        openReading(file, body);
}

void Contents::copyTo(Node& file, ByteStream& target) {
    auto& body = *file.body;
    const MutexLock lock(body.mutex);
    if (body.local) {
        body.local->copyTo(target);
        return;
    }
    if (!body.reading)
        openReading(file, body);
    auto& source = *body.reading;
    body.position = source.seek(0, SeekOrigin::Begin);
    std::vector<char> buffer(blockSize);
    for (;;) {
        const auto got = source.read(buffer.data(), static_cast<std::int64_t>(buffer.size()));
        if (got <= 0)
            return;
        target.write(buffer.data(), got);
        body.position += got;
    }
}

void Contents::release(Node& file) {
    const MutexLock lock(file.body->mutex);
    {
        const MutexLock treeLock(m_tree.mutex);
        if (file.openers > 0 || file.dirty || file.beingStored)
            return;
    }
    file.body->reading.reset();
    file.body->local.reset();
}

} // namespace storage::mount
