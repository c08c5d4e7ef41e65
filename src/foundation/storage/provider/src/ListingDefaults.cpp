#include "FolderTree.h"
#include "Wildcard.h"

#include <foundation/storage/provider/IProvider.h>

#include <utility>

namespace foundation::storage::provider {

namespace {

using fl::i18n::ustring;
using fl::i18n::ustring_view;
using Listing = std::unique_ptr<IFolderEntryIterator>;

Listing matching(const Listing& all, const detail::Wildcard& wildcard) {
    detail::FolderTree entries;
    std::vector<std::size_t> chosen;
    while (all->hasNext()) {
        all->next();
        auto entry = all->current();
        if (wildcard.matches(entry.getName())) {
            chosen.push_back(entries.add(detail::FolderTree::top, std::move(entry)));
        }
    }
    return std::make_unique<detail::FolderTreeIterator>(std::move(entries), std::move(chosen));
}

template <typename Predicate>
Listing chosenBelow(IProvider& provider, const StorageIRI& folder, Predicate isChosen) {
    auto tree = detail::FolderTree::below(provider, folder);
    std::vector<std::size_t> chosen;
    for (std::size_t index = 0; index < tree.size(); ++index) {
        if (isChosen(tree.nameOf(index))) {
            chosen.push_back(index);
        }
    }
    return std::make_unique<detail::FolderTreeIterator>(std::move(tree), std::move(chosen));
}

std::vector<ustring> namesOf(const Listing& listing) {
    std::vector<ustring> names;
    while (listing->hasNext()) {
        listing->next();
        names.push_back(listing->current().getName());
    }
    return names;
}

} // namespace

Listing IProvider::doListAllWildcards(const StorageIRI& folder, ustring_view pattern) {
    const detail::Wildcard wildcard(pattern, folder);
    return matching(doListAll(folder), wildcard);
}

Listing IProvider::doListFilesWildcards(const StorageIRI& folder, ustring_view pattern) {
    const detail::Wildcard wildcard(pattern, folder);
    return matching(doListFiles(folder), wildcard);
}

Listing IProvider::doListFoldersWildcards(const StorageIRI& folder, ustring_view pattern) {
    const detail::Wildcard wildcard(pattern, folder);
    return matching(doListFolders(folder), wildcard);
}

std::vector<ustring> IProvider::doListAllNamesOnly(const StorageIRI& folder) {
    return namesOf(doListAll(folder));
}

std::vector<ustring> IProvider::doListAllNamesOnlyWildcards(const StorageIRI& folder, ustring_view pattern) {
    return namesOf(doListAllWildcards(folder, pattern));
}

std::vector<ustring> IProvider::doListFoldersNamesOnly(const StorageIRI& folder) {
    return namesOf(doListFolders(folder));
}

std::vector<ustring> IProvider::doListFoldersNamesOnlyWildcards(const StorageIRI& folder,
                                                                ustring_view pattern) {
    return namesOf(doListFoldersWildcards(folder, pattern));
}

std::vector<ustring> IProvider::doListFilesNamesOnly(const StorageIRI& folder) {
    return namesOf(doListFiles(folder));
}

std::vector<ustring> IProvider::doListFilesNamesOnlyWildcards(const StorageIRI& folder,
                                                              ustring_view pattern) {
    return namesOf(doListFilesWildcards(folder, pattern));
}

Listing IProvider::doListAllRecursive(const StorageIRI& folder) {
    return chosenBelow(*this, folder, [](const ustring&) { return true; });
}

Listing IProvider::doListAllRecursiveWildcards(const StorageIRI& folder, ustring_view pattern) {
    const detail::Wildcard wildcard(pattern, folder);
    return chosenBelow(*this, folder, [&wildcard](const ustring& name) { return wildcard.matches(name); });
}

std::vector<ustring> IProvider::doListAllRecursiveNamesOnly(const StorageIRI& folder) {
    return namesOf(doListAllRecursive(folder));
}

std::vector<ustring> IProvider::doListAllRecursiveNamesOnlyWildcards(const StorageIRI& folder,
                                                                     ustring_view pattern) {
    return namesOf(doListAllRecursiveWildcards(folder, pattern));
}

} // namespace foundation::storage::provider
