#pragma once

#include <foundation/storage/provider/Export.h>

namespace foundation::storage::provider {

/// What a provider offers beside IProvider when it gathers changes and writes them later. A host finds it
/// with dynamic_cast, and calls it before it lets go of the provider: a destructor that writes has nobody to
/// tell of a failure.
class KXFLSTORAGEPROVIDER_API IFlushable {
public:
    virtual ~IFlushable();

    IFlushable(const IFlushable&) = delete;
    IFlushable& operator=(const IFlushable&) = delete;

    /// Writes what was changed and is not written yet, also while writable streams are open, with what was
    /// written to them so far; they can be used on. That stays also if such a stream is given up later, and
    /// so may what a failed flush was to write. Does nothing when nothing was changed. Errors: those of
    /// writing; the changes stay pending then. Threads: any.
    void flush();

protected:
    IFlushable() = default;

    virtual void doFlush() = 0;
};

} // namespace foundation::storage::provider
