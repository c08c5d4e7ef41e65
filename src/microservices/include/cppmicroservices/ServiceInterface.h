#pragma once

#include <cppmicroservices/GlobalConfig.h>
#include <cppmicroservices/ServiceException.h>

#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>

namespace cppmicroservices {

/// A service object as each of its interfaces: interface identifier to pointer to that base.
using InterfaceMap = std::unordered_map<std::string, std::shared_ptr<void>>;
using InterfaceMapPtr = std::shared_ptr<InterfaceMap>;
using InterfaceMapConstPtr = std::shared_ptr<const InterfaceMap>;

namespace detail {

US_Framework_EXPORT std::string GetDemangledName(const std::type_info& type);

template <class T, class... List>
struct Contains : std::disjunction<std::is_same<T, List>...> {};

} // namespace detail

} // namespace cppmicroservices

/// The identifier of service interface T: its qualified name, unless it was declared with
/// CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE.
template <class T>
const std::string& us_service_interface_iid() {
    static const std::string name = cppmicroservices::detail::GetDemangledName(typeid(T));
    return name;
}

template <>
inline const std::string& us_service_interface_iid<void>() {
    static const std::string name;
    return name;
}

/// Gives an interface an identifier of its own. Stands in the global namespace, in the interface's header.
#define CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(_service_interface_type, _service_interface_id)           \
    template <>                                                                                              \
    inline const std::string& us_service_interface_iid<_service_interface_type>() {                          \
        static const std::string name(_service_interface_id);                                                \
        return name;                                                                                         \
    }

namespace cppmicroservices {

/// Turns a service object into the InterfaceMap of the interfaces named:
/// `InterfaceMapPtr map = MakeInterfaceMap<I1, I2>(object);`
template <class... Interfaces>
class MakeInterfaceMap {
public:
    template <class Impl>
    MakeInterfaceMap(const std::shared_ptr<Impl>& object)
        : m_map(std::make_shared<InterfaceMap>(InterfaceMap{
              {us_service_interface_iid<Interfaces>(), std::static_pointer_cast<Interfaces>(object)}...})) {}

    operator InterfaceMapPtr() { return m_map; }
    operator InterfaceMapConstPtr() { return m_map; }

private:
    InterfaceMapPtr m_map;
};

/// The object as `Interface`; null if it does not offer that.
template <class Interface>
std::shared_ptr<Interface> ExtractInterface(const InterfaceMapConstPtr& map) {
    const auto found = map->find(us_service_interface_iid<Interface>());
    return found == map->end() ? nullptr : std::static_pointer_cast<Interface>(found->second);
}

/// The object as the interface with that identifier, as any of them if the identifier is empty; null if `map`
/// is null or does not offer it.
inline std::shared_ptr<void> ExtractInterface(const InterfaceMapConstPtr& map,
                                              const std::string& interfaceId) {
    if (!map || map->empty())
        return nullptr;
    const auto found = interfaceId.empty() ? map->begin() : map->find(interfaceId);
    return found == map->end() ? nullptr : found->second;
}

} // namespace cppmicroservices
