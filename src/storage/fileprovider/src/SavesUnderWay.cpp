#include <storage/fileprovider/src/SavesUnderWay.h>

#include <storage/fileprovider/Recovery.h>

namespace storage::fileprovider {

using foundation::core::MutexLock;
using foundation::storage::provider::StorageIRI;

SavesUnderWay& SavesUnderWay::instance() {
    // Never destroyed: a stream in a static object may end after every other static is gone.
    static auto* const saves = new SavesUnderWay;
    return *saves;
}

SavesUnderWay::Mark::Mark(const StorageIRI& file) : m_file(file) {
    instance().begin(m_file);
}

SavesUnderWay::Mark::~Mark() {
    instance().end(m_file);
}

void SavesUnderWay::begin(const StorageIRI& file) {
    const MutexLock lock(m_mutex);
    while (m_halted) {
        m_never.wait(m_mutex);
    }
    m_files.insert(file);
}

void SavesUnderWay::end(const StorageIRI& file) noexcept {
    const MutexLock lock(m_mutex);
    m_files.erase(m_files.find(file));
}

std::vector<StorageIRI> SavesUnderWay::halt() {
    const MutexLock lock(m_mutex);
    m_halted = true;
    return {m_files.begin(), m_files.end()};
}

std::vector<StorageIRI> haltSaves() {
    return SavesUnderWay::instance().halt();
}

} // namespace storage::fileprovider
