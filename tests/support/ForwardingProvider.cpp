#include "ForwardingProvider.h"

#include <utility>

namespace kx::test {

ForwardingProvider::ForwardingProvider(std::shared_ptr<provider::IProvider> target)
    : m_target(std::move(target)) {}

ForwardingProvider::~ForwardingProvider() {
    endChangePolling();
}

void ForwardingProvider::doCreateFile(const provider::StorageIRI& location) {
    m_target->createFile(location);
}

void ForwardingProvider::doCreateFolder(const provider::StorageIRI& location) {
    m_target->createFolder(location);
}

void ForwardingProvider::doCreateFolderRecursive(const provider::StorageIRI& location) {
    m_target->createFolderRecursive(location);
}

bool ForwardingProvider::doIsFile(const provider::StorageIRI& location) {
    return m_target->isFile(location);
}

bool ForwardingProvider::doIsFolder(const provider::StorageIRI& location) {
    return m_target->isFolder(location);
}

void ForwardingProvider::doRemoveFile(const provider::StorageIRI& location) {
    m_target->removeFile(location);
}

void ForwardingProvider::doMoveFile(const provider::StorageIRI& source,
                                    const provider::StorageIRI& destination, provider::MoveOption option) {
    m_target->moveFile(source, destination, option);
}

void ForwardingProvider::doRemoveFolder(const provider::StorageIRI& location) {
    m_target->removeFolder(location);
}

void ForwardingProvider::doRemoveFolderRecursively(const provider::StorageIRI& location) {
    m_target->removeFolderRecursively(location);
}

void ForwardingProvider::doMoveFolder(const provider::StorageIRI& source,
                                      const provider::StorageIRI& destination, provider::MoveOption option) {
    m_target->moveFolder(source, destination, option);
}

provider::FileAttributes ForwardingProvider::doGetFileAttributes(const provider::StorageIRI& location) {
    return m_target->getFileAttributes(location);
}

provider::FolderAttributes ForwardingProvider::doGetFolderAttributes(const provider::StorageIRI& location) {
    return m_target->getFolderAttributes(location);
}

std::unique_ptr<provider::ByteStream>
ForwardingProvider::doOpenStream(const provider::StorageIRI& location,
                                 const provider::ByteStreamOpenOptions& options) {
    return m_target->openStream(location, options);
}

std::unique_ptr<provider::ByteStream>
ForwardingProvider::doOpenReadStream(const provider::StorageIRI& location) {
    return m_target->openReadStream(location);
}

std::unique_ptr<provider::ByteStream>
ForwardingProvider::doOpenTransactionalStream(const provider::StorageIRI& location,
                                              const provider::ByteStreamOpenOptions& options) {
    return m_target->openTransactionalStream(location, options);
}

std::unique_ptr<provider::ByteStream> ForwardingProvider::doOpenTransactionalStreamAtScratchLocation(
    const provider::StorageIRI& location, const provider::StorageIRI& scratchFolder,
    const provider::ByteStreamOpenOptions& options) {
    return m_target->openTransactionalStreamAtScratchLocation(location, scratchFolder, options);
}

std::unique_ptr<provider::IFolderEntryIterator>
ForwardingProvider::doListAll(const provider::StorageIRI& folder) {
    return m_target->listAll(folder);
}

std::unique_ptr<provider::IFolderEntryIterator>
ForwardingProvider::doListAllWildcards(const provider::StorageIRI& folder, fl::i18n::ustring_view pattern) {
    return m_target->listAllWildcards(folder, pattern);
}

std::unique_ptr<provider::IFolderEntryIterator>
ForwardingProvider::doListFiles(const provider::StorageIRI& folder) {
    return m_target->listFiles(folder);
}

std::unique_ptr<provider::IFolderEntryIterator>
ForwardingProvider::doListFilesWildcards(const provider::StorageIRI& folder, fl::i18n::ustring_view pattern) {
    return m_target->listFilesWildcards(folder, pattern);
}

std::unique_ptr<provider::IFolderEntryIterator>
ForwardingProvider::doListFolders(const provider::StorageIRI& folder) {
    return m_target->listFolders(folder);
}

std::unique_ptr<provider::IFolderEntryIterator>
ForwardingProvider::doListFoldersWildcards(const provider::StorageIRI& folder,
                                           fl::i18n::ustring_view pattern) {
    return m_target->listFoldersWildcards(folder, pattern);
}

std::vector<fl::i18n::ustring> ForwardingProvider::doListAllNamesOnly(const provider::StorageIRI& folder) {
    return m_target->listAllNamesOnly(folder);
}

std::vector<fl::i18n::ustring>
ForwardingProvider::doListAllNamesOnlyWildcards(const provider::StorageIRI& folder,
                                                fl::i18n::ustring_view pattern) {
    return m_target->listAllNamesOnlyWildcards(folder, pattern);
}

std::vector<fl::i18n::ustring>
ForwardingProvider::doListFoldersNamesOnly(const provider::StorageIRI& folder) {
    return m_target->listFoldersNamesOnly(folder);
}

std::vector<fl::i18n::ustring>
ForwardingProvider::doListFoldersNamesOnlyWildcards(const provider::StorageIRI& folder,
                                                    fl::i18n::ustring_view pattern) {
    return m_target->listFoldersNamesOnlyWildcards(folder, pattern);
}

std::vector<fl::i18n::ustring> ForwardingProvider::doListFilesNamesOnly(const provider::StorageIRI& folder) {
    return m_target->listFilesNamesOnly(folder);
}

std::vector<fl::i18n::ustring>
ForwardingProvider::doListFilesNamesOnlyWildcards(const provider::StorageIRI& folder,
                                                  fl::i18n::ustring_view pattern) {
    return m_target->listFilesNamesOnlyWildcards(folder, pattern);
}

std::unique_ptr<provider::IFolderEntryIterator>
ForwardingProvider::doListAllRecursive(const provider::StorageIRI& folder) {
    return m_target->listAllRecursive(folder);
}

std::unique_ptr<provider::IFolderEntryIterator>
ForwardingProvider::doListAllRecursiveWildcards(const provider::StorageIRI& folder,
                                                fl::i18n::ustring_view pattern) {
    return m_target->listAllRecursiveWildcards(folder, pattern);
}

std::vector<fl::i18n::ustring>
ForwardingProvider::doListAllRecursiveNamesOnly(const provider::StorageIRI& folder) {
    return m_target->listAllRecursiveNamesOnly(folder);
}

std::vector<fl::i18n::ustring>
ForwardingProvider::doListAllRecursiveNamesOnlyWildcards(const provider::StorageIRI& folder,
                                                         fl::i18n::ustring_view pattern) {
    return m_target->listAllRecursiveNamesOnlyWildcards(folder, pattern);
}

void ForwardingProvider::doCopyFile(const provider::StorageIRI& source,
                                    const provider::StorageIRI& destination, provider::MoveOption option) {
    m_target->copyFile(source, destination, option);
}

void ForwardingProvider::doCopyFileAtomic(const provider::StorageIRI& source,
                                          const provider::StorageIRI& destination,
                                          provider::MoveOption option) {
    m_target->copyFileAtomic(source, destination, option);
}

void ForwardingProvider::doSetLastModified(const provider::StorageIRI& location,
                                           boost::posix_time::ptime time) {
    m_target->setLastModified(location, time);
}

void ForwardingProvider::doSetWritable(const provider::StorageIRI& location, bool writable) {
    m_target->setWritable(location, writable);
}

void ForwardingProvider::doPublishFolderEventsFor(const provider::StorageIRI& folder,
                                                  provider::ChangeListener listener) {
    m_target->publishFolderEventsFor(folder, std::move(listener));
}

void ForwardingProvider::doPublishFileEventsFor(const provider::StorageIRI& file,
                                                provider::ChangeListener listener) {
    m_target->publishFileEventsFor(file, std::move(listener));
}

void ForwardingProvider::doStopPublishingEventsFor(const provider::StorageIRI& location) {
    m_target->stopPublishingEventsFor(location);
}

void ForwardingProvider::doStartChangePollingMechanism(std::chrono::milliseconds interval) {
    m_target->startChangePollingMechanism(interval);
}

void ForwardingProvider::doStopChangePollingMechanism() {
    m_target->stopChangePollingMechanism();
}

bool ForwardingProvider::doHasFeature(provider::Feature feature) {
    return m_target->hasFeature(feature);
}

provider::PathComparator ForwardingProvider::doGetPathComparator() {
    return m_target->getPathComparator();
}

provider::StorageIRI ForwardingProvider::doGetCanonicalLocation(const provider::StorageIRI& location) {
    return m_target->getCanonicalLocation(location);
}

provider::FilenameSensitivity ForwardingProvider::doGetFilenameSensitivity() {
    return m_target->getFilenameSensitivity();
}

void ForwardingProvider::doShutdown() {
    m_target->shutdown();
}

bool ForwardingProvider::doExists(const provider::StorageIRI& location) {
    return m_target->exists(location);
}

provider::Existence ForwardingProvider::doExistsExtended(const provider::StorageIRI& location) {
    return m_target->existsExtended(location);
}

provider::ExtendedAttributes
ForwardingProvider::doGetExtendedAttributes(const provider::StorageIRI& location) {
    return m_target->getExtendedAttributes(location);
}

provider::ProviderStorageInfo ForwardingProvider::doGetProviderStorageInfo() {
    return m_target->getProviderStorageInfo();
}

void ForwardingProvider::doTruncateToSize(const provider::StorageIRI& file, std::uint64_t size) {
    m_target->truncateToSize(file, size);
}

provider::ProviderCacheUsage ForwardingProvider::doGetProviderCacheUsage() {
    return m_target->getProviderCacheUsage();
}

} // namespace kx::test
