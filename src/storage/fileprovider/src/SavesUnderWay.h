#pragma once

#include <foundation/core/Mutex.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <set>
#include <vector>

namespace storage::fileprovider {

/// The files whose saves this process has under way: those for which it may have made working files. Threads:
/// any.
class SavesUnderWay {
public:
    static SavesUnderWay& instance();

    /// Stands for one save, from before its first working file is made until after its last one is gone.
    class Mark {
    public:
        /// After halt(), the calling thread stops here for good.
        explicit Mark(const foundation::storage::provider::StorageIRI& file);
        ~Mark();
        Mark(const Mark&) = delete;
        Mark& operator=(const Mark&) = delete;

    private:
        const foundation::storage::provider::StorageIRI& m_file;
    };

    /// Lets no further save begin, and tells which have begun.
    std::vector<foundation::storage::provider::StorageIRI> halt();

private:
    using IRI = foundation::storage::provider::StorageIRI;

    void begin(const IRI& file);
    void end(const IRI& file) noexcept;

    foundation::core::Mutex m_mutex;
    foundation::core::ConditionVariable m_never;
    std::multiset<IRI> m_files KX_GUARDED_BY(m_mutex);
    bool m_halted KX_GUARDED_BY(m_mutex) = false;
};

} // namespace storage::fileprovider
