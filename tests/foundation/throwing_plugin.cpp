#include "throwing_plugin.h"

#include <fl/filesystem/operations.h>
#include <foundation/core/except/throwInternal.h>

void kxThrowPluginException() {
    foundation::core::except::throwInternal(PluginException("thrown by the plug-in"));
}

void kxThrowFileSystemException() {
    fl::filesystem::status("/nonexistent/file");
}

bool kxCatchesItsOwnException() {
    try {
        kxThrowPluginException();
    } catch (const PluginException&) {
        return true;
    }
    return false;
}
