#include "ExpectedTree.h"

#include <array>
#include <cstdio>
#include <sstream>
#include <vector>

#include <fl/i18n/utf8.h>

namespace kx::test {

namespace {

std::vector<std::string> components(const std::string& path) {
    std::vector<std::string> result;
    std::istringstream stream(path);
    for (std::string piece; std::getline(stream, piece, '/');) {
        if (!piece.empty())
            result.push_back(piece);
    }
    return result;
}

std::string isoTime(const std::array<int, 6>& time) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d", time[0], time[1], time[2],
                  time[3], time[4], time[5]);
    return text.data();
}

} // namespace

bool nameIsUtf8(const CorpusEntry& entry) {
    return fl::i18n::isUtf8(entry.storedName);
}

bool dateExists(const CorpusEntry& entry) {
    constexpr std::array<int, 12> days = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const auto& [year, month, day, hour, minute, second] = entry.modified;
    if (month < 1 || month > 12 || day < 1 || day > days[static_cast<std::size_t>(month - 1)])
        return false;
    // DOS dates end in 2107, and 2100 is the only century among them that is no leap year.
    return month != 2 || day != 29 || (year % 4 == 0 && year != 2100);
}

namespace {

ExpectedEntry fileOf(const CorpusEntry& entry) {
    ExpectedEntry expected;
    expected.modified = isoTime(entry.modified);
    expected.size = entry.size;
    expected.crc32 = entry.crc32;
    expected.readable = !entry.encrypted && (entry.method == 0 || entry.method == 8) && nameIsUtf8(entry);
    return expected;
}

/// False when the entry, or a part of its path, is hidden by an earlier one.
bool add(const CorpusEntry& entry, std::map<std::string, ExpectedEntry>& entries) {
    const std::string shown = fl::i18n::toUtf8(fl::i18n::fromUtf8(entry.storedName));
    const std::vector<std::string> names = components(shown);
    std::string path;
    for (std::size_t i = 0; i != names.size(); ++i) {
        path += (i == 0 ? "" : "/") + names[i];
        const bool folder = i + 1 != names.size() || shown.ends_with('/');
        ExpectedEntry expected = fileOf(entry);
        if (folder)
            expected = {true, 0, 0, isoTime(entry.modified), true};
        const auto [place, inserted] = entries.emplace(path, expected);
        if (!inserted && !(folder && place->second.folder))
            return false;
    }
    return true;
}

} // namespace

ExpectedTree expectedTree(const CorpusArchive& archive) {
    ExpectedTree tree;
    for (const CorpusEntry& entry : archive.entries)
        tree.hiddenEntries = !add(entry, tree.entries) || tree.hiddenEntries;
    return tree;
}

} // namespace kx::test
