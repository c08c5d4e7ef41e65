#pragma once

#include <cppmicroservices/Any.h>

#include <cstddef>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>

namespace cppmicroservices {

namespace detail {

/// Order of the keys of an any_map; letters A to Z equal a to z if the map ignores case.
struct US_Framework_EXPORT any_map_key_order {
    bool ignoreCase = true;
    bool operator()(const std::string& left, const std::string& right) const noexcept;
};

} // namespace detail

/// A map from text to any value. Its type says whether the case of keys counts; the order of iteration is
/// unspecified except for ORDERED_MAP, which goes by code unit.
class US_Framework_EXPORT any_map {
    using container = std::map<std::string, Any, detail::any_map_key_order>;

public:
    enum map_type : unsigned char { ORDERED_MAP, UNORDERED_MAP, UNORDERED_MAP_CASEINSENSITIVE_KEYS };

    using key_type = std::string;
    using mapped_type = Any;
    using value_type = container::value_type;
    using size_type = std::size_t;
    using iterator = container::iterator;
    using const_iterator = container::const_iterator;

    explicit any_map(map_type type, std::initializer_list<value_type> values = {});

    iterator begin() noexcept { return m_values.begin(); }
    iterator end() noexcept { return m_values.end(); }
    const_iterator begin() const noexcept { return m_values.begin(); }
    const_iterator end() const noexcept { return m_values.end(); }
    const_iterator cbegin() const noexcept { return m_values.begin(); }
    const_iterator cend() const noexcept { return m_values.end(); }

    bool empty() const noexcept { return m_values.empty(); }
    size_type size() const noexcept { return m_values.size(); }
    size_type count(const key_type& key) const { return m_values.count(key); }
    const_iterator find(const key_type& key) const { return m_values.find(key); }

    /// Throws std::out_of_range if there is no such key.
    mapped_type& at(const key_type& key) { return m_values.at(key); }
    const mapped_type& at(const key_type& key) const { return m_values.at(key); }
    mapped_type& operator[](const key_type& key) { return m_values[key]; }

    /// Adds a value unless the key is there; says where it stands and whether it was added.
    std::pair<iterator, bool> insert(const value_type& value) { return m_values.insert(value); }
    template <class... Args>
    std::pair<iterator, bool> emplace(Args&&... args) {
        return m_values.emplace(std::forward<Args>(args)...);
    }

    size_type erase(const key_type& key) { return m_values.erase(key); }
    void clear() noexcept { m_values.clear(); }

protected:
    map_type m_type;

private:
    container m_values;
};

/// An any_map whose values may be maps and lists in turn, as a bundle's manifest is.
class US_Framework_EXPORT AnyMap : public any_map {
public:
    /// A map that ignores the case of its keys.
    AnyMap(std::initializer_list<value_type> values = {});
    explicit AnyMap(map_type type, std::initializer_list<value_type> values = {});

    map_type GetType() const noexcept { return m_type; }

    /// The value at a path of keys joined by ".", a list's element by its index (from the end if negative):
    /// "scr.components.0.service". Throws std::out_of_range if there is none, std::invalid_argument if the
    /// path leads through a value that is neither map nor list, or an index is not a number.
    const mapped_type& AtCompoundKey(const key_type& key) const;
    /// As above, with `defaultValue` where the other throws.
    mapped_type AtCompoundKey(const key_type& key, mapped_type defaultValue) const noexcept;
};

} // namespace cppmicroservices
