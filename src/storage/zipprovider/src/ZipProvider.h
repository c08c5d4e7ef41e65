#pragma once

#include "HostTypes.h"
#include "ZipFileSystem.h"

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>
#include <foundation/storage/provider/ErrorCode.h>
#include <foundation/storage/provider/IFlushable.h>
#include <foundation/storage/provider/IProvider.h>

#include <memory>

namespace storage::zipprovider {

/// The host's provider over one archive. The archive is read by the first operation that needs it; the
/// provider keeps nothing but its file system. The plug-in's own exceptions become the host's Exception with
/// a code and the operation's IRI; all others pass unchanged. Destroying it flushes what is pending and
/// swallows the error; whoever wants to know flushes before. Threads: any.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
class ZipProvider final : public foundation::storage::provider::IProvider,
                          public foundation::storage::provider::IFlushable {
public:
    explicit ZipProvider(const StorageItem& container);
    ~ZipProvider() override;

protected:
    using ByteStream = foundation::storage::provider::ByteStream;
    using ByteStreamOpenOptions = foundation::storage::provider::ByteStreamOpenOptions;
    using ErrorCode = foundation::storage::provider::ErrorCode;
    using FileAttributes = foundation::storage::provider::FileAttributes;
    using FolderAttributes = foundation::storage::provider::FolderAttributes;
    using IFolderEntryIterator = foundation::storage::provider::IFolderEntryIterator;
    using MoveOption = foundation::storage::provider::MoveOption;
    using StorageIRI = foundation::storage::provider::StorageIRI;

    void doCreateFile(const StorageIRI& location) override;
    void doCreateFolder(const StorageIRI& location) override;
    bool doIsFile(const StorageIRI& location) override;
    bool doIsFolder(const StorageIRI& location) override;
    void doRemoveFile(const StorageIRI& location) override;
    void doMoveFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override;
    void doRemoveFolder(const StorageIRI& location) override;
    void doMoveFolder(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override;
    FileAttributes doGetFileAttributes(const StorageIRI& location) override;
    FolderAttributes doGetFolderAttributes(const StorageIRI& location) override;
    std::unique_ptr<ByteStream> doOpenStream(const StorageIRI& location,
                                             const ByteStreamOpenOptions& options) override;
    std::unique_ptr<ByteStream> doOpenReadStream(const StorageIRI& location) override;
    std::unique_ptr<IFolderEntryIterator> doListAll(const StorageIRI& folder) override;
    std::unique_ptr<IFolderEntryIterator> doListFiles(const StorageIRI& folder) override;
    std::unique_ptr<IFolderEntryIterator> doListFolders(const StorageIRI& folder) override;

    void doFlush() override KX_EXCLUDES(m_mutex);

private:
    using FileSystem = ZipFileSystem<StorageItem, ByteStreamDevice>;

    const FileSystem& fileSystem() KX_EXCLUDES(m_mutex);
    void checkWritable(const StorageIRI& location) const;
    bool hasEntry(const StorageIRI& location, ZipEntryType type);
    template <typename Predicate>
    std::unique_ptr<IFolderEntryIterator> list(const StorageIRI& folder);

    const StorageItem m_container;
    /// Null until an operation needs the archive; then one for good. Open writable streams share it.
    std::shared_ptr<const FileSystem> m_fileSystem KX_GUARDED_BY(m_mutex);
    /// Guards the creation of the file system.
    foundation::core::Mutex m_mutex;
};

} // namespace storage::zipprovider

#include "ZipProvider.ipp"
