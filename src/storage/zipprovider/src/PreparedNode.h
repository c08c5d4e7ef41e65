#pragma once

#include <utility>

namespace storage::zipprovider {

/// A change of a map in two steps: preparedNode() does what needs memory, putNode() cannot fail. So an
/// operation that changes several maps, and prepares all before it puts any, is made as a whole or not at all
/// when memory runs out.

/// The place of `value` under `key`, made ready for a map of this type. Errors: std::bad_alloc.
template <typename Map>
typename Map::node_type preparedNode(typename Map::key_type key, typename Map::mapped_type value) {
    Map one;
    one.emplace(std::move(key), std::move(value));
    return one.extract(one.begin());
}

/// Puts a place into a map; a value that stands there under its key is replaced. Precondition: `node` is not
/// empty. Comparing keys and moving values must not throw.
template <typename Map>
void putNode(Map& map, typename Map::node_type node) noexcept {
    if (auto result = map.insert(std::move(node)); !result.inserted) {
        result.position->second = std::move(result.node.mapped());
    }
}

} // namespace storage::zipprovider
