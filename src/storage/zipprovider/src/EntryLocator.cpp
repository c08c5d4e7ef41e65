#include "EntryLocator.h"

#include <array>

namespace storage::zipprovider {

namespace {

/// What is said of the current entry, if its name is `name`. minizip reads a header byte by byte, so it is
/// asked once, with room for the extra fields that occur.
std::optional<LocatedEntry> currentEntry(unzFile archive, const std::string& name) {
    LocatedEntry entry{};
    std::string found(name.size(), '\0');
    std::array<char, 512> extra{};
    if (unzGetCurrentFileInfo64(archive, &entry.info, found.data(), static_cast<uLong>(found.size()),
                                extra.data(), extra.size(), nullptr, 0) != UNZ_OK ||
        entry.info.size_filename != name.size() || found != name) {
        return std::nullopt;
    }
    if (entry.info.size_file_extra <= extra.size()) {
        entry.extraField.assign(extra.data(), entry.info.size_file_extra);
        return entry;
    }
    entry.extraField.resize(entry.info.size_file_extra);
    if (unzGetCurrentFileInfo64(archive, &entry.info, nullptr, 0, entry.extraField.data(),
                                static_cast<uLong>(entry.extraField.size()), nullptr, 0) != UNZ_OK) {
        return std::nullopt;
    }
    return entry;
}

std::optional<LocatedEntry> entryAt(unzFile archive, unz64_file_pos position, const std::string& name) {
    return unzGoToFilePos64(archive, &position) == UNZ_OK ? currentEntry(archive, name) : std::nullopt;
}

std::optional<LocatedEntry> entryNamed(unzFile archive, const std::string& name) {
    // minizip takes the name as a C string: it would find the entry whose name ends before a NUL.
    if (name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    // It refuses to look while it stands at no entry, as after a place that does not exist.
    unzGoToFirstFile(archive);
    constexpr int caseSensitive = 1;
    return unzLocateFile(archive, name.c_str(), caseSensitive) == UNZ_OK ? currentEntry(archive, name)
                                                                         : std::nullopt;
}

} // namespace

std::optional<LocatedEntry> goToEntry(unzFile archive, const std::string& name,
                                      const std::optional<unz64_file_pos>& position) {
    if (archive == nullptr) {
        return std::nullopt;
    }
    if (position) {
        if (auto entry = entryAt(archive, *position, name)) {
            return entry;
        }
    }
    return entryNamed(archive, name);
}

} // namespace storage::zipprovider
