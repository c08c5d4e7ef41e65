#pragma once

#include <foundation/log/Export.h>
#include <foundation/log/severity.h>

#include <string>
#include <string_view>
#include <vector>

namespace foundation::log {

// What is logged to standard error. Nothing is until it is switched on: by the environment variable KX_LOG,
// which is read before the first logger is made, or by the functions here, which replace what it said.
// Threads: any.

/// Logs records up to `level` of the channels to standard error, one a line. A channel is selected by its
/// name or by a namespace above it ("storage::zipprovider" selects "storage::zipprovider::ZipState"); an
/// empty list selects all.
KXFOUNDATION_LOG_API void enable(severity level, const std::vector<std::string>& channels = {});

/// The same from a text as KX_LOG takes it: "info" or "debug", optionally followed by ':' and channels
/// separated by ',' ("debug:storage::zipprovider::ZipState,storage::vfs"). The empty text and "off" switch
/// off.
/// Errors: std::invalid_argument for any other text; nothing is changed then. (A KX_LOG that cannot be read
/// gives a message on standard error and counts as empty.)
KXFOUNDATION_LOG_API void enableFromText(std::string_view text);

/// Logs no more to standard error.
KXFOUNDATION_LOG_API void disable();

} // namespace foundation::log
