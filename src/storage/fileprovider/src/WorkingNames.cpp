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

constexpr std::string_view stagingKind = "new";
constexpr std::string_view journalKind = "journal";
constexpr std::string_view copyKind = "copy";

/// What stands behind the marker; empty without one, or with nothing in front of it.
std::string_view kindOf(std::string_view name) {
    const auto at = name.rfind(marker);
    return at == std::string_view::npos || at == 0 ? std::string_view() : name.substr(at + marker.size());
}

bool isAllDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// The file of that kind and of the same slot.
std::string besideStaging(std::string_view stagingPath, std::string_view kind) {
    const auto kindAt = stagingPath.rfind(marker) + marker.size();
    std::string path(stagingPath.substr(0, kindAt));
    path += kind;
    path += stagingPath.substr(kindAt + stagingKind.size());
    return path;
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

std::string keptCopyName(std::string_view target) {
    return shortName(nameOf(target)) + ".before-recovery";
}

std::string journalDraftFor(std::string_view stagingPath) {
    return besideStaging(stagingPath, journalKind);
}

std::string copyDraftFor(std::string_view stagingPath) {
    return besideStaging(stagingPath, copyKind);
}

bool isStagingName(std::string_view name) {
    const auto kind = kindOf(name);
    // What stands behind a NUL would be no part of the name for the system.
    return name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos &&
           kind.size() > stagingKind.size() && kind.substr(0, stagingKind.size()) == stagingKind &&
           isAllDigits(kind.substr(stagingKind.size()));
}

bool isWorkingName(std::string_view name) {
    const auto kind = kindOf(name);
    const bool isJournal =
        kind.substr(0, journalKind.size()) == journalKind && isAllDigits(kind.substr(journalKind.size()));
    const bool isCopy = kind.size() > copyKind.size() && kind.substr(0, copyKind.size()) == copyKind &&
                        isAllDigits(kind.substr(copyKind.size()));
    return !name.empty() && name.front() == '.' && (isJournal || isCopy || isStagingName(name));
}

} // namespace storage::fileprovider
