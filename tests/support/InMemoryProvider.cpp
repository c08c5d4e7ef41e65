#include "InMemoryProvider.h"

#include "MemoryStore.h"
#include "MemoryStream.h"
#include "VectorEntryIterator.h"

#include <foundation/storage/provider/Exception.h>

#include <utility>

namespace kx::test {

using provider::EntryKind;

InMemoryProvider::InMemoryProvider(std::string scheme)
    : m_scheme(std::move(scheme)), m_store(std::make_shared<MemoryStore>()) {}

InMemoryProvider::~InMemoryProvider() {
    endChangePolling();
}

InMemoryProvider::StorageIRI InMemoryProvider::at(fl::i18n::ustring_view path) const {
    return StorageIRI::parse(m_scheme + ":///").withPath(path);
}

void InMemoryProvider::setReadOnly(bool readOnly) {
    m_store->setReadOnly(readOnly);
}

void InMemoryProvider::setTime(const StorageIRI& location, boost::posix_time::ptime time) {
    m_store->setLastModified(location, time);
}

std::uint64_t InMemoryProvider::callCount(ProviderOperation operation) const {
    return m_store->countOf(operation);
}

std::uint64_t InMemoryProvider::openStreamCount() const {
    return m_store->openStreams();
}

void InMemoryProvider::doCreateFile(const StorageIRI& location) {
    enter(ProviderOperation::CreateFile, location).createFile(location);
}

void InMemoryProvider::doCreateFolder(const StorageIRI& location) {
    enter(ProviderOperation::CreateFolder, location).createFolder(location);
}

bool InMemoryProvider::doIsFile(const StorageIRI& location) {
    return enter(ProviderOperation::IsFile, location).contains(location, EntryKind::File);
}

bool InMemoryProvider::doIsFolder(const StorageIRI& location) {
    return enter(ProviderOperation::IsFolder, location).contains(location, EntryKind::Folder);
}

void InMemoryProvider::doRemoveFile(const StorageIRI& location) {
    enter(ProviderOperation::RemoveFile, location).removeFile(location);
}

void InMemoryProvider::doMoveFile(const StorageIRI& source, const StorageIRI& destination,
                                  MoveOption option) {
    enter(ProviderOperation::MoveFile, source).move(source, destination, EntryKind::File, option);
}

void InMemoryProvider::doRemoveFolder(const StorageIRI& location) {
    enter(ProviderOperation::RemoveFolder, location).removeFolder(location);
}

void InMemoryProvider::doMoveFolder(const StorageIRI& source, const StorageIRI& destination,
                                    MoveOption option) {
    enter(ProviderOperation::MoveFolder, source).move(source, destination, EntryKind::Folder, option);
}

provider::FileAttributes InMemoryProvider::doGetFileAttributes(const StorageIRI& location) {
    return enter(ProviderOperation::GetFileAttributes, location).fileAttributes(location);
}

provider::FolderAttributes InMemoryProvider::doGetFolderAttributes(const StorageIRI& location) {
    return enter(ProviderOperation::GetFolderAttributes, location).folderAttributes(location);
}

InMemoryProvider::Stream InMemoryProvider::doOpenStream(const StorageIRI& location, const Options& options) {
    auto& store = enter(ProviderOperation::OpenStream, location);
    if (options.truncation == provider::StreamTruncation::Truncate &&
        options.positioning == provider::StreamPositioning::Append) {
        throw provider::Exception(provider::ErrorCode::InvalidArgument, location,
                                  "truncating and appending exclude each other");
    }
    const auto opened =
        store.openForWriting(location, options.disposition == provider::StreamDisposition::OpenExisting);
    return std::make_unique<MemoryStream>(m_store, location, opened, options);
}

InMemoryProvider::Stream InMemoryProvider::doOpenReadStream(const StorageIRI& location) {
    const auto opened = enter(ProviderOperation::OpenReadStream, location).openForReading(location);
    return std::make_unique<MemoryStream>(m_store, location, opened);
}

InMemoryProvider::EntryIterator InMemoryProvider::doListAll(const StorageIRI& folder) {
    return std::make_unique<VectorEntryIterator>(enter(ProviderOperation::ListAll, folder).entries(folder));
}

InMemoryProvider::EntryIterator InMemoryProvider::doListFiles(const StorageIRI& folder) {
    auto entries = enter(ProviderOperation::ListFiles, folder).entries(folder);
    std::erase_if(entries, [](const auto& entry) { return entry.isFolder(); });
    return std::make_unique<VectorEntryIterator>(std::move(entries));
}

InMemoryProvider::EntryIterator InMemoryProvider::doListFolders(const StorageIRI& folder) {
    auto entries = enter(ProviderOperation::ListFolders, folder).entries(folder);
    std::erase_if(entries, [](const auto& entry) { return !entry.isFolder(); });
    return std::make_unique<VectorEntryIterator>(std::move(entries));
}

MemoryStore& InMemoryProvider::enter(ProviderOperation operation, const StorageIRI& location) const {
    m_store->count(operation);
    if (location.getScheme() != m_scheme) {
        throw provider::Exception(provider::ErrorCode::InvalidArgument, location,
                                  "the scheme is another provider's");
    }
    return *m_store;
}

} // namespace kx::test
