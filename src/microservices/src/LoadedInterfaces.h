#pragma once

#include <cppmicroservices/ServiceInterface.h>

#include <memory>

namespace cppmicroservices {

class SharedLibrary;

/// The same object with the same interfaces, through pointers each of which also keeps `library` loaded, so
/// that the code that destroys the object is there when the last of them goes. `object` itself if `library`
/// is null.
InterfaceMapConstPtr keepLoaded(InterfaceMapConstPtr object, std::shared_ptr<const SharedLibrary> library);

} // namespace cppmicroservices
