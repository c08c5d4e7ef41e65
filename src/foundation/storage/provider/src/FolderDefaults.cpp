#include "FolderTree.h"

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace foundation::storage::provider {

namespace {

/// Another thread or program may make a folder between our look and our attempt.
void createFolderUnlessThere(IProvider& provider, const StorageIRI& folder) {
    try {
        provider.createFolder(folder);
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::AlreadyExists || !provider.isFolder(folder)) {
            throw;
        }
    }
}

} // namespace

void IProvider::doCreateFolderRecursive(const StorageIRI& location) {
    // Lengths of the paths of the missing folders, from the lowest up: thousands of whole paths, each a
    // little shorter than the one before, would take a lot of memory.
    std::vector<std::size_t> missing;
    StorageIRI below;
    for (StorageIRI folder = location; folder != below && !doIsFolder(folder);) {
        missing.push_back(folder.getResolvedPath().size());
        below = std::exchange(folder, folder.parent());
    }
    // Where a file stands in the way, it is the first that cannot be made.
    std::for_each(missing.rbegin(), missing.rend(), [this, &location](std::size_t length) {
        const auto path = fl::i18n::ustring_view(location.getResolvedPath()).substr(0, length);
        createFolderUnlessThere(*this, location.withPath(path));
    });
}

void IProvider::doRemoveFolderRecursively(const StorageIRI& location) {
    const auto tree = detail::FolderTree::below(*this, location);
    // Backwards, every folder comes after its entries.
    fl::i18n::ustring path;
    for (std::size_t index = tree.size(); index-- > 0;) {
        if (index + 1 < tree.size() && tree.parentOf(index + 1) == index) {
            path.resize(path.size() - tree.nameOf(index + 1).size() - 1);
        } else {
            path = tree.pathOf(index);
        }
        const auto entry = location.child(path);
        tree.isFolder(index) ? doRemoveFolder(entry) : doRemoveFile(entry);
    }
    doRemoveFolder(location);
}

} // namespace foundation::storage::provider
