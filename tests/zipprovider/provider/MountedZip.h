#pragma once

#include <foundation/storage/provider/ByteStream.h>
#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/MoveOption.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <foundation/storage/provider/StorageItem.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kx::test {

/// The entries of an archive by name, with their bytes; a folder's name ends in "/".
using Contents = std::map<std::string, std::string>;

/// A ZIP provider over a container, with short forms of what tests do with one. Paths are UTF-8.
class MountedZip {
public:
    using ByteStream = foundation::storage::provider::ByteStream;
    using ByteStreamOpenOptions = foundation::storage::provider::ByteStreamOpenOptions;
    using IProvider = foundation::storage::provider::IProvider;
    using MoveOption = foundation::storage::provider::MoveOption;
    using StorageIRI = foundation::storage::provider::StorageIRI;
    using StorageItem = foundation::storage::provider::StorageItem;

    explicit MountedZip(StorageItem container);

    IProvider& provider() { return *m_provider; }
    const std::shared_ptr<IProvider>& shared() { return m_provider; }
    const StorageItem& container() const { return m_container; }
    StorageIRI at(std::string_view path) const;
    /// The file at `path` as a container of its own.
    StorageItem item(std::string_view path);

    /// Drops the provider, which flushes.
    void unmount() { m_provider.reset(); }
    /// A provider that knows nothing of the one before.
    void remount();

    std::unique_ptr<ByteStream> reader(std::string_view path);
    std::unique_ptr<ByteStream>
    writer(std::string_view path, const ByteStreamOpenOptions& options = ByteStreamOpenOptions::overwrite());
    std::string read(std::string_view path);
    void write(std::string_view path, std::string_view bytes);
    void append(std::string_view path, std::string_view bytes);

    void createFile(std::string_view path) { m_provider->createFile(at(path)); }
    void createFolder(std::string_view path) { m_provider->createFolder(at(path)); }
    void removeFile(std::string_view path) { m_provider->removeFile(at(path)); }
    void removeFolder(std::string_view path) { m_provider->removeFolder(at(path)); }
    void moveFile(std::string_view from, std::string_view to, MoveOption option = MoveOption::FailIfExists) {
        m_provider->moveFile(at(from), at(to), option);
    }
    void moveFolder(std::string_view from, std::string_view to,
                    MoveOption option = MoveOption::FailIfExists) {
        m_provider->moveFolder(at(from), at(to), option);
    }
    bool isFile(std::string_view path) { return m_provider->isFile(at(path)); }
    bool isFolder(std::string_view path) { return m_provider->isFolder(at(path)); }
    std::uint64_t size(std::string_view path);

    /// The names in a folder in the order of the listing; a folder's ends in "/".
    std::vector<std::string> list(std::string_view folder = "/");
    /// Everything in the archive, read through the provider. Listing and attributes have to agree.
    Contents tree();

private:
    void addTree(const std::string& folder, Contents& contents);

    StorageItem m_container;
    std::shared_ptr<IProvider> m_provider;
};

} // namespace kx::test
