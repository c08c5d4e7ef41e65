#pragma once

#include <foundation/core/Mutex.h>
#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Vfs.h>
#include <storage/vfs/src/BundleLoader.h>
#include <storage/vfs/src/ContainerWatch.h>
#include <storage/vfs/src/WatchedStorage.h>

#include <map>
#include <memory>
#include <vector>

namespace storage::vfs {

/// The containers in use: one provider for each canonical location, and for each local file one, whatever its
/// names. Threads: any; a mount holds up the others.
class ContainerTable {
public:
    /// `bundles` must outlive the table. `localFiles` serves scheme "file", `localContainers` the local files
    /// that are containers. `watch` is told of what is done with containers.
    ContainerTable(BundleLoader& bundles,
                   std::shared_ptr<foundation::storage::provider::IProvider> localFiles,
                   std::shared_ptr<foundation::storage::provider::IProvider> localContainers,
                   std::shared_ptr<const ContainerWatch> watch);

    MountedContainer mount(const foundation::storage::provider::StorageIRI& location, Tolerance tolerance);
    foundation::storage::provider::StorageIRI
    canonicalLocation(const foundation::storage::provider::StorageIRI& location);

    /// The location under which the table knows the file at `container`, which is canonical: that of another
    /// of its names when it is mounted under that one.
    foundation::storage::provider::StorageIRI
    knownLocation(const foundation::storage::provider::StorageIRI& container);

    void markUnsaved(const foundation::storage::provider::StorageIRI& container);

    enum class Scope { Inside, SameAndInside };
    void discard(const foundation::storage::provider::StorageIRI& container);
    /// Writes what is pending, inner containers first, and lets go of the providers.
    std::vector<CloseFailure> close(const foundation::storage::provider::StorageIRI& container, Scope scope);
    std::vector<CloseFailure> closeAll();

private:
    using IRI = foundation::storage::provider::StorageIRI;

    struct Entry {
        /// The root inside the container: the key, and where a forced write starts.
        IRI root;
        /// What the provider sees of the storage around the container.
        std::shared_ptr<WatchedStorage> storage;
        MountedContainer mounted;
        bool unsaved = false;
    };

    MountedContainer mountLocked(const IRI& location, Tolerance tolerance) KX_REQUIRES(m_mutex);
    Entry makeEntry(const IRI& root, Tolerance tolerance) KX_REQUIRES(m_mutex);
    IRI canonicalLocked(const IRI& location) KX_REQUIRES(m_mutex);
    IRI knownLocked(const IRI& container) KX_REQUIRES(m_mutex);
    /// Removes and returns the entries of a scope, inner ones first.
    std::vector<Entry> take(const IRI& container, Scope scope);
    static std::vector<CloseFailure> release(std::vector<Entry> entries);

    BundleLoader& m_bundles;
    const std::shared_ptr<foundation::storage::provider::IProvider> m_localFiles;
    const std::shared_ptr<foundation::storage::provider::IProvider> m_localContainers;
    const std::shared_ptr<const ContainerWatch> m_watch;

    /// Guards the table; held while a container is opened and checked.
    foundation::core::Mutex m_mutex;
    std::map<IRI, Entry> m_entries KX_GUARDED_BY(m_mutex);
};

} // namespace storage::vfs
