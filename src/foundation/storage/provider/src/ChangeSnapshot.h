#pragma once

#include <foundation/storage/provider/ChangeEvent.h>
#include <foundation/storage/provider/FolderEntry.h>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace foundation::storage::provider {
class IProvider;
}

namespace foundation::storage::provider::detail {

/// What a watched item looked like.
struct ItemState {
    EntryKind kind;
    std::optional<std::uint64_t> size;
    boost::posix_time::ptime lastModified;

    friend bool operator==(const ItemState&, const ItemState&) = default;
};

/// The watched items by location: a folder's entries, or the one file.
using ChangeSnapshot = std::map<fl::i18n::ustring, ItemState>;

/// The entries of a folder by name. Errors: as IProvider::listAll.
ChangeSnapshot lookAtFolder(IProvider& provider, const StorageIRI& folder);

/// The file under the empty name; nothing when it is not there.
ChangeSnapshot lookAtFile(IProvider& provider, const StorageIRI& file);

/// What happened between two looks at `location`, in the order of the names. An item that changed its kind
/// was removed and created.
std::vector<ChangeEvent> changesBetween(const StorageIRI& location, const ChangeSnapshot& before,
                                        const ChangeSnapshot& after);

} // namespace foundation::storage::provider::detail
