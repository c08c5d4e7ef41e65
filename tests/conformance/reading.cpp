#include "ProviderConformance.h"

#include <support/contents.h>

#include <map>
#include <set>

namespace kx::test {

using provider::EntryKind;
using provider::Existence;
using provider::SeekOrigin;

namespace {

fl::i18n::ustring folderOf(const fl::i18n::ustring& path) {
    const auto slash = path.rfind(u'/');
    return slash == fl::i18n::ustring::npos ? fl::i18n::ustring() : path.substr(0, slash);
}

} // namespace

TEST_P(ReadingConformance, EveryFileReadsAndHasItsSize) {
    for (const auto& entry : standardTree()) {
        if (entry.kind == EntryKind::File) {
            EXPECT_TRUE(read(entry.path) == entry.bytes) << at(entry.path);
            EXPECT_EQ(storage().getFileAttributes(at(entry.path)).getSize(), entry.bytes.size());
            EXPECT_EQ(storage().getExtendedAttributes(at(entry.path)).size, entry.bytes.size());
        }
    }
}

TEST_P(ReadingConformance, EveryItemIsOfItsKind) {
    for (const auto& entry : standardTree()) {
        const bool isFile = entry.kind == EntryKind::File;
        EXPECT_EQ(storage().isFile(at(entry.path)), isFile);
        EXPECT_EQ(storage().isFolder(at(entry.path)), !isFile);
        EXPECT_EQ(storage().existsExtended(at(entry.path)), isFile ? Existence::File : Existence::Folder);
        EXPECT_EQ(storage().getExtendedAttributes(at(entry.path)).kind, entry.kind);
    }
    EXPECT_FALSE(storage().exists(at(u"docs/no")));
}

TEST_P(ReadingConformance, EveryFolderListsItsEntries) {
    std::map<ustring, std::set<ustring>> all{{u"", {}}};
    std::map<ustring, std::set<ustring>> files{{u"", {}}};
    for (const auto& entry : standardTree()) {
        const auto folder = folderOf(entry.path);
        const auto name = at(entry.path).getName();
        all[folder].insert(name);
        if (entry.kind == EntryKind::File) {
            files[folder].insert(name);
        } else {
            files[entry.path];
        }
    }
    for (const auto& [folder, expected] : all) {
        const auto location = folder.empty() ? tested().root() : at(folder);
        const auto listed = storage().listAllNamesOnly(location);
        const auto listedFiles = storage().listFilesNamesOnly(location);
        EXPECT_EQ(std::set<ustring>(listed.begin(), listed.end()), expected);
        EXPECT_EQ(std::set<ustring>(listedFiles.begin(), listedFiles.end()), files.at(folder));
        EXPECT_EQ(listed.size(), expected.size());
        EXPECT_EQ(storage().listFoldersNamesOnly(location).size(), listed.size() - listedFiles.size());
    }
}

TEST_P(ReadingConformance, TheWholeTreeIsListedRecursively) {
    std::map<ustring, EntryKind> expected;
    for (const auto& entry : standardTree()) {
        expected.emplace(entry.path, entry.kind);
    }
    std::map<ustring, EntryKind> listed;
    for (const auto& entry : listEntries(*storage().listAllRecursive(tested().root()))) {
        const auto folder = folderOf(entry.getName());
        EXPECT_TRUE(folder.empty() || listed.contains(folder)) << "an entry comes before its folder";
        EXPECT_TRUE(listed.emplace(entry.getName(), entry.getKind()).second);
    }
    EXPECT_EQ(listed, expected);
}

TEST_P(ReadingConformance, WildcardsChooseByName) {
    EXPECT_EQ(storage().listFilesNamesOnlyWildcards(at(u"docs"), u"guide*"),
              (Names{u"guide.txt", u"guide2.txt"}));
    EXPECT_EQ(storage().listAllNamesOnlyWildcards(at(u"docs"), u"?e*"), Names{u"deeper"});
    EXPECT_EQ(storage().listAllRecursiveNamesOnlyWildcards(tested().root(), u"[k-m]*.txt"),
              Names{u"docs/deeper/leaf.txt"});
}

TEST_P(ReadingConformance, ReadingBeginsAnywhereInAFile) {
    const auto stream = storage().openReadStream(at(u"docs/image.bin"));
    const auto bytes = randomBytes(200'000, 7);
    for (const std::size_t position : {199'999U, 0U, 123'456U, 65'536U}) {
        std::string piece(1000, '\0');
        EXPECT_EQ(stream->seek(static_cast<std::int64_t>(position), SeekOrigin::Begin),
                  static_cast<std::int64_t>(position));
        std::size_t got = 0;
        while (const auto count = stream->read(piece.data() + got, static_cast<std::int64_t>(1000 - got))) {
            got += static_cast<std::size_t>(count);
        }
        EXPECT_TRUE(piece.substr(0, got) == bytes.substr(position, 1000));
    }
    EXPECT_EQ(stream->seek(0, SeekOrigin::End), 200'000);
}

TEST_P(ReadingConformance, WhatIsMissingIsNotFound) {
    const auto missing = at(u"docs/no");
    expectError(
        ErrorCode::NotFound, [&] { storage().openReadStream(missing); }, missing);
    expectError(
        ErrorCode::NotFound, [&] { storage().getFileAttributes(missing); }, missing);
    expectError(
        ErrorCode::NotFound, [&] { storage().getFolderAttributes(missing); }, missing);
    expectError(
        ErrorCode::NotFound, [&] { storage().getExtendedAttributes(missing); }, missing);
    expectError(
        ErrorCode::NotFound, [&] { storage().listAll(missing); }, missing);
    expectError(
        ErrorCode::NotFound, [&] { storage().openReadStream(at(u"docs")); }, at(u"docs"));
    const auto file = at(u"empty.txt");
    if (tested().traits().refusesToListFiles) {
        expectError(
            ErrorCode::NotFound, [&] { storage().listAll(file); }, file);
    } else {
        EXPECT_FALSE(storage().listAll(file)->hasNext());
    }
}

TEST_P(ReadingConformance, ItemsHaveTimesAndAgreeOnBeingWritable) {
    const auto writable = storage().getFolderAttributes(tested().root()).isWritable();
    for (const auto& entry : standardTree()) {
        const auto attributes = storage().getExtendedAttributes(at(entry.path));
        EXPECT_FALSE(attributes.lastModified.is_special());
        EXPECT_EQ(attributes.writable, writable);
    }
}

TEST_P(ReadingConformance, AReadOnlyStorageRefusesChanges) {
    if (storage().getFolderAttributes(tested().root()).isWritable() && !tested().makeReadOnly()) {
        GTEST_SKIP() << "the storage cannot be made read-only";
    }
    expectError(
        ErrorCode::NotWritable, [&] { storage().createFile(at(u"new")); }, at(u"new"));
    expectError(
        ErrorCode::NotWritable, [&] { storage().removeFile(at(u"empty.txt")); }, at(u"empty.txt"));
    expectError(
        ErrorCode::NotWritable, [&] { storage().openStream(at(u"empty.txt"), Options::append()); },
        at(u"empty.txt"));
}

} // namespace kx::test
