#include <storage/fileprovider/src/ContentSamples.h>

#include <storage/fileprovider/src/FileIo.h>

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>

namespace storage::fileprovider {

namespace {

constexpr std::uint64_t maximalSamples = 2048;
constexpr std::uint64_t shortestStretch = 16;
// No sector is shorter.
constexpr std::uint64_t longestStretch = 512;
constexpr std::size_t sampleSize = 4;
// The process stopped in one place.
constexpr int maximalMixedStretches = 1;

/// Where the stretches of the first `size` bytes are.
class Stretches {
public:
    explicit Stretches(std::uint64_t size) : m_size(size) {
        while (m_length < longestStretch && m_length * maximalSamples < size) {
            m_length *= 2;
        }
        m_all = size / m_length + (size % m_length != 0 ? 1 : 0);
    }

    std::uint64_t count() const { return std::min(m_all, maximalSamples); }
    std::uint64_t begin(std::uint64_t index) const {
        const auto last = m_all - 1;
        const auto stretch = m_all <= maximalSamples
                                 ? index
                                 : index * (last / (maximalSamples - 1)) +
                                       index * (last % (maximalSamples - 1)) / (maximalSamples - 1);
        return stretch * m_length;
    }
    /// `boundary` divides a stretch that it falls into; what stands behind it there is left out.
    std::uint64_t length(std::uint64_t index, std::uint64_t boundary) const {
        const auto from = begin(index);
        const auto end = std::min(from + m_length, m_size);
        return (from < boundary ? std::min(end, boundary) : end) - from;
    }

private:
    std::uint64_t m_size;
    std::uint64_t m_length = shortestStretch;
    std::uint64_t m_all = 0;
};

/// Shorter at the end of the file; disengaged when it is not open for reading, or when that fails.
std::optional<std::string> readStretch(const Environment& environment, int file, std::uint64_t begin,
                                       std::uint64_t length, int& error) {
    std::string bytes(static_cast<std::size_t>(length), '\0');
    const auto got = readAt(environment, file, bytes.data(), static_cast<std::int64_t>(length), begin);
    if (got < 0) {
        error = errno == EBADF ? error : errno;
        return std::nullopt;
    }
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
}

std::string sampleOf(std::string_view bytes) {
    const auto sum = ::crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
    std::string sample;
    for (std::size_t i = 0; i < sampleSize; ++i) {
        sample += static_cast<char>(sum >> (8 * i) & 0xFFU);
    }
    return sample;
}

class StoppedCopy {
public:
    StoppedCopy(const Environment& environment, int file, const CopiedContents& contents)
        : m_environment(environment), m_file(file), m_contents(contents) {}

    bool fits() {
        const Stretches old(m_contents.oldSize);
        const bool sampled = m_contents.oldSamples.size() == old.count() * sampleSize;
        for (std::uint64_t i = 0; sampled && i < old.count(); ++i) {
            const auto sample =
                m_contents.oldSamples.substr(static_cast<std::size_t>(i) * sampleSize, sampleSize);
            if (!fitsOld(old.begin(i), old.length(i, m_contents.newSize), sample)) {
                return false;
            }
        }
        const auto growth =
            m_contents.newSize > m_contents.oldSize ? m_contents.newSize - m_contents.oldSize : 0;
        const Stretches grown(growth);
        for (std::uint64_t i = 0; i < grown.count(); ++i) {
            if (!fitsGrown(m_contents.oldSize + grown.begin(i), grown.length(i, growth))) {
                return false;
            }
        }
        return m_mixed <= maximalMixedStretches;
    }

    /// Of the reading: 0 or an errno.
    int error() const { return m_error; }

private:
    bool fitsOld(std::uint64_t begin, std::uint64_t length, const std::string& sample) {
        const auto present = readStretch(m_environment, m_file, begin, length, m_error);
        if (!present || present->empty() || sampleOf(*present) == sample) {
            return true;
        }
        if (begin >= m_contents.newSize) {
            return false;
        }
        const auto wanted = readStretch(m_environment, m_contents.newFile, begin, present->size(), m_error);
        if (!wanted || wanted->size() < present->size() || *wanted == *present) {
            return true;
        }
        ++m_mixed;
        return wanted->front() == present->front();
    }

    bool fitsGrown(std::uint64_t begin, std::uint64_t length) {
        const auto present = readStretch(m_environment, m_file, begin, length, m_error);
        const auto wanted = readStretch(m_environment, m_contents.newFile, begin, length, m_error);
        return !present || !wanted || wanted->size() < present->size() ||
               std::equal(present->begin(), present->end(), wanted->begin(),
                          [](char is, char other) { return is == 0 || is == other; });
    }

    const Environment& m_environment;
    const int m_file;
    const CopiedContents& m_contents;
    int m_mixed = 0;
    int m_error = 0;
};

} // namespace

int sampleContents(const Environment& environment, int file, std::uint64_t oldSize, std::uint64_t newSize,
                   std::string& samples) {
    const Stretches stretches(oldSize);
    samples.clear();
    for (std::uint64_t i = 0; i < stretches.count(); ++i) {
        int error = 0;
        const auto bytes =
            readStretch(environment, file, stretches.begin(i), stretches.length(i, newSize), error);
        if (!bytes) {
            samples.clear();
            return error;
        }
        samples += sampleOf(*bytes);
    }
    return 0;
}

int compareWithStoppedCopy(const Environment& environment, int file, const CopiedContents& contents,
                           bool& fits) {
    StoppedCopy copy(environment, file, contents);
    fits = copy.fits();
    return copy.error();
}

} // namespace storage::fileprovider
