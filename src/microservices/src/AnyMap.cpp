#include <cppmicroservices/AnyMap.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace cppmicroservices {

namespace {

char lowered(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

const Any& elementAt(const std::vector<Any>& list, std::string_view key) {
    long index = 0;
    const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), index);
    if (error != std::errc() || end != key.data() + key.size())
        throw std::invalid_argument("'" + std::string(key) + "' is no index of a list");
    if (index < 0)
        index += static_cast<long>(list.size());
    return list.at(static_cast<std::size_t>(index));
}

const Any& childAt(const Any& parent, std::string_view key) {
    if (const auto* const map = any_cast<AnyMap>(&parent))
        return map->at(std::string(key));
    if (const auto* const list = any_cast<std::vector<Any>>(&parent))
        return elementAt(*list, key);
    throw std::invalid_argument("'" + std::string(key) + "' leads into a value that is neither map nor list");
}

} // namespace

bool detail::any_map_key_order::operator()(const std::string& left, const std::string& right) const noexcept {
    if (!ignoreCase)
        return left < right;
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](char l, char r) { return lowered(l) < lowered(r); });
}

any_map::any_map(map_type type, std::initializer_list<value_type> values)
    : m_type(type), m_values(values, detail::any_map_key_order{type == UNORDERED_MAP_CASEINSENSITIVE_KEYS}) {}

AnyMap::AnyMap(std::initializer_list<value_type> values)
    : any_map(UNORDERED_MAP_CASEINSENSITIVE_KEYS, values) {}

AnyMap::AnyMap(map_type type, std::initializer_list<value_type> values) : any_map(type, values) {}

const Any& AnyMap::AtCompoundKey(const key_type& key) const {
    std::string_view rest = key;
    std::size_t dot = rest.find('.');
    const Any* value = &at(std::string(rest.substr(0, dot)));
    while (dot != std::string_view::npos) {
        rest.remove_prefix(dot + 1);
        dot = rest.find('.');
        value = &childAt(*value, rest.substr(0, dot));
    }
    return *value;
}

Any AnyMap::AtCompoundKey(const key_type& key, mapped_type defaultValue) const noexcept {
    try {
        return AtCompoundKey(key);
    } catch (const std::exception&) {
        return defaultValue;
    }
}

} // namespace cppmicroservices
