#pragma once

#include <cstdint>
#include <iosfwd>

namespace storage::zipprovider {

/// Whether an entry of the archive is a file or a folder. A value type over its number; a number that is
/// neither is kept as it is and counts as a folder wherever the two are told apart.
class ZipEntryType {
public:
    constexpr explicit ZipEntryType(std::uint32_t value) : m_value(value) {}

    static const ZipEntryType File;
    static const ZipEntryType Folder;

    friend constexpr bool operator==(ZipEntryType, ZipEntryType) = default;
    /// Writes "ZipEntryType::File" or "ZipEntryType::Folder".
    friend std::ostream& operator<<(std::ostream& out, ZipEntryType type);

private:
    std::uint32_t m_value;
};

inline constexpr ZipEntryType ZipEntryType::File{0};
inline constexpr ZipEntryType ZipEntryType::Folder{1};

} // namespace storage::zipprovider
