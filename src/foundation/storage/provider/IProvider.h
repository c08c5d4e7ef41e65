#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/ChangeEvent.h>
#include <foundation/storage/provider/Export.h>
#include <foundation/storage/provider/Feature.h>
#include <foundation/storage/provider/FileAttributes.h>
#include <foundation/storage/provider/FolderAttributes.h>
#include <foundation/storage/provider/IFolderEntryIterator.h>
#include <foundation/storage/provider/MoveOption.h>
#include <foundation/storage/provider/ProviderInfo.h>
#include <foundation/storage/provider/StorageIRI.h>

#include <chrono>
#include <memory>
#include <vector>

namespace foundation::storage::provider {

namespace detail {
class ChangePoller;
}

/// Storage of one kind (the local files, the contents of one archive) as a tree of folders and files.
///
/// A host calls the public operations; a provider overrides the virtual ones. Those without a default are the
/// core; the defaults build everything else on the core, so that every provider has it. A provider overrides
/// a default where it can do better.
///
/// Locations are StorageIRIs of the provider's scheme; their resolved path counts. Wildcard patterns match
/// one name: `*` any text, `?` one character, `[a-c]` and `[!a-c]` one character in or outside a set ("]" as
/// its first member and "-" at either end stand for themselves); letter case matters, and a character outside
/// the basic plane is one character. A malformed pattern (a set without an end, a range upside down) is
/// ErrorCode::InvalidArgument.
///
/// Errors: failures are thrown as Exception, whose code and IRI each operation names; the core's own failures
/// pass through the defaults. A failed operation changes nothing unless it says otherwise.
/// Ownership: what is returned by std::unique_ptr is the caller's and never null. Streams and iterators may
/// outlive the provider; a transactional stream keeps a provider that is owned by std::shared_ptr alive, and
/// must be closed or destroyed before a provider that is owned otherwise.
/// Threads: every operation may be called from several threads at once.
///
/// Providers: a class from which no other derives calls endChangePolling() first in its destructor. The
/// polling thread calls virtual operations; without that call it may meet an object of which only this base
/// is left, and the program ends with "pure virtual method called" or worse, once in a long while.
///
/// The order of the virtual operations is part of the binary interface. Adding one: at the end, with its
/// public forwarder here, and forwarders in ForwardingProvider of the tests.
class KXFLSTORAGEPROVIDER_API IProvider : public std::enable_shared_from_this<IProvider> {
public:
    virtual ~IProvider();

    IProvider(const IProvider&) = delete;
    IProvider& operator=(const IProvider&) = delete;

    // --- files and folders

    /// Makes an empty file. Errors: AlreadyExists for a file or folder of that name; NotFound when the folder
    /// it would stand in is missing; NotWritable.
    void createFile(const StorageIRI& location);
    /// Makes an empty folder. Errors: as createFile.
    void createFolder(const StorageIRI& location);
    /// Makes the folder and every missing folder above it; an existing folder is no error.
    /// Errors: AlreadyExists where a file stands in the way; NotWritable. After a failure some of the folders
    /// above may have been made.
    void createFolderRecursive(const StorageIRI& location);
    /// Whether a file is there; a missing parent is no error.
    bool isFile(const StorageIRI& location);
    /// Whether a folder is there; true for the root.
    bool isFolder(const StorageIRI& location);
    /// Errors: NotFound when there is no such file; NotWritable.
    void removeFile(const StorageIRI& location);
    /// Moves or renames a file. Errors: AlreadyExists (for the destination) where a folder of the
    /// destination's name exists, or a file and `option` does not replace; NotFound for a missing source or
    /// destination folder; NotWritable.
    void moveFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option);
    /// Removes an empty folder. Errors: FolderNotEmpty; NotFound; NotWritable.
    void removeFolder(const StorageIRI& location);
    /// Removes a folder and all below it. Errors: NotFound; NotWritable. After a failure some of it may be
    /// gone.
    void removeFolderRecursively(const StorageIRI& location);
    /// Moves or renames a folder with all below it. Errors: as moveFile; NotFound when the destination lies
    /// in the folder itself.
    void moveFolder(const StorageIRI& source, const StorageIRI& destination, MoveOption option);

    // --- attributes

    /// Errors: NotFound when there is no such file.
    FileAttributes getFileAttributes(const StorageIRI& location);
    /// Errors: NotFound when there is no such folder. The root always has attributes.
    FolderAttributes getFolderAttributes(const StorageIRI& location);

    // --- streams

    /// Opens a file for writing. Errors: NotFound when the folder is missing, or the file and the options
    /// require it; AlreadyExists where a folder of that name exists; NotWritable.
    std::unique_ptr<ByteStream> openStream(const StorageIRI& location, const ByteStreamOpenOptions& options);
    /// Opens a file for reading. Errors: NotFound; ContainerUnreadable where the format's data is damaged.
    std::unique_ptr<ByteStream> openReadStream(const StorageIRI& location);
    /// Opens a file for writing so that the destination shows the contents only once the stream is closed:
    /// the bytes go to a local temporary file and are put in place by close(). With options that keep
    /// contents, the temporary file starts with them. A stream destroyed without close() leaves the
    /// destination as it was. Errors: as openStream; close() reports what failed in putting them in place.
    std::unique_ptr<ByteStream> openTransactionalStream(const StorageIRI& location,
                                                        const ByteStreamOpenOptions& options);
    /// As openTransactionalStream, but the bytes are written to a new file with a unique name in the folder
    /// `scratchFolder` of this same provider, and close() moves it to the destination. The scratch file is
    /// removed when the stream is destroyed without close() or close() fails.
    /// Errors: NotFound for a missing scratch folder.
    std::unique_ptr<ByteStream>
    openTransactionalStreamAtScratchLocation(const StorageIRI& location, const StorageIRI& scratchFolder,
                                             const ByteStreamOpenOptions& options);

    // --- listings: files and folders ("all"), files, folders; in the provider's order of names

    // Errors of all listings: NotFound when there is no such folder; InvalidArgument for a malformed pattern.
    // An iterator walks a snapshot; names come as a vector in the same order.

    /// Files and folders of one folder. "Wildcards": those whose name matches; "NamesOnly": their names.
    std::unique_ptr<IFolderEntryIterator> listAll(const StorageIRI& folder);
    std::unique_ptr<IFolderEntryIterator> listAllWildcards(const StorageIRI& folder,
                                                           fl::i18n::ustring_view pattern);
    std::unique_ptr<IFolderEntryIterator> listFiles(const StorageIRI& folder);
    std::unique_ptr<IFolderEntryIterator> listFilesWildcards(const StorageIRI& folder,
                                                             fl::i18n::ustring_view pattern);
    std::unique_ptr<IFolderEntryIterator> listFolders(const StorageIRI& folder);
    std::unique_ptr<IFolderEntryIterator> listFoldersWildcards(const StorageIRI& folder,
                                                               fl::i18n::ustring_view pattern);
    std::vector<fl::i18n::ustring> listAllNamesOnly(const StorageIRI& folder);
    std::vector<fl::i18n::ustring> listAllNamesOnlyWildcards(const StorageIRI& folder,
                                                             fl::i18n::ustring_view pattern);
    std::vector<fl::i18n::ustring> listFoldersNamesOnly(const StorageIRI& folder);
    std::vector<fl::i18n::ustring> listFoldersNamesOnlyWildcards(const StorageIRI& folder,
                                                                 fl::i18n::ustring_view pattern);
    std::vector<fl::i18n::ustring> listFilesNamesOnly(const StorageIRI& folder);
    std::vector<fl::i18n::ustring> listFilesNamesOnlyWildcards(const StorageIRI& folder,
                                                               fl::i18n::ustring_view pattern);
    /// Everything below the folder, each folder before its entries; names are paths relative to `folder`,
    /// joined with "/". The whole tree is read before the return; a folder that disappears meanwhile counts
    /// as empty.
    std::unique_ptr<IFolderEntryIterator> listAllRecursive(const StorageIRI& folder);
    /// The entries of listAllRecursive whose last component matches; folders that do not match are walked
    /// too.
    std::unique_ptr<IFolderEntryIterator> listAllRecursiveWildcards(const StorageIRI& folder,
                                                                    fl::i18n::ustring_view pattern);
    std::vector<fl::i18n::ustring> listAllRecursiveNamesOnly(const StorageIRI& folder);
    std::vector<fl::i18n::ustring> listAllRecursiveNamesOnlyWildcards(const StorageIRI& folder,
                                                                      fl::i18n::ustring_view pattern);

    // --- copies and single properties

    /// Copies a file within the provider; onto itself, with an option that replaces, nothing changes.
    /// Errors: as moveFile. After a failure the destination may be incomplete; copyFileAtomic has the old or
    /// the new contents at every moment. By default it writes a new file with a unique name in the
    /// destination's folder and moves it over the destination.
    void copyFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option);
    void copyFileAtomic(const StorageIRI& source, const StorageIRI& destination, MoveOption option);
    /// Errors: NotFound; NotSupported where hasFeature(SetLastModified) is false. `time` is UTC.
    void setLastModified(const StorageIRI& location, boost::posix_time::ptime time);
    /// Errors: NotFound; NotSupported where hasFeature(SetWritable) is false.
    void setWritable(const StorageIRI& location, bool writable);

    // --- change events

    /// Has `listener` called for every entry that comes, goes or changes in the folder (not below its
    /// subfolders) after the return of this call. One listener a location; a second one replaces the first,
    /// of which no call follows. Events flow while the polling mechanism runs; what happened before it was
    /// started or while it was stopped is told by its first look. A change that is undone between two looks
    /// is not seen; an entry that was replaced by one of the other kind is Removed, then Created. A look that
    /// fails counts for nothing; when the folder itself goes, its entries do. Errors: NotFound when there is
    /// no such folder; InvalidArgument for an empty listener.
    void publishFolderEventsFor(const StorageIRI& folder, ChangeListener listener);
    /// The same for one file, which need not exist yet.
    void publishFileEventsFor(const StorageIRI& file, ChangeListener listener);
    /// Ends the events of a location; none arrives after the return, and a running call of the listener is
    /// waited for: do not hold a lock that it takes. An unknown location is no error.
    void stopPublishingEventsFor(const StorageIRI& location);
    /// Starts looking at the watched locations every `interval` on a thread of the library.
    /// A running mechanism takes over the new interval. Errors: InvalidArgument for an interval below 1 ms.
    void startChangePollingMechanism(std::chrono::milliseconds interval);
    /// Ends the polling; returns when no listener is running. The watched locations stay registered.
    /// Errors: std::logic_error when a listener calls it (or shutdown), which would wait for itself.
    void stopChangePollingMechanism();

    // --- about the provider

    /// Whether an operation that not every provider has will work here.
    bool hasFeature(Feature feature);
    /// The order and equality of paths. The result may outlive the provider.
    PathComparator getPathComparator();
    /// The one spelling of a location that stands for all of its spellings: by default doubled slashes count
    /// as one and a trailing one is dropped, "." and ".." are ordinary names, and the empty path is the root.
    /// The item need not exist.
    StorageIRI getCanonicalLocation(const StorageIRI& location);
    /// Whether names that differ in letter case alone are different names here; by default they are.
    FilenameSensitivity getFilenameSensitivity();
    /// Ends everything that runs in the background and drops the watched locations. The provider can be used
    /// on; calling it again does nothing.
    void shutdown();
    /// Whether a file or a folder is there; a missing parent is no error.
    bool exists(const StorageIRI& location);
    /// The same, telling which.
    Existence existsExtended(const StorageIRI& location);
    /// Everything known of a file or folder. Errors: NotFound.
    ExtendedAttributes getExtendedAttributes(const StorageIRI& location);
    /// The space behind the provider, in bytes; by default unknown.
    ProviderStorageInfo getProviderStorageInfo();
    /// Cuts a file to `size` bytes, or extends it with zeros. Errors: NotFound; NotWritable; InvalidArgument
    /// for a size beyond the greatest position of a stream.
    void truncateToSize(const StorageIRI& file, std::uint64_t size);
    /// What the provider keeps in caches of its own; by default nothing.
    ProviderCacheUsage getProviderCacheUsage();

protected:
    IProvider();

    /// Ends the change polling for good; see the class's note for providers. Calling it again does nothing.
    void endChangePolling() noexcept;

    virtual void doCreateFile(const StorageIRI& location) = 0;
    virtual void doCreateFolder(const StorageIRI& location) = 0;
    virtual void doCreateFolderRecursive(const StorageIRI& location);
    virtual bool doIsFile(const StorageIRI& location) = 0;
    virtual bool doIsFolder(const StorageIRI& location) = 0;
    virtual void doRemoveFile(const StorageIRI& location) = 0;
    virtual void doMoveFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) = 0;
    virtual void doRemoveFolder(const StorageIRI& location) = 0;
    virtual void doRemoveFolderRecursively(const StorageIRI& location);
    virtual void doMoveFolder(const StorageIRI& source, const StorageIRI& destination, MoveOption option) = 0;
    virtual FileAttributes doGetFileAttributes(const StorageIRI& location) = 0;
    virtual FolderAttributes doGetFolderAttributes(const StorageIRI& location) = 0;
    virtual std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& location,
                                                     const ByteStreamOpenOptions& options) = 0;
    virtual std::unique_ptr<ByteStream> doOpenReadStream(const StorageIRI& location) = 0;
    virtual std::unique_ptr<ByteStream> doOpenTransactionalStream(const StorageIRI& location,
                                                                  const ByteStreamOpenOptions& options);
    virtual std::unique_ptr<ByteStream>
    doOpenTransactionalStreamAtScratchLocation(const StorageIRI& location, const StorageIRI& scratchFolder,
                                               const ByteStreamOpenOptions& options);
    virtual std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& folder) = 0;
    virtual std::unique_ptr<IFolderEntryIterator> doListAllWildcards(const StorageIRI& folder,
                                                                     fl::i18n::ustring_view pattern);
    virtual std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& folder) = 0;
    virtual std::unique_ptr<IFolderEntryIterator> doListFilesWildcards(const StorageIRI& folder,
                                                                       fl::i18n::ustring_view pattern);
    virtual std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& folder) = 0;
    virtual std::unique_ptr<IFolderEntryIterator> doListFoldersWildcards(const StorageIRI& folder,
                                                                         fl::i18n::ustring_view pattern);
    virtual std::vector<fl::i18n::ustring> doListAllNamesOnly(const StorageIRI& folder);
    virtual std::vector<fl::i18n::ustring> doListAllNamesOnlyWildcards(const StorageIRI& folder,
                                                                       fl::i18n::ustring_view pattern);
    virtual std::vector<fl::i18n::ustring> doListFoldersNamesOnly(const StorageIRI& folder);
    virtual std::vector<fl::i18n::ustring> doListFoldersNamesOnlyWildcards(const StorageIRI& folder,
                                                                           fl::i18n::ustring_view pattern);
    virtual std::vector<fl::i18n::ustring> doListFilesNamesOnly(const StorageIRI& folder);
    virtual std::vector<fl::i18n::ustring> doListFilesNamesOnlyWildcards(const StorageIRI& folder,
                                                                         fl::i18n::ustring_view pattern);
    virtual std::unique_ptr<IFolderEntryIterator> doListAllRecursive(const StorageIRI& folder);
    virtual std::unique_ptr<IFolderEntryIterator> doListAllRecursiveWildcards(const StorageIRI& folder,
                                                                              fl::i18n::ustring_view pattern);
    virtual std::vector<fl::i18n::ustring> doListAllRecursiveNamesOnly(const StorageIRI& folder);
    virtual std::vector<fl::i18n::ustring>
    doListAllRecursiveNamesOnlyWildcards(const StorageIRI& folder, fl::i18n::ustring_view pattern);
    virtual void doCopyFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option);
    virtual void doCopyFileAtomic(const StorageIRI& source, const StorageIRI& destination, MoveOption option);
    virtual void doSetLastModified(const StorageIRI& location, boost::posix_time::ptime time);
    virtual void doSetWritable(const StorageIRI& location, bool writable);
    virtual void doPublishFolderEventsFor(const StorageIRI& folder, ChangeListener listener);
    virtual void doPublishFileEventsFor(const StorageIRI& file, ChangeListener listener);
    virtual void doStopPublishingEventsFor(const StorageIRI& location);
    virtual void doStartChangePollingMechanism(std::chrono::milliseconds interval);
    virtual void doStopChangePollingMechanism();
    virtual bool doHasFeature(Feature feature);
    virtual PathComparator doGetPathComparator();
    virtual StorageIRI doGetCanonicalLocation(const StorageIRI& location);
    virtual FilenameSensitivity doGetFilenameSensitivity();
    virtual void doShutdown();
    virtual bool doExists(const StorageIRI& location);
    virtual Existence doExistsExtended(const StorageIRI& location);
    virtual ExtendedAttributes doGetExtendedAttributes(const StorageIRI& location);
    virtual ProviderStorageInfo doGetProviderStorageInfo();
    virtual void doTruncateToSize(const StorageIRI& file, std::uint64_t size);
    virtual ProviderCacheUsage doGetProviderCacheUsage();

private:
    /// The default operations' only state. Idle, without a thread, until the polling is started.
    const std::unique_ptr<detail::ChangePoller> m_changePoller;
};

} // namespace foundation::storage::provider
