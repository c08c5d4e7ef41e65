#pragma once

#include <foundation/core/Export.h>

#include <stdexcept>

/// An exception whose type information is that of each library for itself, as a bundle's own exceptions are.
class PluginException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

extern "C" {

/// Throws a PluginException with the text "thrown by the plug-in".
KX_EXPORT_SYMBOL void kxThrowPluginException();
/// Lets fl::filesystem::status fail for a path that does not exist.
KX_EXPORT_SYMBOL void kxThrowFileSystemException();
/// Whether the plug-in catches what it throws itself by its own type.
KX_EXPORT_SYMBOL bool kxCatchesItsOwnException();
}
