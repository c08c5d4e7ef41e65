#include "ExpectedEntries.h"

#include <support/archives/ArchiveBuilder.h>

#include <set>

namespace kx::test {

namespace {

std::string textOf(const std::array<int, 6>& stamp) {
    std::string text;
    for (const int part : stamp)
        text += (text.empty() ? "" : "-") + std::to_string(part);
    return text;
}

std::string difference(const SeenEntry& seen, const ExpectedEntry& expected) {
    std::string text;
    if (seen.size != expected.bytes.size()) {
        text += seen.name + " has " + std::to_string(seen.size) + " bytes instead of " +
                std::to_string(expected.bytes.size()) + "\n";
    } else if (seen.crc32 != crc32Of(expected.bytes)) {
        text += seen.name + " has other bytes\n";
    }
    if (expected.modified && seen.modified != *expected.modified) {
        text += seen.name + " is of " + textOf(seen.modified) + " instead of " + textOf(*expected.modified) +
                "\n";
    }
    return text;
}

} // namespace

std::string differences(const ArchiveVerdict& verdict, const ExpectedEntries& expected) {
    std::string text = verdict.problems();
    std::set<std::string> seen;
    for (const auto& entry : verdict.entries) {
        const auto place = expected.find(entry.name);
        if (place == expected.end()) {
            text += entry.name + " is not expected\n";
        } else if (!seen.insert(entry.name).second) {
            text += entry.name + " is there twice\n";
        } else {
            text += difference(entry, place->second);
        }
    }
    for (const auto& [name, entry] : expected) {
        if (!seen.contains(name))
            text += name + " is missing\n";
    }
    return text;
}

} // namespace kx::test
