#include "LoadedInterfaces.h"

namespace cppmicroservices {

namespace {

struct Loaded {
    // The library goes last: even the bookkeeping of the pointers in `object` is its code.
    std::shared_ptr<const SharedLibrary> library;
    InterfaceMapConstPtr object;
};

} // namespace

InterfaceMapConstPtr keepLoaded(InterfaceMapConstPtr object, std::shared_ptr<const SharedLibrary> library) {
    if (!library)
        return object;
    const auto loaded = std::make_shared<Loaded>(Loaded{std::move(library), std::move(object)});
    auto result = std::make_shared<InterfaceMap>();
    for (const auto& [interfaceId, pointer] : *loaded->object)
        result->emplace(interfaceId, std::shared_ptr<void>(loaded, pointer.get()));
    return result;
}

} // namespace cppmicroservices
