#pragma once

#include <cppmicroservices/servicecomponent/detail/ComponentInstance.hpp>

#include <memory>
#include <tuple>

namespace cppmicroservices::service::component::detail {

/// The ComponentInstance of the implementation class T, which is default-constructible and derives from each
/// service interface in InterfaceTuple, a std::tuple.
template <class T, class InterfaceTuple = std::tuple<>>
class ComponentInstanceImpl final : public ComponentInstance {
public:
    void CreateInstance(const std::shared_ptr<ComponentContext>& context) override {
        m_object = std::make_shared<T>();
        m_context = context;
    }

    void Activate() override {
        if constexpr (requires(T & object) { object.Activate(m_context); })
            m_object->Activate(m_context);
    }

    void Deactivate() override {
        if constexpr (requires(T & object) { object.Deactivate(m_context); })
            m_object->Deactivate(m_context);
    }

    InterfaceMapPtr GetInterfaceMap() override { return interfacesOf(static_cast<InterfaceTuple*>(nullptr)); }

private:
    InterfaceMapPtr interfacesOf(std::tuple<>*) { return nullptr; }

    template <class... Interfaces>
    InterfaceMapPtr interfacesOf(std::tuple<Interfaces...>*) {
        return MakeInterfaceMap<Interfaces...>(m_object);
    }

    std::shared_ptr<ComponentContext> m_context;
    std::shared_ptr<T> m_object;
};

} // namespace cppmicroservices::service::component::detail
