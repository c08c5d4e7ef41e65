#pragma once

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>

namespace storage::mount {

class FileSystem;

/// What the operations are given as user data.
struct FuseContext {
    FileSystem& files;
    /// Whether only requests of the kernel's own change which names there are.
    bool steady;
};

/// The table of libfuse's low-level operations over a FuseContext.
const fuse_lowlevel_ops& fuseOperations();

} // namespace storage::mount
