#include <foundation/storage/provider/IProvider.h>

#include "ChangePoller.h"

#include <utility>

namespace foundation::storage::provider {

IProvider::IProvider() : m_changePoller(std::make_unique<detail::ChangePoller>(*this)) {}

IProvider::~IProvider() = default;

void IProvider::endChangePolling() noexcept {
    m_changePoller->stop();
}

void IProvider::createFile(const StorageIRI& location) {
    doCreateFile(location);
}

void IProvider::createFolder(const StorageIRI& location) {
    doCreateFolder(location);
}

void IProvider::createFolderRecursive(const StorageIRI& location) {
    doCreateFolderRecursive(location);
}

bool IProvider::isFile(const StorageIRI& location) {
    return doIsFile(location);
}

bool IProvider::isFolder(const StorageIRI& location) {
    return doIsFolder(location);
}

void IProvider::removeFile(const StorageIRI& location) {
    doRemoveFile(location);
}

void IProvider::moveFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) {
    doMoveFile(source, destination, option);
}

void IProvider::removeFolder(const StorageIRI& location) {
    doRemoveFolder(location);
}

void IProvider::removeFolderRecursively(const StorageIRI& location) {
    doRemoveFolderRecursively(location);
}

void IProvider::moveFolder(const StorageIRI& source, const StorageIRI& destination, MoveOption option) {
    doMoveFolder(source, destination, option);
}

FileAttributes IProvider::getFileAttributes(const StorageIRI& location) {
    return doGetFileAttributes(location);
}

FolderAttributes IProvider::getFolderAttributes(const StorageIRI& location) {
    return doGetFolderAttributes(location);
}

std::unique_ptr<ByteStream> IProvider::openStream(const StorageIRI& location,
                                                  const ByteStreamOpenOptions& options) {
    return doOpenStream(location, options);
}

std::unique_ptr<ByteStream> IProvider::openReadStream(const StorageIRI& location) {
    return doOpenReadStream(location);
}

std::unique_ptr<ByteStream> IProvider::openTransactionalStream(const StorageIRI& location,
                                                               const ByteStreamOpenOptions& options) {
    return doOpenTransactionalStream(location, options);
}

std::unique_ptr<ByteStream> IProvider::openTransactionalStreamAtScratchLocation(
    const StorageIRI& location, const StorageIRI& scratchFolder, const ByteStreamOpenOptions& options) {
    return doOpenTransactionalStreamAtScratchLocation(location, scratchFolder, options);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listAll(const StorageIRI& folder) {
    return doListAll(folder);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listAllWildcards(const StorageIRI& folder,
                                                                  fl::i18n::ustring_view pattern) {
    return doListAllWildcards(folder, pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listFiles(const StorageIRI& folder) {
    return doListFiles(folder);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listFilesWildcards(const StorageIRI& folder,
                                                                    fl::i18n::ustring_view pattern) {
    return doListFilesWildcards(folder, pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listFolders(const StorageIRI& folder) {
    return doListFolders(folder);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listFoldersWildcards(const StorageIRI& folder,
                                                                      fl::i18n::ustring_view pattern) {
    return doListFoldersWildcards(folder, pattern);
}

std::vector<fl::i18n::ustring> IProvider::listAllNamesOnly(const StorageIRI& folder) {
    return doListAllNamesOnly(folder);
}

std::vector<fl::i18n::ustring> IProvider::listAllNamesOnlyWildcards(const StorageIRI& folder,
                                                                    fl::i18n::ustring_view pattern) {
    return doListAllNamesOnlyWildcards(folder, pattern);
}

std::vector<fl::i18n::ustring> IProvider::listFoldersNamesOnly(const StorageIRI& folder) {
    return doListFoldersNamesOnly(folder);
}

std::vector<fl::i18n::ustring> IProvider::listFoldersNamesOnlyWildcards(const StorageIRI& folder,
                                                                        fl::i18n::ustring_view pattern) {
    return doListFoldersNamesOnlyWildcards(folder, pattern);
}

std::vector<fl::i18n::ustring> IProvider::listFilesNamesOnly(const StorageIRI& folder) {
    return doListFilesNamesOnly(folder);
}

std::vector<fl::i18n::ustring> IProvider::listFilesNamesOnlyWildcards(const StorageIRI& folder,
                                                                      fl::i18n::ustring_view pattern) {
    return doListFilesNamesOnlyWildcards(folder, pattern);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listAllRecursive(const StorageIRI& folder) {
    return doListAllRecursive(folder);
}

std::unique_ptr<IFolderEntryIterator> IProvider::listAllRecursiveWildcards(const StorageIRI& folder,
                                                                           fl::i18n::ustring_view pattern) {
    return doListAllRecursiveWildcards(folder, pattern);
}

std::vector<fl::i18n::ustring> IProvider::listAllRecursiveNamesOnly(const StorageIRI& folder) {
    return doListAllRecursiveNamesOnly(folder);
}

std::vector<fl::i18n::ustring> IProvider::listAllRecursiveNamesOnlyWildcards(const StorageIRI& folder,
                                                                             fl::i18n::ustring_view pattern) {
    return doListAllRecursiveNamesOnlyWildcards(folder, pattern);
}

void IProvider::copyFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) {
    doCopyFile(source, destination, option);
}

void IProvider::copyFileAtomic(const StorageIRI& source, const StorageIRI& destination, MoveOption option) {
    doCopyFileAtomic(source, destination, option);
}

void IProvider::setLastModified(const StorageIRI& location, boost::posix_time::ptime time) {
    doSetLastModified(location, time);
}

void IProvider::setWritable(const StorageIRI& location, bool writable) {
    doSetWritable(location, writable);
}

void IProvider::publishFolderEventsFor(const StorageIRI& folder, ChangeListener listener) {
    doPublishFolderEventsFor(folder, std::move(listener));
}

void IProvider::publishFileEventsFor(const StorageIRI& file, ChangeListener listener) {
    doPublishFileEventsFor(file, std::move(listener));
}

void IProvider::stopPublishingEventsFor(const StorageIRI& location) {
    doStopPublishingEventsFor(location);
}

void IProvider::startChangePollingMechanism(std::chrono::milliseconds interval) {
    doStartChangePollingMechanism(interval);
}

void IProvider::stopChangePollingMechanism() {
    doStopChangePollingMechanism();
}

bool IProvider::hasFeature(Feature feature) {
    return doHasFeature(feature);
}

PathComparator IProvider::getPathComparator() {
    return doGetPathComparator();
}

StorageIRI IProvider::getCanonicalLocation(const StorageIRI& location) {
    return doGetCanonicalLocation(location);
}

FilenameSensitivity IProvider::getFilenameSensitivity() {
    return doGetFilenameSensitivity();
}

void IProvider::shutdown() {
    doShutdown();
}

bool IProvider::exists(const StorageIRI& location) {
    return doExists(location);
}

Existence IProvider::existsExtended(const StorageIRI& location) {
    return doExistsExtended(location);
}

ExtendedAttributes IProvider::getExtendedAttributes(const StorageIRI& location) {
    return doGetExtendedAttributes(location);
}

ProviderStorageInfo IProvider::getProviderStorageInfo() {
    return doGetProviderStorageInfo();
}

void IProvider::truncateToSize(const StorageIRI& file, std::uint64_t size) {
    doTruncateToSize(file, size);
}

ProviderCacheUsage IProvider::getProviderCacheUsage() {
    return doGetProviderCacheUsage();
}

} // namespace foundation::storage::provider
