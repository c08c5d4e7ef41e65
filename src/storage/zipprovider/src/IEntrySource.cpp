#include "IEntrySource.h"

#include "MiniZipException.h"
#include "ZipConstants.h"

#include <foundation/core/except/throwInternal.h>

#include <ostream>
#include <vector>

namespace storage::zipprovider {

std::uint64_t IEntrySource::doWrite(std::ostream& out) {
    std::vector<char> buffer(entryCopyBufferSize);
    std::uint64_t total = 0;
    for (;;) {
        const auto count = read(buffer.data(), entryCopyBufferSize);
        if (count <= 0) {
            break;
        }
        if (out.bad()) {
            foundation::core::except::throwInternal(
                MiniZipException(u"Error; output stream has bad state in MiniZipEntrySerializer::doWrite"));
        }
        out.write(buffer.data(), count);
        total += static_cast<std::uint64_t>(count);
    }
    out.flush();
    return total;
}

} // namespace storage::zipprovider
