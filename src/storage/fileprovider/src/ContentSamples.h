#pragma once

#include <storage/fileprovider/src/Environment.h>

#include <cstdint>
#include <string>

namespace storage::fileprovider {

/// Tells whether a file that was being overwritten holds nothing but what the copy-over left, by samples of
/// the contents from before.
///
/// A sample is the CRC-32, 4 bytes little-endian, of a stretch of at most 512 bytes that no boundary between
/// sectors divides. At most 2048 are taken: of all the contents up to 1 MiB, in shorter stretches for small
/// files, and of stretches spread evenly over larger ones, the first and the last among them.
///
/// A copy-over whose process was stopped, while the system ran on, has left each stretch as it was before or
/// as it is to be; only in the one where it stopped may new bytes stand before old ones. What has grown behind
/// the old end is zeros or new bytes. What the stop of the system leaves may be neither:
/// isAsTheSystemsStopLeftIt.

/// The samples of a file that holds `oldSize` bytes and is to hold `newSize`. Empty when it is not open for
/// reading. Returns 0 or an errno.
int sampleContents(const Environment& environment, int file, std::uint64_t oldSize, std::uint64_t newSize,
                   std::string& samples);

/// What a copy-over went from and to.
struct CopiedContents {
    std::string oldSamples;
    std::uint64_t oldSize = 0;
    std::uint64_t newSize = 0;
    /// The new contents.
    int newFile = -1;
};

/// Whether the samples of `file` fit a copy-over that was stopped at any moment. A file that is not open for
/// reading, and stretches for which there is no sample, are taken to fit. Returns 0 or an errno.
int compareWithStoppedCopy(const Environment& environment, int file, const CopiedContents& contents,
                           bool& fits);

} // namespace storage::fileprovider
