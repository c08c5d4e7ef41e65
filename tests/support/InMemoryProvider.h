#pragma once

#include "ProviderOperation.h"

#include <foundation/storage/provider/IProvider.h>

#include <memory>
#include <string>

namespace kx::test {

class MemoryStore;

/// A provider whose files and folders live in memory, scheme "mem" unless told otherwise. It has the core
/// operations and leaves all others to the library's defaults.
///
/// A stream for writing puts its bytes in place with close(); one that is destroyed without leaves the file
/// as it was. A stream for reading shows the file as it was when it was opened. Names are ordered by code
/// units.
class InMemoryProvider final : public foundation::storage::provider::IProvider {
public:
    using StorageIRI = foundation::storage::provider::StorageIRI;

    explicit InMemoryProvider(std::string scheme = "mem");
    ~InMemoryProvider() override;

    /// The location of an absolute path.
    StorageIRI at(fl::i18n::ustring_view path) const;

    /// Whether changing operations fail with NotWritable; streams that are open already are not affected.
    void setReadOnly(bool readOnly);
    /// Errors: NotFound.
    void setTime(const StorageIRI& location, boost::posix_time::ptime time);

    /// How often an operation was called, streams' operations included.
    std::uint64_t callCount(ProviderOperation operation) const;
    /// The number of streams that are not destroyed yet.
    std::uint64_t openStreamCount() const;

private:
    using EntryIterator = std::unique_ptr<foundation::storage::provider::IFolderEntryIterator>;
    using Stream = std::unique_ptr<foundation::storage::provider::ByteStream>;
    using Options = foundation::storage::provider::ByteStreamOpenOptions;
    using MoveOption = foundation::storage::provider::MoveOption;

    void doCreateFile(const StorageIRI& location) override;
    void doCreateFolder(const StorageIRI& location) override;
    bool doIsFile(const StorageIRI& location) override;
    bool doIsFolder(const StorageIRI& location) override;
    void doRemoveFile(const StorageIRI& location) override;
    void doMoveFile(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override;
    void doRemoveFolder(const StorageIRI& location) override;
    void doMoveFolder(const StorageIRI& source, const StorageIRI& destination, MoveOption option) override;
    foundation::storage::provider::FileAttributes doGetFileAttributes(const StorageIRI& location) override;
    foundation::storage::provider::FolderAttributes
    doGetFolderAttributes(const StorageIRI& location) override;
    Stream doOpenStream(const StorageIRI& location, const Options& options) override;
    Stream doOpenReadStream(const StorageIRI& location) override;
    EntryIterator doListAll(const StorageIRI& folder) override;
    EntryIterator doListFiles(const StorageIRI& folder) override;
    EntryIterator doListFolders(const StorageIRI& folder) override;

    MemoryStore& enter(ProviderOperation operation, const StorageIRI& location) const;

    const std::string m_scheme;
    const std::shared_ptr<MemoryStore> m_store;
};

} // namespace kx::test
