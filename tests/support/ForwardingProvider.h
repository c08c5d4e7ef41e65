#pragma once

#include <foundation/storage/provider/IProvider.h>

#include <memory>

namespace kx::test {

namespace provider = foundation::storage::provider;

/// Hands every operation on to another provider; a base for providers that change a few.
class ForwardingProvider : public provider::IProvider {
public:
    /// Precondition: `target` is not null.
    explicit ForwardingProvider(std::shared_ptr<provider::IProvider> target);
    ~ForwardingProvider() override;

    const std::shared_ptr<provider::IProvider>& target() const { return m_target; }

protected:
    void doCreateFile(const provider::StorageIRI& location) override;
    void doCreateFolder(const provider::StorageIRI& location) override;
    void doCreateFolderRecursive(const provider::StorageIRI& location) override;
    bool doIsFile(const provider::StorageIRI& location) override;
    bool doIsFolder(const provider::StorageIRI& location) override;
    void doRemoveFile(const provider::StorageIRI& location) override;
    void doMoveFile(const provider::StorageIRI& source, const provider::StorageIRI& destination,
                    provider::MoveOption option) override;
    void doRemoveFolder(const provider::StorageIRI& location) override;
    void doRemoveFolderRecursively(const provider::StorageIRI& location) override;
    void doMoveFolder(const provider::StorageIRI& source, const provider::StorageIRI& destination,
                      provider::MoveOption option) override;
    provider::FileAttributes doGetFileAttributes(const provider::StorageIRI& location) override;
    provider::FolderAttributes doGetFolderAttributes(const provider::StorageIRI& location) override;
    std::unique_ptr<provider::ByteStream>
    doOpenStream(const provider::StorageIRI& location,
                 const provider::ByteStreamOpenOptions& options) override;
    std::unique_ptr<provider::ByteStream> doOpenReadStream(const provider::StorageIRI& location) override;
    std::unique_ptr<provider::ByteStream>
    doOpenTransactionalStream(const provider::StorageIRI& location,
                              const provider::ByteStreamOpenOptions& options) override;
    std::unique_ptr<provider::ByteStream>
    doOpenTransactionalStreamAtScratchLocation(const provider::StorageIRI& location,
                                               const provider::StorageIRI& scratchFolder,
                                               const provider::ByteStreamOpenOptions& options) override;
    std::unique_ptr<provider::IFolderEntryIterator> doListAll(const provider::StorageIRI& folder) override;
    std::unique_ptr<provider::IFolderEntryIterator>
    doListAllWildcards(const provider::StorageIRI& folder, fl::i18n::ustring_view pattern) override;
    std::unique_ptr<provider::IFolderEntryIterator> doListFiles(const provider::StorageIRI& folder) override;
    std::unique_ptr<provider::IFolderEntryIterator>
    doListFilesWildcards(const provider::StorageIRI& folder, fl::i18n::ustring_view pattern) override;
    std::unique_ptr<provider::IFolderEntryIterator>
    doListFolders(const provider::StorageIRI& folder) override;
    std::unique_ptr<provider::IFolderEntryIterator>
    doListFoldersWildcards(const provider::StorageIRI& folder, fl::i18n::ustring_view pattern) override;
    std::vector<fl::i18n::ustring> doListAllNamesOnly(const provider::StorageIRI& folder) override;
    std::vector<fl::i18n::ustring> doListAllNamesOnlyWildcards(const provider::StorageIRI& folder,
                                                               fl::i18n::ustring_view pattern) override;
    std::vector<fl::i18n::ustring> doListFoldersNamesOnly(const provider::StorageIRI& folder) override;
    std::vector<fl::i18n::ustring> doListFoldersNamesOnlyWildcards(const provider::StorageIRI& folder,
                                                                   fl::i18n::ustring_view pattern) override;
    std::vector<fl::i18n::ustring> doListFilesNamesOnly(const provider::StorageIRI& folder) override;
    std::vector<fl::i18n::ustring> doListFilesNamesOnlyWildcards(const provider::StorageIRI& folder,
                                                                 fl::i18n::ustring_view pattern) override;
    std::unique_ptr<provider::IFolderEntryIterator>
    doListAllRecursive(const provider::StorageIRI& folder) override;
    std::unique_ptr<provider::IFolderEntryIterator>
    doListAllRecursiveWildcards(const provider::StorageIRI& folder, fl::i18n::ustring_view pattern) override;
    std::vector<fl::i18n::ustring> doListAllRecursiveNamesOnly(const provider::StorageIRI& folder) override;
    std::vector<fl::i18n::ustring>
    doListAllRecursiveNamesOnlyWildcards(const provider::StorageIRI& folder,
                                         fl::i18n::ustring_view pattern) override;
    void doCopyFile(const provider::StorageIRI& source, const provider::StorageIRI& destination,
                    provider::MoveOption option) override;
    void doCopyFileAtomic(const provider::StorageIRI& source, const provider::StorageIRI& destination,
                          provider::MoveOption option) override;
    void doSetLastModified(const provider::StorageIRI& location, boost::posix_time::ptime time) override;
    void doSetWritable(const provider::StorageIRI& location, bool writable) override;
    void doPublishFolderEventsFor(const provider::StorageIRI& folder,
                                  provider::ChangeListener listener) override;
    void doPublishFileEventsFor(const provider::StorageIRI& file, provider::ChangeListener listener) override;
    void doStopPublishingEventsFor(const provider::StorageIRI& location) override;
    void doStartChangePollingMechanism(std::chrono::milliseconds interval) override;
    void doStopChangePollingMechanism() override;
    bool doHasFeature(provider::Feature feature) override;
    provider::PathComparator doGetPathComparator() override;
    provider::StorageIRI doGetCanonicalLocation(const provider::StorageIRI& location) override;
    provider::FilenameSensitivity doGetFilenameSensitivity() override;
    void doShutdown() override;
    bool doExists(const provider::StorageIRI& location) override;
    provider::Existence doExistsExtended(const provider::StorageIRI& location) override;
    provider::ExtendedAttributes doGetExtendedAttributes(const provider::StorageIRI& location) override;
    provider::ProviderStorageInfo doGetProviderStorageInfo() override;
    void doTruncateToSize(const provider::StorageIRI& file, std::uint64_t size) override;
    provider::ProviderCacheUsage doGetProviderCacheUsage() override;

private:
    const std::shared_ptr<provider::IProvider> m_target;
};

} // namespace kx::test
