#pragma once

#include <apps/kxvfs/src/Session.h>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace apps::kxvfs {

/// One file or folder as the listing commands show it.
struct Entry {
    foundation::storage::provider::StorageIRI iri;
    /// The path as the person would type it.
    std::string shown;
    /// The last component, UTF-8.
    std::string name;
    bool folder = false;
    /// Absent for folders and where unknown.
    std::optional<std::uint64_t> size;
    boost::posix_time::ptime modified;
};

/// `folder` as typed and a name in it, joined.
std::string joinShown(const std::string& folder, const std::string& name);

/// The entry at a place. Errors: CommandError (NotFound) when nothing is there.
Entry entryAt(const Place& place);

/// The entries of a folder in the provider's order, with their attributes where `wantAttributes`. An entry
/// whose attributes cannot be read is reported and listed without. Errors: those of the listing.
std::vector<Entry> entriesIn(Session& session, const Place& place, const Entry& folder, bool wantAttributes);

/// Calls `visit` for everything below `folder`, a folder before its entries. A folder that
/// cannot be listed is reported.
void walk(Session& session, const Place& place, const Entry& folder,
          const std::function<void(const Entry&)>& visit);

/// The object of a listing: path, type, size, modified.
nlohmann::ordered_json toJson(const Entry& entry);
/// The object of a change: the same, action and source. What is gone again, or cannot be looked at, has only
/// its path, action and source.
nlohmann::ordered_json toJson(Session& session, const Change& change);

} // namespace apps::kxvfs
