#include "FaultInjectingProvider.h"

#include "FaultInjectingByteStream.h"

#include <utility>

namespace kx::test {

FaultInjectingProvider::FaultInjectingProvider(std::shared_ptr<provider::IProvider> target,
                                               std::shared_ptr<FaultPlan> plan)
    : m_target(std::move(target)), m_plan(std::move(plan)) {}

FaultInjectingProvider::~FaultInjectingProvider() {
    endChangePolling();
}

void FaultInjectingProvider::doCreateFile(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::CreateFile, location);
    m_target->createFile(location);
}

void FaultInjectingProvider::doCreateFolder(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::CreateFolder, location);
    m_target->createFolder(location);
}

bool FaultInjectingProvider::doIsFile(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::IsFile, location);
    return m_target->isFile(location);
}

bool FaultInjectingProvider::doIsFolder(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::IsFolder, location);
    return m_target->isFolder(location);
}

void FaultInjectingProvider::doRemoveFile(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::RemoveFile, location);
    m_target->removeFile(location);
}

void FaultInjectingProvider::doMoveFile(const provider::StorageIRI& source,
                                        const provider::StorageIRI& destination,
                                        provider::MoveOption option) {
    m_plan->enter(ProviderOperation::MoveFile, source);
    m_target->moveFile(source, destination, option);
}

void FaultInjectingProvider::doRemoveFolder(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::RemoveFolder, location);
    m_target->removeFolder(location);
}

void FaultInjectingProvider::doMoveFolder(const provider::StorageIRI& source,
                                          const provider::StorageIRI& destination,
                                          provider::MoveOption option) {
    m_plan->enter(ProviderOperation::MoveFolder, source);
    m_target->moveFolder(source, destination, option);
}

provider::FileAttributes FaultInjectingProvider::doGetFileAttributes(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::GetFileAttributes, location);
    return m_target->getFileAttributes(location);
}

provider::FolderAttributes
FaultInjectingProvider::doGetFolderAttributes(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::GetFolderAttributes, location);
    return m_target->getFolderAttributes(location);
}

std::unique_ptr<provider::ByteStream>
FaultInjectingProvider::doOpenStream(const provider::StorageIRI& location,
                                     const provider::ByteStreamOpenOptions& options) {
    m_plan->enter(ProviderOperation::OpenStream, location);
    return std::make_unique<FaultInjectingByteStream>(m_target->openStream(location, options), m_plan,
                                                      location);
}

std::unique_ptr<provider::ByteStream>
FaultInjectingProvider::doOpenReadStream(const provider::StorageIRI& location) {
    m_plan->enter(ProviderOperation::OpenReadStream, location);
    return std::make_unique<FaultInjectingByteStream>(m_target->openReadStream(location), m_plan, location);
}

std::unique_ptr<provider::IFolderEntryIterator>
FaultInjectingProvider::doListAll(const provider::StorageIRI& folder) {
    m_plan->enter(ProviderOperation::ListAll, folder);
    return m_target->listAll(folder);
}

std::unique_ptr<provider::IFolderEntryIterator>
FaultInjectingProvider::doListFiles(const provider::StorageIRI& folder) {
    m_plan->enter(ProviderOperation::ListFiles, folder);
    return m_target->listFiles(folder);
}

std::unique_ptr<provider::IFolderEntryIterator>
FaultInjectingProvider::doListFolders(const provider::StorageIRI& folder) {
    m_plan->enter(ProviderOperation::ListFolders, folder);
    return m_target->listFolders(folder);
}

void FaultInjectingProvider::doSetLastModified(const provider::StorageIRI& location,
                                               boost::posix_time::ptime time) {
    m_plan->enter(ProviderOperation::SetLastModified, location);
    m_target->setLastModified(location, time);
}

void FaultInjectingProvider::doSetWritable(const provider::StorageIRI& location, bool writable) {
    m_plan->enter(ProviderOperation::SetWritable, location);
    m_target->setWritable(location, writable);
}

bool FaultInjectingProvider::doHasFeature(provider::Feature feature) {
    return m_target->hasFeature(feature);
}

provider::PathComparator FaultInjectingProvider::doGetPathComparator() {
    return m_target->getPathComparator();
}

provider::StorageIRI FaultInjectingProvider::doGetCanonicalLocation(const provider::StorageIRI& location) {
    return m_target->getCanonicalLocation(location);
}

} // namespace kx::test
