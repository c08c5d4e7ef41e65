#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include <support/archives/ArchiveBuilder.h>
#include <support/archives/ArchiveShapes.h>

namespace {

using namespace kx::test;

/// File name to bytes.
using Seeds = std::map<std::string, std::string>;

ArchiveEntry fileEntry(std::string name, std::string content, Method method = Method::Deflated) {
    ArchiveEntry entry;
    entry.name = std::move(name);
    entry.content = std::move(content);
    entry.method = method;
    return entry;
}

template <class Change>
std::string changedEntry(Change change) {
    ArchiveBuilder builder;
    builder.add("docs/").add("docs/a.txt", "some text, some text, some text").add("b", "b");
    change(builder.entry(1));
    return builder.build();
}

template <class Change>
std::string changedEnd(Change change) {
    ArchiveBuilder builder;
    builder.add("a", "1").add("b/c", "2");
    change(builder.end());
    return builder.build();
}

std::string junkAround(bool counted) {
    ArchiveBuilder builder;
    builder.leading("#!/bin/sh\nexit 0\n", counted).add("a", "1").trailing("trailing junk");
    return builder.build();
}

Seeds centralDirectorySeeds() {
    Seeds seeds;
    seeds["empty-file"] = "";
    seeds["end-record-only"] = ArchiveBuilder().build();
    seeds["plain"] = simpleArchive({{"a.txt", "1"}, {"docs/", ""}, {"docs/b/c.txt", "2"}});
    seeds["equal-names"] = simpleArchive({{"a", "1"}, {"a", "2"}, {"a/", ""}, {"a/b", "3"}});
    seeds["name-in-itself"] = simpleArchive({{"x/x", "1"}, {"x/x/x", "2"}});
    seeds["odd-names"] =
        simpleArchive({{"/abs", "1"}, {"../up", "2"}, {"a//b", "3"}, {"./c", "4"}, {"d\\e", "5"}});
    seeds["deep"] = deepArchive(200);
    seeds["wide"] = wideArchive(3, 5, true);
    seeds["leading-junk"] = junkAround(false);
    seeds["leading-junk-counted"] = junkAround(true);
    seeds["zip64-end"] = changedEnd([](EndOverrides& end) { end.zip64 = true; });
    seeds["zip64-without-locator"] =
        changedEnd([](EndOverrides& end) { end.zip64 = end.omitLocator = true; });
    seeds["comment"] = changedEnd([](EndOverrides& end) { end.comment = "PK\x05\x06 in a comment"; });
    seeds["too-many-declared"] = changedEnd([](EndOverrides& end) { end.entries = end.entriesOnDisk = 9; });
    seeds["too-few-declared"] = changedEnd([](EndOverrides& end) { end.entries = end.entriesOnDisk = 1; });
    seeds["directory-outside"] = changedEnd([](EndOverrides& end) { end.directoryOffset = 0x7fffffff; });
    seeds["directory-too-long"] = changedEnd([](EndOverrides& end) { end.directorySize = 0x7fffffff; });
    seeds["zip64-directory-outside"] = changedEnd([](EndOverrides& end) {
        end.zip64 = true;
        end.zip64DirectoryOffset = ~0ULL;
    });
    seeds["utf8-name"] = changedEntry([](ArchiveEntry& entry) {
        entry.name = "gr\xc3\xbc\xc3\x9f\xf0\x9f\x98\x80";
        entry.flags = flag::utf8Name;
    });
    seeds["name-not-utf8"] = changedEntry([](ArchiveEntry& entry) { entry.name = "gr\x81\xe1\xff"; });
    seeds["name-with-nul"] = changedEntry([](ArchiveEntry& entry) { entry.name = std::string("a\0b", 3); });
    seeds["name-empty"] = changedEntry([](ArchiveEntry& entry) { entry.name.clear(); });
    seeds["name-too-long"] = changedEntry([](ArchiveEntry& entry) { entry.central.nameLength = 0xffff; });
    seeds["extra-too-long"] = changedEntry([](ArchiveEntry& entry) { entry.central.extraLength = 0xffff; });
    seeds["date-zero"] = changedEntry([](ArchiveEntry& entry) { entry.modified = {}; });
    seeds["date-impossible"] =
        changedEntry([](ArchiveEntry& entry) { entry.modified = DosTime::of(2021, 2, 31, 31, 63, 62); });
    seeds["bad-central-signature"] = changedEntry([](ArchiveEntry& entry) { entry.central.signature = 1; });
    seeds["zip64-entry"] = changedEntry([](ArchiveEntry& entry) { entry.zip64 = true; });
    seeds["unicode-path"] = changedEntry(
        [](ArchiveEntry& entry) { entry.centralExtra = unicodePathField(entry.name, "other name"); });
    return seeds;
}

Seeds entryReadingSeeds() {
    const std::string text(3000, 't');
    Seeds seeds;
    ArchiveBuilder methods;
    methods.add(fileEntry("stored", text, Method::Stored)).add(fileEntry("deflated", text));
    methods.add(fileEntry("empty", "")).add(fileEntry("bzip2", text, Method::Bzip2));
    seeds["methods"] = methods.build();
    seeds["level-0"] = changedEntry([&](ArchiveEntry& entry) {
        entry.content = text;
        entry.level = 0;
    });
    seeds["descriptor"] =
        changedEntry([](ArchiveEntry& entry) { entry.descriptor = DataDescriptor::WithSignature; });
    seeds["bare-descriptor"] =
        changedEntry([](ArchiveEntry& entry) { entry.descriptor = DataDescriptor::WithoutSignature; });
    seeds["zip64"] = changedEntry([](ArchiveEntry& entry) { entry.zip64 = true; });
    seeds["zip64-field-too-short"] = changedEntry([](ArchiveEntry& entry) {
        entry.centralExtra = extraField(1, "short");
        entry.central.uncompressedSize = entry.central.compressedSize = 0xffffffff;
    });
    seeds["zip64-field-missing"] =
        changedEntry([](ArchiveEntry& entry) { entry.central.uncompressedSize = 0xffffffff; });
    seeds["zip64-place-outside"] = changedEntry([](ArchiveEntry& entry) {
        entry.centralExtra = extraField(1, std::string(8, '\x7f'));
        entry.central.localOffset = 0xffffffff;
    });
    seeds["zip64-size-enormous"] = changedEntry([](ArchiveEntry& entry) {
        entry.centralExtra = extraField(1, std::string(8, '\xff'));
        entry.central.uncompressedSize = 0xffffffff;
    });
    seeds["encrypted"] = changedEntry([](ArchiveEntry& entry) { entry.flags = flag::encrypted; });
    seeds["wrong-crc"] =
        changedEntry([](ArchiveEntry& entry) { entry.local.crc32 = entry.central.crc32 = 0xdeadbeef; });
    seeds["broken-deflate"] = changedEntry([](ArchiveEntry& entry) {
        entry.rawData = std::string(20, '\xff');
        entry.uncompressedSize = 31;
    });
    seeds["cut-deflate"] = changedEntry([](ArchiveEntry& entry) {
        entry.rawData = rawDeflate(entry.content).substr(0, 10);
        entry.uncompressedSize = entry.content.size();
    });
    seeds["size-too-large"] = changedEntry(
        [](ArchiveEntry& entry) { entry.local.uncompressedSize = entry.central.uncompressedSize = 4000; });
    seeds["size-too-small"] = changedEntry(
        [](ArchiveEntry& entry) { entry.local.uncompressedSize = entry.central.uncompressedSize = 3; });
    seeds["compressed-size-too-large"] =
        changedEntry([](ArchiveEntry& entry) { entry.central.compressedSize = 0x7fffffff; });
    seeds["sizes-contradict"] = changedEntry([](ArchiveEntry& entry) { entry.local.uncompressedSize = 7; });
    seeds["local-name-differs"] = changedEntry([](ArchiveEntry& entry) { entry.local.name = "docs/z.txt"; });
    seeds["local-signature"] = changedEntry([](ArchiveEntry& entry) { entry.local.signature = 0; });
    seeds["local-missing"] = changedEntry([](ArchiveEntry& entry) { entry.omitLocal = true; });
    seeds["local-outside"] =
        changedEntry([](ArchiveEntry& entry) { entry.central.localOffset = 0x7ffffff0; });
    seeds["local-method-differs"] = changedEntry([](ArchiveEntry& entry) { entry.local.method = 0; });
    seeds["local-extra-too-long"] =
        changedEntry([](ArchiveEntry& entry) { entry.local.extraLength = 0xffff; });
    seeds["same-data-twice"] = changedEntry([](ArchiveEntry& entry) { entry.central.localOffset = 0; });
    return seeds;
}

Seeds locationSeeds() {
    return {{"local", "file:///home/me/plans.zip"},
            {"in-archive", "zip:file:///home/me/plans.zip!/docs/a.txt"},
            {"nested", "zip:zip:file:///outer.zip!/inner.zip!/x"},
            {"authority", "file://server/share/a%20b"},
            {"encoded", "zip:file:///a%21/b.zip!/100%25/%C3%A4%21"},
            {"broken-encoding", "file:///a%2"},
            {"not-utf8", "file:///%FF\xff"},
            {"no-container", "zip:plans.zip"},
            {"bang-before-slash", "zip:file:///a!/b!/c!"},
            {"two-paths", "docs/a\ndocs/a/b"},
            {"order", "/a-b\n/a/b"},
            {"slashes", "//a//b/\n/"},
            {"dots", "../x/./y\n.."}};
}

/// Operations of the round trip: a byte for the kind, one for the path, then what the kind needs.
Seeds roundTripSeeds() {
    const auto text = [](std::initializer_list<int> codes) {
        std::string bytes;
        for (const int code : codes)
            bytes += static_cast<char>(code);
        return bytes;
    };
    const auto write = text({0, 0, 3}) + "abc";
    return {{"write", write},
            {"append", write + text({1, 0, 2}) + "de"},
            {"folder", text({2, 0, 2, 1, 0, 1, 1}) + "x"},
            {"write-then-remove", write + text({3, 0})},
            {"folder-then-remove", text({2, 0, 4, 0})},
            {"move-file", write + text({5, 0, 4})},
            {"move-folder", text({2, 0, 6, 0, 4})},
            {"move-onto", write + text({0, 4, 1}) + "y" + text({13, 0, 4})},
            {"held", text({7, 0}) + write + text({2, 4, 7, 0})},
            {"odd-names", text({0, 12, 1}) + "1" + text({0, 16, 1}) + "2"}};
}

/// A byte of marks (see the target), then changes to the fields of a journal that fits, or a journal's bytes.
Seeds journalSeeds() {
    Seeds seeds;
    for (const int marks : {0, 2, 4, 6, 8, 14})
        seeds["fits-" + std::to_string(marks)] = std::string(1, static_cast<char>(marks));
    seeds["empty"] = std::string(1, '\1');
    seeds["garbage"] = "\x01KXVFSJNL";
    seeds["other-old-size"] = std::string("\x02\x01", 2);
    seeds["other-new-size"] = std::string("\x02\0\x01", 3);
    seeds["other-inode"] = std::string("\x02\0\0\x01", 4);
    seeds["other-staging"] = std::string("\x02\0\0\0\x01", 5);
    seeds["staging-elsewhere"] = std::string("\x02\0\0\0\0\0", 6) + "../bystander";
    seeds["staging-missing"] = std::string("\x02\0\0\0\0\0", 6) + ".a.kxvfs-new1";
    return seeds;
}

void write(const std::filesystem::path& folder, const Seeds& seeds, const std::string& extension = ".zip") {
    std::filesystem::create_directories(folder);
    for (const auto& [name, bytes] : seeds) {
        std::ofstream stream(folder / (name + extension), std::ios::binary);
        stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        stream.close();
        if (!stream)
            throw std::runtime_error("cannot write seed " + (folder / name).string());
    }
}

} // namespace

/// make_seeds FOLDER: writes the seeds of every target to a folder of its name.
int main(int argc, char** argv) try {
    if (argc != 2)
        throw std::invalid_argument("usage: make_seeds FOLDER");
    const std::filesystem::path folder = argv[1];
    write(folder / "central_directory", centralDirectorySeeds());
    write(folder / "entry_reading", entryReadingSeeds());
    write(folder / "locations", locationSeeds(), ".txt");
    write(folder / "write_round_trip", roundTripSeeds(), ".bin");
    write(folder / "journal_recovery", journalSeeds(), ".bin");
} catch (const std::exception& error) {
    std::cerr << "make_seeds: " << error.what() << '\n';
    return 1;
}
