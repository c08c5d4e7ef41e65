#include "UniqueName.h"

#include <fl/filesystem/TemporaryNames.h>

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>

#include <cstdint>
#include <random>
#include <string_view>
#include <utility>

namespace fl::filesystem {

namespace {

using foundation::core::Mutex;
using foundation::core::MutexLock;

struct Source {
    Mutex mutex;
    TemporaryNameSource function KX_GUARDED_BY(mutex);
};

/// Never destroyed: destructors of other statics may still make temporary files.
Source& source() {
    static Source& theSource = *new Source;
    return theSource;
}

/// From the system's own random numbers each time: they differ between processes, also after a fork. The
/// device that hands them out is made once, since choosing among the system's sources is dear.
std::string randomPart() {
    constexpr std::string_view alphabet = "0123456789abcdefghijklmnopqrstuvwxyz";
    static std::random_device& device = *new std::random_device;
    std::string part;
    while (part.size() < 16) {
        // A number costs as much as a small system call, so each makes several characters.
        std::uint64_t bits = (std::uint64_t{device()} << 32) | device();
        for (int i = 0; i < 8; ++i, bits /= alphabet.size()) {
            part += alphabet[bits % alphabet.size()];
        }
    }
    return part;
}

} // namespace

TemporaryNameSource setTemporaryNameSource(TemporaryNameSource newSource) {
    Source& current = source();
    const MutexLock lock(current.mutex);
    return std::exchange(current.function, std::move(newSource));
}

std::string detail::nextUniquePart() {
    Source& current = source();
    const MutexLock lock(current.mutex);
    return current.function ? current.function() : randomPart();
}

} // namespace fl::filesystem
