#include <storage/fileprovider/src/WorkingNames.h>

#include <storage/fileprovider/src/LocalPath.h>

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>

namespace storage::fileprovider {

namespace {

constexpr std::string_view marker = ".kxvfs-";
// File systems allow 255 bytes; the working names add up to 27.
constexpr std::size_t longestWholeName = 220;
constexpr std::size_t keptOfLongName = 180;

/// FNV-1a: the same in every build, which std::hash is not.
std::string hashText(std::string_view text) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    }
    return fmt::format("{:016x}", hash);
}

std::string shortName(std::string_view name) {
    if (name.size() <= longestWholeName) {
        return std::string(name);
    }
    auto end = keptOfLongName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return std::string(name.substr(0, end)) + '~' + hashText(name);
}

bool isAllDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

WorkingNames::WorkingNames(std::string_view folder, std::string_view name)
    : m_folder(folder), m_prefix(fmt::format("{}{}{}{}", folder, folder == "/" ? "" : "/", name, marker)) {}

WorkingNames WorkingNames::beside(std::string_view target) {
    return {parentOf(target), '.' + shortName(nameOf(target))};
}

WorkingNames WorkingNames::inStateFolder(std::string_view stateFolder, std::string_view target) {
    return {stateFolder, hashText(target)};
}

bool isWorkingName(std::string_view name) {
    const auto at = name.rfind(marker);
    if (name.empty() || name.front() != '.' || at == std::string_view::npos || at == 0) {
        return false;
    }
    const auto kind = name.substr(at + marker.size());
    constexpr std::string_view staging = "new";
    constexpr std::string_view journal = "journal";
    if (kind.substr(0, staging.size()) == staging) {
        return kind.size() > staging.size() && isAllDigits(kind.substr(staging.size()));
    }
    return kind.substr(0, journal.size()) == journal && isAllDigits(kind.substr(journal.size()));
}

} // namespace storage::fileprovider
