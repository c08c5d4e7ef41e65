#pragma once

#include "ProviderOperation.h"

#include <foundation/core/Mutex.h>
#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/FileAttributes.h>
#include <foundation/storage/provider/FolderAttributes.h>
#include <foundation/storage/provider/FolderEntry.h>
#include <foundation/storage/provider/MoveOption.h>

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace kx::test {

namespace provider = foundation::storage::provider;

/// A file's contents as streams share them. The store's mutex guards all of it.
struct MemoryFile {
    std::shared_ptr<const std::string> bytes;
    boost::posix_time::ptime lastModified;
    /// Where the file stands; streams stay with a file that is moved.
    fl::i18n::ustring key;
};

/// The tree of folders and files behind an InMemoryProvider and its streams, which may outlive it.
/// Every node is found by its whole path, so that thousands of folders in one another cost no walk.
/// Errors: the provider's Exception. Threads: all operations may be called from several threads.
class MemoryStore {
public:
    using Location = provider::StorageIRI;

    MemoryStore();

    void createFile(const Location& location);
    void createFolder(const Location& location);
    bool contains(const Location& location, provider::EntryKind kind) const;
    void removeFile(const Location& location);
    void removeFolder(const Location& location);
    void move(const Location& source, const Location& destination, provider::EntryKind kind,
              provider::MoveOption option);
    provider::FileAttributes fileAttributes(const Location& location) const;
    provider::FolderAttributes folderAttributes(const Location& location) const;
    std::vector<provider::FolderEntry> entries(const Location& folder) const;

    struct OpenedFile {
        std::shared_ptr<MemoryFile> file;
        std::shared_ptr<const std::string> bytes;
        bool created = false;
    };
    OpenedFile openForReading(const Location& location) const;
    OpenedFile openForWriting(const Location& location, bool mustExist);
    /// Gives the file new contents, wherever it stands by now.
    void commit(MemoryFile& file, std::string bytes);
    /// Removes a file that was made by a stream and never got contents.
    void discardCreated(const MemoryFile& file);

    void setReadOnly(bool readOnly);
    void setLastModified(const Location& location, boost::posix_time::ptime time);

    void count(ProviderOperation operation);
    std::uint64_t countOf(ProviderOperation operation) const;
    void streamOpened();
    void streamDestroyed() noexcept;
    std::uint64_t openStreams() const;

private:
    struct Node {
        provider::EntryKind kind;
        /// Of a folder; a file has its own.
        boost::posix_time::ptime lastModified = {};
        std::shared_ptr<MemoryFile> file = {};
        std::map<fl::i18n::ustring, provider::EntryKind> children = {};
    };

    void checkWritable(const Location& location) const KX_REQUIRES(m_mutex);
    const Node* find(const fl::i18n::ustring& key) const KX_REQUIRES(m_mutex);
    const Node& get(const Location& location, provider::EntryKind kind) const KX_REQUIRES(m_mutex);
    void add(const Location& location, const fl::i18n::ustring& key, Node node) KX_REQUIRES(m_mutex);
    void erase(const fl::i18n::ustring& key) KX_REQUIRES(m_mutex);
    void rename(const fl::i18n::ustring& from, const fl::i18n::ustring& to) KX_REQUIRES(m_mutex);

    /// Compares whole blocks of memory: keys may be tens of thousands of characters long.
    struct SameKey {
        bool operator()(const fl::i18n::ustring& a, const fl::i18n::ustring& b) const noexcept;
    };
    using Nodes = std::unordered_map<fl::i18n::ustring, Node, std::hash<fl::i18n::ustring>, SameKey>;

    mutable foundation::core::Mutex m_mutex;
    Nodes m_nodes KX_GUARDED_BY(m_mutex);
    bool m_readOnly KX_GUARDED_BY(m_mutex) = false;
    std::map<ProviderOperation, std::uint64_t> m_counts KX_GUARDED_BY(m_mutex);
    std::uint64_t m_openStreams KX_GUARDED_BY(m_mutex) = 0;
};

} // namespace kx::test
