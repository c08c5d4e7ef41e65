#pragma once

#include <foundation/storage/provider/IProvider.h>
#include <storage/fileprovider/Export.h>
#include <storage/fileprovider/LocalFileOptions.h>

#include <memory>

namespace storage::fileprovider {

struct Environment;

/// The local files, scheme "file".
///
/// Paths are resolved by the system: symbolic links are followed, except by remove and move, which work on
/// the link itself. Names are UTF-8; bytes of a name that are not appear as U+FFFD in listings, and such a
/// file cannot be addressed. Listings are ordered by UTF-16 code units, on Windows by those of capital
/// letters, since names that differ in letter case alone are the same there. A link that leads nowhere, a
/// device, a FIFO and a socket are listed as files; opening one of the latter is refused (NotSupported)
/// without waiting for its other end.
///
/// Saving: a stream of openStream writes to a staging file, and close() puts the new contents in place as a
/// whole; a stream destroyed without close() leaves the file as it was. The file stays the file it was:
/// owner, permissions, extended attributes, hard links and symbolic links that lead to it. A process that is
/// killed during a save leaves the old or the new contents once the file is next opened through this provider
/// (see Recovery.h). The working files of a save (".NAME.kxvfs-…") do not appear in listings. A stream that
/// kept the existing contents refuses (Busy) to overwrite what another program changed since it was opened.
///
/// A file without any write permission bit counts as read-only for every user, also for the superuser.
///
/// Threads: all operations may be called from several threads at once.
class KXFILEPROVIDER_API LocalFileProvider final : public foundation::storage::provider::IProvider {
public:
    /// A provider over all local files; touches nothing. Never null.
    static std::shared_ptr<LocalFileProvider> create(const LocalFileOptions& options = {});
    ~LocalFileProvider() override;

protected:
    using StorageIRI = foundation::storage::provider::StorageIRI;
    using ByteStream = foundation::storage::provider::ByteStream;
    using ByteStreamOpenOptions = foundation::storage::provider::ByteStreamOpenOptions;
    using FileAttributes = foundation::storage::provider::FileAttributes;
    using FolderAttributes = foundation::storage::provider::FolderAttributes;
    using IFolderEntryIterator = foundation::storage::provider::IFolderEntryIterator;
    using MoveOption = foundation::storage::provider::MoveOption;

    void doCreateFile(const StorageIRI& location) override;
    void doCreateFolder(const StorageIRI& location) override;
    bool doIsFile(const StorageIRI& location) override;
    bool doIsFolder(const StorageIRI& location) override;
    void doRemoveFile(const StorageIRI& location) override;
    void doMoveFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override;
    void doRemoveFolder(const StorageIRI& location) override;
    void doRemoveFolderRecursively(const StorageIRI& location) override;
    void doMoveFolder(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override;
    FileAttributes doGetFileAttributes(const StorageIRI& location) override;
    FolderAttributes doGetFolderAttributes(const StorageIRI& location) override;
    std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& location,
                                             const ByteStreamOpenOptions& options) override;
    std::unique_ptr<ByteStream> doOpenReadStream(const StorageIRI& location) override;
    std::unique_ptr<ByteStream> doOpenTransactionalStream(const StorageIRI& location,
                                                          const ByteStreamOpenOptions& options) override;
    std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& folder) override;
    std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& folder) override;
    std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& folder) override;
    void doCopyFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override;
    void doCopyFileAtomic(const StorageIRI& source, const StorageIRI& destination,
                          MoveOption option) override;
    void doSetLastModified(const StorageIRI& location, boost::posix_time::ptime time) override;
    void doSetWritable(const StorageIRI& location, bool writable) override;
    bool doHasFeature(foundation::storage::provider::Feature feature) override;
    foundation::storage::provider::PathComparator doGetPathComparator() override;
    StorageIRI doGetCanonicalLocation(const StorageIRI& location) override;
    bool doExists(const StorageIRI& location) override;
    foundation::storage::provider::Existence doExistsExtended(const StorageIRI& location) override;
    foundation::storage::provider::ExtendedAttributes
    doGetExtendedAttributes(const StorageIRI& location) override;
    foundation::storage::provider::FilenameSensitivity doGetFilenameSensitivity() override;
    foundation::storage::provider::ProviderStorageInfo doGetProviderStorageInfo() override;
    void doTruncateToSize(const StorageIRI& file, std::uint64_t size) override;

private:
    explicit LocalFileProvider(const LocalFileOptions& options);

    const std::shared_ptr<const Environment> m_environment;
};

} // namespace storage::fileprovider
