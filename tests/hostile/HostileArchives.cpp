#include "HostileArchives.h"

#include <support/archives/ArchiveBuilder.h>
#include <support/archives/ArchiveShapes.h>

#include <cstdint>
#include <limits>
#include <utility>

namespace kx::test {

namespace {

using Archives = std::vector<HostileArchive>;

const std::string text = "some text, some text, some text";

ArchiveBuilder plain() {
    ArchiveBuilder builder;
    builder.add("docs/").add("docs/a.txt", text).add("b", "bytes of b");
    return builder;
}

template <typename Change>
HostileArchive entryWith(std::string fault, Change change) {
    auto builder = plain();
    change(builder.entry(1));
    return {std::move(fault), builder.build()};
}

template <typename Change>
HostileArchive endWith(std::string fault, Change change) {
    auto builder = plain();
    change(builder.end());
    return {std::move(fault), builder.build()};
}

HostileArchive named(std::string fault, const std::string& name, const std::string& typed) {
    auto builder = plain();
    builder.entry(1).name = name;
    return {std::move(fault), builder.build(), typed};
}

/// The number at a place in the data descriptor is one too large.
HostileArchive brokenDescriptor(std::string fault, std::size_t place) {
    auto builder = plain();
    builder.entry(1).descriptor = DataDescriptor::WithSignature;
    ArchiveLayout layout;
    auto bytes = builder.build(&layout);
    ++bytes[layout.data[1] + rawDeflate(text).size() + place];
    return {std::move(fault), std::move(bytes)};
}

/// The number at a place in the Zip64 end record, or in the locator behind it, is one too large.
HostileArchive brokenZip64End(std::string fault, std::size_t place) {
    auto builder = plain();
    builder.end().zip64 = true;
    ArchiveLayout layout;
    auto bytes = builder.build(&layout);
    ++bytes[layout.zip64EndRecord + place];
    return {std::move(fault), std::move(bytes)};
}

constexpr auto all16 = std::numeric_limits<std::uint16_t>::max();
constexpr auto all32 = std::numeric_limits<std::uint32_t>::max();

Archives centralHeaders() {
    return {
        entryWith("signature", [](auto& e) { e.central.signature = 0; }),
        entryWith("version made by: 0xFFFF", [](auto& e) { e.central.versionMadeBy = all16; }),
        entryWith("version needed: 0xFFFF", [](auto& e) { e.central.versionNeeded = all16; }),
        entryWith("flags: all set", [](auto& e) { e.central.flags = all16; }),
        entryWith("flags: a data descriptor, where none is",
                  [](auto& e) { e.central.flags = flag::dataDescriptor; }),
        entryWith("method: 99", [](auto& e) { e.central.method = 99; }),
        entryWith("method: stored, of deflated data", [](auto& e) { e.central.method = 0; }),
        entryWith("date: 0", [](auto& e) { e.central.modified = DosTime{}; }),
        entryWith("date: 31 February",
                  [](auto& e) { e.central.modified = DosTime::of(2021, 2, 31, 1, 2, 4); }),
        entryWith("time: 31:63:62",
                  [](auto& e) {
                      e.central.modified = DosTime{e.modified.date, all16};
                  }),
        entryWith("CRC-32", [](auto& e) { e.central.crc32 = 1; }),
        entryWith("compressed size: 0", [](auto& e) { e.central.compressedSize = 0; }),
        entryWith("compressed size: one too many",
                  [](auto& e) { e.central.compressedSize = rawDeflate(text).size() + 1; }),
        entryWith("compressed size: 2 GiB", [](auto& e) { e.central.compressedSize = 0x80000000U; }),
        entryWith("size: 0", [](auto& e) { e.central.uncompressedSize = 0; }),
        entryWith("size: one too few", [](auto& e) { e.central.uncompressedSize = text.size() - 1; }),
        entryWith("size: one too many", [](auto& e) { e.central.uncompressedSize = text.size() + 1; }),
        entryWith("size: 4 GiB, without a Zip64 field", [](auto& e) { e.central.uncompressedSize = all32; }),
        entryWith("length of the name: 0", [](auto& e) { e.central.nameLength = 0; }),
        entryWith("length of the name: one too many", [](auto& e) { e.central.nameLength = 11; }),
        entryWith("length of the name: 65,535", [](auto& e) { e.central.nameLength = all16; }),
        entryWith("length of the extra field: 65,535", [](auto& e) { e.central.extraLength = all16; }),
        entryWith("length of the comment: 65,535", [](auto& e) { e.central.commentLength = all16; }),
        entryWith("a comment of 65,535 bytes", [](auto& e) { e.comment = std::string(all16, 'c'); }),
        entryWith("disk number: 1", [](auto& e) { e.central.diskNumber = 1; }),
        entryWith("internal attributes: all set", [](auto& e) { e.internalAttributes = all16; }),
        entryWith("external attributes: all set", [](auto& e) { e.externalAttributes = all32; }),
        entryWith("offset of the local header: one too many", [](auto& e) { e.central.localOffset = 36; }),
        entryWith("offset of the local header: the first entry's",
                  [](auto& e) { e.central.localOffset = 0; }),
        entryWith("offset of the local header: behind the end",
                  [](auto& e) { e.central.localOffset = 0x7FFFFFFFU; }),
        entryWith("missing", [](auto& e) { e.omitCentral = true; }),
    };
}

Archives localHeaders() {
    return {
        entryWith("signature", [](auto& e) { e.local.signature = 0; }),
        entryWith("version needed: 0xFFFF", [](auto& e) { e.local.versionNeeded = all16; }),
        entryWith("flags: all set", [](auto& e) { e.local.flags = all16; }),
        entryWith("method: stored, of deflated data", [](auto& e) { e.local.method = 0; }),
        entryWith("date: 0", [](auto& e) { e.local.modified = DosTime{}; }),
        entryWith("time: 31:63:62",
                  [](auto& e) {
                      e.local.modified = DosTime{e.modified.date, all16};
                  }),
        entryWith("CRC-32", [](auto& e) { e.local.crc32 = 1; }),
        entryWith("compressed size: 2 GiB", [](auto& e) { e.local.compressedSize = 0x80000000U; }),
        entryWith("size: one too few", [](auto& e) { e.local.uncompressedSize = text.size() - 1; }),
        entryWith("another name", [](auto& e) { e.local.name = "docs/z.txt"; }),
        entryWith("length of the name: 65,535", [](auto& e) { e.local.nameLength = all16; }),
        entryWith("length of the extra field: 65,535", [](auto& e) { e.local.extraLength = all16; }),
        entryWith("missing, with its data", [](auto& e) { e.omitLocal = true; }),
    };
}

Archives data() {
    return {
        entryWith("CRC-32 in both headers", [](auto& e) { e.local.crc32 = e.central.crc32 = 0xDEADBEEFU; }),
        entryWith("size one too few in both headers",
                  [](auto& e) { e.local.uncompressedSize = e.central.uncompressedSize = text.size() - 1; }),
        entryWith("size one too many in both headers",
                  [](auto& e) { e.local.uncompressedSize = e.central.uncompressedSize = text.size() + 1; }),
        entryWith("size 3 GiB in both headers",
                  [](auto& e) { e.local.uncompressedSize = e.central.uncompressedSize = 0xC0000000U; }),
        entryWith("no deflate stream",
                  [](auto& e) {
                      e.rawData = std::string(20, '\xff');
                      e.uncompressedSize = text.size();
                  }),
        entryWith("a deflate stream that is cut",
                  [](auto& e) {
                      e.rawData = rawDeflate(text).substr(0, 6);
                      e.uncompressedSize = text.size();
                  }),
        entryWith("a data descriptor without its signature",
                  [](auto& e) { e.descriptor = DataDescriptor::WithoutSignature; }),
        brokenDescriptor("a data descriptor with another CRC-32", 4),
        brokenDescriptor("a data descriptor with another compressed size", 8),
        brokenDescriptor("a data descriptor with another size", 12),
        entryWith("encrypted", [](auto& e) { e.flags = flag::encrypted; }),
        entryWith("strongly encrypted", [](auto& e) { e.flags = flag::encrypted | flag::strongEncryption; }),
        entryWith("method: shrunk",
                  [](auto& e) {
                      e.method = Method::Shrunk;
                      e.rawData = text;
                  }),
        entryWith("method: Deflate64",
                  [](auto& e) {
                      e.method = Method::Deflate64;
                      e.rawData = text;
                  }),
        entryWith("method: bzip2",
                  [](auto& e) {
                      e.method = Method::Bzip2;
                      e.rawData = text;
                  }),
        entryWith("method: LZMA",
                  [](auto& e) {
                      e.method = Method::Lzma;
                      e.rawData = text;
                  }),
        entryWith("a thousand times smaller than its contents",
                  [](auto& e) { e.content = std::string(4 << 20, '\0'); }),
    };
}

Archives zip64Fields() {
    const auto field = [](std::string fault, std::string bytes) {
        return entryWith(std::move(fault), [&](auto& e) {
            e.centralExtra = extraField(1, bytes);
            e.central.uncompressedSize = all32;
        });
    };
    return {
        entryWith("there without need", [](auto& e) { e.zip64 = true; }),
        field("too short", "short"),
        field("size 2^64 - 1", std::string(8, '\xff')),
        field("size 2^63", std::string(7, '\0') + '\x80'),
        field("size one too many", std::string(1, static_cast<char>(text.size() + 1)) + std::string(7, '\0')),
        entryWith("offset behind the end",
                  [](auto& e) {
                      e.centralExtra = extraField(1, std::string(8, '\x7f'));
                      e.central.localOffset = all32;
                  }),
        entryWith("longer than the extra field",
                  [](auto& e) {
                      e.centralExtra = std::string("\x01\0\xff\xff", 4) + std::string(8, '\0');
                      e.central.uncompressedSize = all32;
                  }),
    };
}

Archives endRecords() {
    return {
        endWith("signature", [](auto& e) { e.signature = 0; }),
        endWith("missing", [](auto& e) { e.omitEnd = true; }),
        endWith("number of this disk: 1", [](auto& e) { e.diskNumber = 1; }),
        endWith("disk of the directory: 1", [](auto& e) { e.directoryDisk = 1; }),
        endWith("entries on this disk: one too few", [](auto& e) { e.entriesOnDisk = 2; }),
        endWith("entries: 0", [](auto& e) { e.entries = e.entriesOnDisk = 0; }),
        endWith("entries: one too few", [](auto& e) { e.entries = e.entriesOnDisk = 2; }),
        endWith("entries: one too many", [](auto& e) { e.entries = e.entriesOnDisk = 4; }),
        endWith("entries: 65,535", [](auto& e) { e.entries = e.entriesOnDisk = all16; }),
        endWith("size of the directory: 0", [](auto& e) { e.directorySize = 0; }),
        endWith("size of the directory: one too many", [](auto& e) { e.directorySize = 170; }),
        endWith("size of the directory: 2 GiB", [](auto& e) { e.directorySize = 0x7FFFFFFFU; }),
        endWith("offset of the directory: 0", [](auto& e) { e.directoryOffset = 0; }),
        endWith("offset of the directory: behind the end", [](auto& e) { e.directoryOffset = 0x7FFFFFFFU; }),
        endWith("length of the comment: one too many", [](auto& e) { e.commentLength = 1; }),
        endWith("length of the comment: 65,535", [](auto& e) { e.commentLength = all16; }),
        endWith("a comment of 65,535 bytes", [](auto& e) { e.comment = std::string(all16, 'c'); }),
        endWith("another end record in the comment",
                [](auto& e) { e.comment = std::string("PK\x05\x06", 4) + std::string(18, '\0'); }),
    };
}

Archives zip64Ends() {
    const auto with = [](std::string fault, auto change) {
        return endWith(std::move(fault), [&](auto& e) {
            e.zip64 = true;
            change(e);
        });
    };
    return {
        with("there without need", [](auto&) {}),
        with("without its locator", [](auto& e) { e.omitLocator = true; }),
        with("locator that leads behind the end", [](auto& e) { e.zip64RecordOffset = 1U << 30U; }),
        with("locator that leads to 2^64 - 1", [](auto& e) { e.zip64RecordOffset = ~std::uint64_t{0}; }),
        with("entries: one too many", [](auto& e) { e.zip64Entries = 4; }),
        with("entries: 2^64 - 1", [](auto& e) { e.zip64Entries = ~std::uint64_t{0}; }),
        with("size of the directory: 2^64 - 1", [](auto& e) { e.zip64DirectorySize = ~std::uint64_t{0}; }),
        with("offset of the directory: 2^64 - 1",
             [](auto& e) { e.zip64DirectoryOffset = ~std::uint64_t{0}; }),
        with("offset of the directory: 2^63",
             [](auto& e) { e.zip64DirectoryOffset = std::uint64_t{1} << 63U; }),
        with("entries: three, but two in the plain end record",
             [](auto& e) { e.entries = e.entriesOnDisk = 2; }),
        with("offset of the directory: another one in the plain end record",
             [](auto& e) { e.directoryOffset = 0; }),
        with("size of the directory: another one in the plain end record",
             [](auto& e) { e.directorySize = 1; }),
        brokenZip64End("signature", 0),
        brokenZip64End("size of the record: one too many", 4),
        brokenZip64End("version made by", 12),
        brokenZip64End("version needed", 14),
        brokenZip64End("number of this disk: 1", 16),
        brokenZip64End("disk of the directory: 1", 20),
        brokenZip64End("entries on this disk: one too many", 24),
        brokenZip64End("locator: signature", 56),
        brokenZip64End("locator: disk of the record: 1", 60),
        brokenZip64End("locator: offset of the record: one too many", 64),
        brokenZip64End("locator: two disks", 72),
    };
}

Archives wholes() {
    const auto good = plainArchive();
    auto counted = plain();
    counted.leading("#!/bin/sh\nexit 0\n", true);
    auto uncounted = plain();
    uncounted.leading("#!/bin/sh\nexit 0\n");
    auto trailing = plain();
    trailing.trailing("trailing junk");
    auto overlapping = plain();
    overlapping.entry(2).central.localOffset = 35;
    auto bomb = plain();
    for (int i = 0; i < 200; ++i) {
        ArchiveEntry entry = bomb.entry(1);
        entry.name = "docs/a.txt";
        entry.central.name = "copy" + std::to_string(i);
        entry.omitLocal = true;
        entry.central.localOffset = 35;
        bomb.add(entry);
    }
    return {
        {"empty file", "", ""},
        {"text", "no archive at all\n", ""},
        {"an end record alone", ArchiveBuilder().build(), ""},
        {"the first half", good.substr(0, good.size() / 2)},
        {"without its last byte", good.substr(0, good.size() - 1)},
        {"without its first byte", good.substr(1)},
        {"junk in front that the offsets count", counted.build()},
        {"junk in front that the offsets do not count", uncounted.build()},
        {"junk behind", trailing.build()},
        {"two archives, one behind the other", good + simpleArchive({{"other", "1"}}), "other"},
        {"the mark of a split archive in front", "PK\x07\x08" + good},
        {"two end records, one behind the other", good + good.substr(good.size() - 22)},
        {"without the last two bytes of the end record", good.substr(0, good.size() - 2)},
        {"without the end record but its signature", good.substr(0, good.size() - 18)},
        {"64 zeros in front of the end record",
         good.substr(0, good.size() - 22) + std::string(64, '\0') + good.substr(good.size() - 22)},
        {"two entries with the same data", overlapping.build(), "b"},
        {"200 entries with the same data and other names", bomb.build(), "copy7"},
    };
}

Archives names() {
    const std::string nul("a\0b", 3);
    Archives archives{
        named("empty", "", "docs"),
        named("65,535 bytes", std::string(65'535, 'n'), std::string(65'535, 'n')),
        named("with a NUL", nul, "a"),
        named("`..`", "..", ".."),
        named("`../up`", "../up", "../up"),
        named("docs/../../up", "docs/../../up", "docs/../../up"),
        named("`.`", ".", "."),
        named("`/etc/passwd`", "/etc/passwd", "etc/passwd"),
        named("`/`", "/", "docs"),
        named("`a//b`", "a//b", "a/b"),
        named("`..\\up`", "..\\up", "..\\up"),
        named("`C:\\up`", "C:\\up", "C:\\up"),
        named("`C:up`", "C:up", "C:up"),
        named("`CON`", "CON", "CON"),
        named("a line feed and an escape sequence", "a\n\x1b[31mb", "a\n\x1b[31mb"),
        named("not UTF-8", "gr\x81\xe1\xff", "gr\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"),
        named("a right-to-left override", "a\xe2\x80\xaetxt.exe", "a\xe2\x80\xaetxt.exe"),
        named("spaces and dots at the end", "a. .", "a. ."),
    };
    archives.push_back(entryWith("another one in the Unicode path field",
                                 [](auto& e) { e.centralExtra = unicodePathField(e.name, "other"); }));
    archives.push_back(entryWith("not UTF-8, with the flag of UTF-8", [](auto& e) {
        e.name = "gr\x81\xe1\xff";
        e.flags = flag::utf8Name;
    }));
    archives.back().entry = "gr\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd";
    archives.push_back({"1,000 levels", deepArchive(1'000), "n"});
    archives.push_back({"30,000 levels", deepArchive(30'000), "n", false});
    return archives;
}

Archives trees() {
    const auto special = [](std::string fault, std::uint32_t mode) {
        return entryWith(std::move(fault), [&](auto& e) {
            e.content = "/etc/passwd";
            e.versionMadeBy = 3 << 8 | 20;
            e.externalAttributes = mode << 16;
        });
    };
    return {
        {"two files of one name", simpleArchive({{"a", "1"}, {"a", "2"}}), "a"},
        {"a file, then a folder of its name", simpleArchive({{"a", "1"}, {"a/", ""}}), "a"},
        {"a folder, then a file of its name", simpleArchive({{"a/", ""}, {"a", "1"}}), "a"},
        {"a file with another one below it", simpleArchive({{"a", "1"}, {"a/b", "2"}}), "a/b"},
        {"a file named like its folder", simpleArchive({{"x/x", "1"}}), "x/x"},
        {"names that differ in case alone", simpleArchive({{"a", "1"}, {"A", "2"}}), "A"},
        {"a folder with data", simpleArchive({{"a/", "data"}}), "a", true, "the folder a/ has 4 bytes\n"},
        special("a symbolic link", 0120777),
        special("a FIFO", 0010666),
        special("a device", 0020666),
        special("a socket", 0140666),
    };
}

} // namespace

std::string plainArchive() {
    return plain().build();
}

std::vector<HostileGroup> hostileArchives() {
    return {{"Central directory header of docs/a.txt", centralHeaders()},
            {"Local header of docs/a.txt", localHeaders()},
            {"Data of docs/a.txt", data()},
            {"Zip64 field of docs/a.txt", zip64Fields()},
            {"End record", endRecords()},
            {"Zip64 end record", zip64Ends()},
            {"The archive as a whole", wholes()},
            {"Names", names()},
            {"Trees", trees()}};
}

} // namespace kx::test
