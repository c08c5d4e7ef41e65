#pragma once

#include "ZipEntryPath.h"

#include <fl/i18n/ustring.h>

#include <utility>
#include <vector>

namespace storage::zipprovider {

/// Which keys of a map by path are moved.
enum class MovedKeys { ThePathAlone, WithAllBelow };

/// The first place in a map by path that can hold something below `folder`. Paths below a folder are
/// contiguous: their texts begin with the folder's and a slash.
template <typename Map>
auto firstBelow(Map& map, const ZipEntryPath& folder) {
    return map.lower_bound(folder.child(fl::i18n::ustring(1, u'\0')));
}

/// A move of values of a map by path to other keys, in two steps: making one does what needs memory, commit()
/// cannot fail. An object that goes without commit() has changed nothing.
/// Between the two the map must outlive this object, and what is moved must stay in it; else commit() writes
/// to places that are gone. Threads: as the map's.
template <typename Map>
class PreparedMove {
public:
    using Value = typename Map::mapped_type;

    /// The move of what stands at `from` to the same place relative to `to`. `movedValue(value)` makes what
    /// stands there then, of what stands here now. Errors: std::bad_alloc; those of `movedValue`.
    template <typename MovedValue>
    PreparedMove(Map& map, const ZipEntryPath& from, const ZipEntryPath& to, MovedKeys keys,
                 MovedValue movedValue)
        : m_map(map) {
        const auto add = [&](typename Map::iterator place) {
            m_moves.push_back({place, place->first.rebased(from, to), movedValue(place->second)});
        };
        if (const auto place = map.find(from); place != map.end()) {
            add(place);
        }
        if (keys == MovedKeys::WithAllBelow) {
            for (auto place = firstBelow(map, from); place != map.end() && from.isAbove(place->first);
                 ++place) {
                add(place);
            }
        }
        m_nodes.reserve(m_moves.size());
    }

    /// Moves, once. Precondition: nothing stands at the new keys but what is moved itself; it would stay, and
    /// what was to be moved there would be gone.
    void commit() noexcept {
        for (auto& move : m_moves) {
            m_nodes.push_back(m_map.extract(move.place));
            m_nodes.back().key() = std::move(move.key);
            m_nodes.back().mapped() = std::move(move.value);
        }
        for (auto& node : m_nodes) {
            m_map.insert(std::move(node));
        }
    }

private:
    struct Move {
        typename Map::iterator place;
        ZipEntryPath key;
        Value value;
    };

    Map& m_map;
    std::vector<Move> m_moves;
    /// What is on its way in commit(). It has the room from the beginning.
    std::vector<typename Map::node_type> m_nodes;
};

} // namespace storage::zipprovider
