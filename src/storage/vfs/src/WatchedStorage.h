#pragma once

#include <foundation/storage/provider/IProvider.h>
#include <storage/vfs/src/ContainerWatch.h>

#include <atomic>
#include <memory>

namespace storage::vfs {

/// What a container's provider gets to see of the storage that its container is in: that storage itself, with
/// its streams watched, until it is cut off. Change events are the library's own, by polling it.
class WatchedStorage : public foundation::storage::provider::IProvider {
public:
    WatchedStorage(std::shared_ptr<foundation::storage::provider::IProvider> target,
                   std::shared_ptr<const ContainerWatch> watch);
    ~WatchedStorage() override;

    /// From here on every operation, also of streams that are open, fails before it does anything. So a
    /// provider that is destroyed does not save what it is not to save.
    void cutOff() { *m_cutOff = true; }

protected:
    using IRI = foundation::storage::provider::StorageIRI;
    using Stream = std::unique_ptr<foundation::storage::provider::ByteStream>;
    using Listing = std::unique_ptr<foundation::storage::provider::IFolderEntryIterator>;
    using MoveOption = foundation::storage::provider::MoveOption;
    using OpenOptions = foundation::storage::provider::ByteStreamOpenOptions;

    void doCreateFile(const IRI& location) override;
    void doCreateFolder(const IRI& location) override;
    bool doIsFile(const IRI& location) override;
    bool doIsFolder(const IRI& location) override;
    void doRemoveFile(const IRI& location) override;
    void doMoveFile(const IRI& source, const IRI& destination, MoveOption option) override;
    void doRemoveFolder(const IRI& location) override;
    void doMoveFolder(const IRI& source, const IRI& destination, MoveOption option) override;
    foundation::storage::provider::FileAttributes doGetFileAttributes(const IRI& location) override;
    foundation::storage::provider::FolderAttributes doGetFolderAttributes(const IRI& location) override;
    Stream doOpenStream(const IRI& location, const OpenOptions& options) override;
    Stream doOpenReadStream(const IRI& location) override;
    Stream doOpenTransactionalStream(const IRI& location, const OpenOptions& options) override;
    Listing doListAll(const IRI& folder) override;
    Listing doListFiles(const IRI& folder) override;
    Listing doListFolders(const IRI& folder) override;
    bool doHasFeature(foundation::storage::provider::Feature feature) override;
    IRI doGetCanonicalLocation(const IRI& location) override;
    foundation::storage::provider::FilenameSensitivity doGetFilenameSensitivity() override;
    bool doExists(const IRI& location) override;
    foundation::storage::provider::ExtendedAttributes doGetExtendedAttributes(const IRI& location) override;
    void doCopyFile(const IRI& source, const IRI& destination, MoveOption option) override;
    void doCopyFileAtomic(const IRI& source, const IRI& destination, MoveOption option) override;
    void doSetLastModified(const IRI& location, boost::posix_time::ptime time) override;
    void doSetWritable(const IRI& location, bool writable) override;
    void doTruncateToSize(const IRI& file, std::uint64_t size) override;
    foundation::storage::provider::PathComparator doGetPathComparator() override;
    foundation::storage::provider::ProviderStorageInfo doGetProviderStorageInfo() override;

private:
    /// Errors: Exception when it was cut off.
    foundation::storage::provider::IProvider& target(const IRI& location) const;

    const std::shared_ptr<foundation::storage::provider::IProvider> m_target;
    const std::shared_ptr<const ContainerWatch> m_watch;
    /// Shared with the streams; set on one thread while others read.
    const std::shared_ptr<std::atomic<bool>> m_cutOff = std::make_shared<std::atomic<bool>>(false);
};

} // namespace storage::vfs
