#include <foundation/storage/provider/IFlushable.h>

namespace foundation::storage::provider {

IFlushable::~IFlushable() = default;

void IFlushable::flush() {
    doFlush();
}

} // namespace foundation::storage::provider
