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

    InterfaceMapPtr GetInterfaceMap() override { return InterfacesIn<InterfaceTuple>::of(m_object); }

private:
    // The tuple is a list of types only; it is never instantiated, since interfaces are abstract.
    template <class Tuple>
    struct InterfacesIn;

    template <class... Interfaces>
    struct InterfacesIn<std::tuple<Interfaces...>> {
        static InterfaceMapPtr of(const std::shared_ptr<T>& object) {
            if constexpr (sizeof...(Interfaces) == 0) {
                return nullptr;
            } else {
                return MakeInterfaceMap<Interfaces...>(object);
            }
        }
    };

    std::shared_ptr<ComponentContext> m_context;
    std::shared_ptr<T> m_object;
};

} // namespace cppmicroservices::service::component::detail
