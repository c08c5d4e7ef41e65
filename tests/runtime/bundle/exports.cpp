#include <runtime/bundle/Greeter.h>

#include <cppmicroservices/BundleInitialization.h>
#include <cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp>

#include <new>
#include <tuple>

namespace component = cppmicroservices::service::component::detail;
using runtime::bundle::Clinger;
using runtime::bundle::Farewell;
using runtime::bundle::Greeter;
using runtime::bundle::Greeting;
using runtime::bundle::Hermit;
using runtime::bundle::Narcissist;
using runtime::bundle::Quitter;
using runtime::bundle::Sulker;

CPPMICROSERVICES_INITIALIZE_BUNDLE

extern "C" {

// A bundle whose memory ran out gives no object.
US_ABI_EXPORT component::ComponentInstance* NewInstance_runtime_bundle_Absentee() {
    return nullptr;
}

US_ABI_EXPORT void DeleteInstance_runtime_bundle_Absentee(component::ComponentInstance* instance) {
    delete instance;
}

US_ABI_EXPORT component::ComponentInstance* NewInstance_runtime_bundle_Clinger() {
    return new (std::nothrow) component::ComponentInstanceImpl<Clinger, std::tuple<Greeting>>;
}

US_ABI_EXPORT void DeleteInstance_runtime_bundle_Clinger(component::ComponentInstance* instance) {
    delete instance;
}

US_ABI_EXPORT component::ComponentInstance* NewInstance_runtime_bundle_Greeter() {
    return new (std::nothrow) component::ComponentInstanceImpl<Greeter, std::tuple<Greeting, Farewell>>;
}

US_ABI_EXPORT void DeleteInstance_runtime_bundle_Greeter(component::ComponentInstance* instance) {
    delete instance;
}

US_ABI_EXPORT component::ComponentInstance* NewInstance_runtime_bundle_Hermit() {
    return new (std::nothrow) component::ComponentInstanceImpl<Hermit, std::tuple<Greeting>>;
}

US_ABI_EXPORT void DeleteInstance_runtime_bundle_Hermit(component::ComponentInstance* instance) {
    delete instance;
}

US_ABI_EXPORT component::ComponentInstance* NewInstance_runtime_bundle_Narcissist() {
    return new (std::nothrow) component::ComponentInstanceImpl<Narcissist, std::tuple<Greeting>>;
}

US_ABI_EXPORT void DeleteInstance_runtime_bundle_Narcissist(component::ComponentInstance* instance) {
    delete instance;
}

US_ABI_EXPORT component::ComponentInstance* NewInstance_runtime_bundle_Quitter() {
    return new (std::nothrow) component::ComponentInstanceImpl<Quitter, std::tuple<Greeting>>;
}

US_ABI_EXPORT void DeleteInstance_runtime_bundle_Quitter(component::ComponentInstance* instance) {
    delete instance;
}

US_ABI_EXPORT component::ComponentInstance* NewInstance_runtime_bundle_Sulker() {
    return new (std::nothrow) component::ComponentInstanceImpl<Sulker, std::tuple<Greeting>>;
}

US_ABI_EXPORT void DeleteInstance_runtime_bundle_Sulker(component::ComponentInstance* instance) {
    delete instance;
}
}
