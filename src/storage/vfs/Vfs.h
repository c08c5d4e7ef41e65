#pragma once

#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <foundation/storage/provider/StorageItem.h>
#include <storage/vfs/ArchiveDirectory.h>
#include <storage/vfs/EntryPlaces.h>
#include <storage/vfs/Export.h>
#include <storage/vfs/SaveProgress.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace storage::vfs {

/// Whether a damaged container may be used.
enum class Tolerance {
    /// Damage is an error. What changes a container must ask for this.
    Sound,
    /// A damaged container is handed out to be read as far as it goes; MountedContainer says what is wrong.
    Damaged,
};

/// Who serves the locations of one container.
struct MountedContainer {
    /// Never null.
    std::shared_ptr<foundation::storage::provider::IProvider> provider;
    /// The container's own location in canonical form; empty for the local files.
    foundation::storage::provider::StorageIRI container;
    /// What the container's records say. Sound for the local files and for formats that are not checked.
    ArchiveSummary summary;
    /// Normalised paths ("/a/b") of entries stored under an absolute name, in order. Null where not looked
    /// for.
    std::shared_ptr<const std::vector<fl::i18n::ustring>> absoluteEntries;
    /// Where the files lie in the container. Null where their order makes no difference: for the local files,
    /// for formats that are not checked, and for a container inside another, which is read from a copy that
    /// was just made.
    std::shared_ptr<const EntryPlaces> places;
};

/// One provider bundle that was looked at.
struct BundleReport {
    std::filesystem::path file;
    /// Empty where the bundle could not be loaded.
    std::string symbolicName;
    /// Why it was not loaded; empty for a loaded one.
    std::string problem;
};

/// A container that could not be written, and why.
struct CloseFailure {
    foundation::storage::provider::StorageIRI container;
    /// The failure's text.
    std::string cause;
    std::exception_ptr error;
};

/// The host's front to all storage: from a location to the provider that serves it.
///
/// Scheme "file" is built in. The schemes of container formats are served by bundles, which are loaded when
/// the first such location is asked for. There is one provider for a container however it is spelled
/// (symbolic and hard links, doubled slashes, percent-encoding); a container inside a container is read
/// through the outer one's provider.
///
/// A ZIP container's records are checked before it is handed out, since a provider that could not read all of
/// it would lose the rest when it writes.
///
/// Lifetime: the code of the bundles is unloaded with the object; what came from it (providers, streams,
/// iterators) must be gone before. Threads: all operations may be called from several threads.
class KXVFS_API Vfs {
public:
    struct Options {
        /// Folder trees to look for bundles in, in order; where empty, those of the environment variable
        /// KXVFS_PROVIDERS (separated by ":"), and without it the folder "vfs/provider" beside this library.
        std::vector<std::filesystem::path> bundleFolders;
        /// Serves scheme "file"; the local files where null.
        std::shared_ptr<foundation::storage::provider::IProvider> localFiles;
        /// Whether local files that are written through the front wait for the storage medium. Without it
        /// they survive the end of the process, but may be lost with the system, as with any tool that copies
        /// files; containers are always saved durably.
        bool durableFiles = true;
        /// Told about bundles that could not be loaded, one message each. Messages are dropped where empty.
        std::function<void(const std::string& message)> warn;
    };

    Vfs();
    explicit Vfs(Options options);
    /// Closes all containers as closeAll does; failures are logged only.
    ~Vfs();

    Vfs(const Vfs&) = delete;
    Vfs& operator=(const Vfs&) = delete;

    /// The provider of a location, its container checked.
    /// Errors, as Exception: InvalidArgument when no provider serves the scheme; NotFound (with the
    /// container's location) for a missing container; ContainerUnreadable for a container that is "not a ZIP
    /// archive" or, unless `tolerance` is Damaged, a "damaged ZIP archive"; those of the outer providers.
    MountedContainer mount(const foundation::storage::provider::StorageIRI& location,
                           Tolerance tolerance = Tolerance::Sound);

    /// The one spelling of a location that stands for all of its spellings. The item need not exist; the
    /// containers around it must. Errors: as mount with Tolerance::Damaged.
    foundation::storage::provider::StorageIRI
    canonicalLocation(const foundation::storage::provider::StorageIRI& location);

    /// The item at a location. Errors: as mount.
    foundation::storage::provider::StorageItem item(const foundation::storage::provider::StorageIRI& location,
                                                    Tolerance tolerance = Tolerance::Sound);

    /// Whether `file` holds a container that mount would hand out, judged by its contents; an empty file does
    /// not count. Errors: those of the provider that serves the file.
    bool isContainer(const foundation::storage::provider::StorageIRI& file);

    /// Makes an empty archive at `location` by writing its end record.
    /// Errors: AlreadyExists; those of the provider that serves the location. Nothing is left there then.
    void createArchive(const foundation::storage::provider::StorageIRI& location);

    /// Writes what is pending in a container and in those inside it, innermost first, and releases their
    /// providers. A location that is not mounted is no error. Errors: the failure of the write; the container
    /// is released all the same, and what could not be written is lost when its last user goes.
    void close(const foundation::storage::provider::StorageIRI& container);
    /// The same for everything that is mounted; all are closed whatever fails.
    std::vector<CloseFailure> closeAll();

    /// Has a new write of `container`, whose last one failed, forced when it is closed. A provider that can
    /// be flushed knows by itself what is pending; this is for the others.
    void markUnsaved(const foundation::storage::provider::StorageIRI& container);
    /// Gives up `container` and those inside it: their providers are dropped and cut off from what they were
    /// to write. What they hold unsaved is lost, and who still holds one of them can do nothing with it. For
    /// a container whose last write failed and is not to be tried again.
    void discard(const foundation::storage::provider::StorageIRI& container);
    /// Drops the providers of `container` and of those inside it, so that they are made and read again when
    /// they are next asked for. What is pending in them is written first; what could not be is returned. Who
    /// still holds one of them must not change anything through it any more: it refuses or, where it does not
    /// notice, loses what others changed.
    std::vector<CloseFailure> forget(const foundation::storage::provider::StorageIRI& container);
    /// The same for the containers inside `container` only: their bytes were written anew.
    std::vector<CloseFailure> forgetInside(const foundation::storage::provider::StorageIRI& container);

    /// Has `callback` told of what providers read from and write to their containers, until it is replaced;
    /// an empty one ends it, and no call follows the return. One at a time for the whole front.
    void watchContainers(SaveProgressCallback callback);

    /// The bundles looked at; loads them. Never throws for a bundle that cannot be loaded.
    std::vector<BundleReport> bundles();
    /// The schemes served, in alphabetical order; loads the bundles.
    std::vector<std::string> schemes();
    /// Which component runtime runs the bundles, in words.
    static std::string componentRuntime();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace storage::vfs
