#include "Scenario.h"

#include <foundation/storage/provider/MoveOption.h>
#include <support/contents.h>

#include <cstdlib>
#include <exception>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace kx::test {

using foundation::storage::provider::MoveOption;

bool areLongLoops() {
    static const bool asked = std::getenv("KX_LONG_FAULT_LOOPS") != nullptr;
    return asked;
}

Contents contentsBefore() {
    return {{"a", randomBytes(areLongLoops() ? 20'000 : 3'000, 1)},
            {"b", "bytes of b"},
            {"docs/", ""},
            {"docs/x", "4"},
            {"e/", ""}};
}

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

Contents changed(Contents contents, const Entries& entries, const std::vector<std::string>& removed = {}) {
    for (const auto& name : removed) {
        contents.erase(name);
    }
    for (const auto& [name, bytes] : entries) {
        contents[name] = bytes;
    }
    return contents;
}

Contents with(const Entries& entries, const std::vector<std::string>& removed = {}) {
    return changed(contentsBefore(), entries, removed);
}

std::string newBytes() {
    return randomBytes(areLongLoops() ? 30'000 : 5'000, 2);
}

void list(MountedZip& zip) {
    zip.list();
}

void lookAtAttributes(MountedZip& zip) {
    zip.size("/a");
    zip.provider().getFolderAttributes(zip.at("/docs")).getLastModified();
    zip.provider().exists(zip.at("/nothing"));
}

void writeNew(MountedZip& zip) {
    zip.write("/docs/new", newBytes());
}

void overwrite(MountedZip& zip) {
    zip.write("/a", newBytes());
}

void createFolder(MountedZip& zip) {
    zip.createFolder("/docs/new");
}

void removeFile(MountedZip& zip) {
    zip.removeFile("/b");
}

void removeFolder(MountedZip& zip) {
    zip.removeFolder("/e");
}

void moveFile(MountedZip& zip) {
    zip.moveFile("/b", "/docs/c");
}

void moveFileOntoAnother(MountedZip& zip) {
    zip.moveFile("/b", "/a", MoveOption::ReplaceExisting);
}

void moveFolder(MountedZip& zip) {
    zip.moveFolder("/docs", "/e/papers");
}

void copyFile(MountedZip& zip) {
    zip.provider().copyFile(zip.at("/a"), zip.at("/docs/copy"), MoveOption::FailIfExists);
}

void lengthen(MountedZip& zip) {
    zip.provider().truncateToSize(zip.at("/docs/x"), 3);
}

std::unique_ptr<MountedZip::ByteStream> appender(MountedZip& zip, std::string_view path) {
    return zip.writer(path, MountedZip::ByteStreamOpenOptions::append());
}

/// A writable stream that leaves no trace and keeps everything from being saved.
Streams hold(MountedZip& zip) {
    Streams streams;
    streams.push_back(zip.writer("/held"));
    zip.removeFile("/held");
    return streams;
}

/// Leaves a file of the archive, one that is new and a folder changed and not saved.
Streams changeAndHold(MountedZip& zip) {
    auto streams = hold(zip);
    zip.append("/b", " and more");
    zip.write("/docs/new", newBytes());
    zip.createFolder("/docs/empty");
    return streams;
}

Contents changedAndHeld() {
    return with({{"b", "bytes of b and more"}, {"docs/new", newBytes()}, {"docs/empty/", ""}});
}

/// The same, with streams open on the changed files, one of them for reading.
Streams changeAndKeepOpen(MountedZip& zip) {
    auto streams = changeAndHold(zip);
    streams.push_back(appender(zip, "/b"));
    writeAll(*streams.back(), " still");
    streams.push_back(appender(zip, "/docs/new"));
    streams.push_back(zip.reader("/docs/new"));
    return streams;
}

Contents changedAndOpen(const Entries& entries = {}, const std::vector<std::string>& removed = {}) {
    auto contents = changedAndHeld();
    contents["b"] += " still";
    return changed(std::move(contents), entries, removed);
}

std::vector<Scenario> openings() {
    const auto written = with({{"docs/new", newBytes()}});
    return {
        {"OpenAndIndex", list, contentsBefore(), Home::Renamed, false},
        {"OpenAndIndexANestedArchive", list, contentsBefore(), Home::Nested, false},
        {"OpenAndLookAtAttributes", lookAtAttributes, contentsBefore(), Home::Renamed, false},
        {"FinishAnInterruptedSave", list, written, Home::Overwritten, false, "copy_file_range", written},
        {"FinishAnInterruptedSaveWithoutMark", list, written, Home::Overwritten, false, "copy_file_range",
         written, false},
        {"UndoAnInterruptedSave", list, contentsBefore(), Home::Overwritten, false, "fsetxattr", written},
        {"Read", [](MountedZip& zip) { zip.read("/a"); }, contentsBefore()},
        {"GiveUpAStream", [](MountedZip& zip) { writeAll(*zip.writer("/docs/new"), newBytes()); },
         contentsBefore()},
    };
}

/// Changes that are saved before they return.
std::vector<Scenario> savedChanges() {
    const auto written = with({{"docs/new", newBytes()}});
    Scenario withoutMark{"WriteAndCommitByJournalWithoutMark", writeNew, written, Home::Overwritten};
    withoutMark.attributes = false;
    return {
        {"WriteAndCommitByRenaming", writeNew, written},
        {"WriteAndCommitByJournal", writeNew, written, Home::Overwritten},
        std::move(withoutMark),
        {"WriteIntoANestedArchive", writeNew, written, Home::Nested},
        {"Overwrite", overwrite, with({{"a", newBytes()}})},
        {"Append", [](MountedZip& zip) { zip.append("/b", newBytes()); },
         with({{"b", "bytes of b" + newBytes()}})},
        {"Lengthen", lengthen, with({{"docs/x", std::string("4\0\0", 3)}})},
        {"CopyFile", copyFile, with({{"docs/copy", contentsBefore().at("a")}})},
        {"CreateFile", [](MountedZip& zip) { zip.createFile("/docs/new"); }, with({{"docs/new", ""}})},
        {"CreateFolder", createFolder, with({{"docs/new/", ""}})},
        {"RemoveFile", removeFile, with({}, {"b"})},
        {"RemoveFolder", removeFolder, with({}, {"e/"})},
        {"MoveFile", moveFile, with({{"docs/c", "bytes of b"}}, {"b"})},
        {"MoveFileOntoAnother", moveFileOntoAnother, with({{"a", "bytes of b"}}, {"b"})},
        {"MoveFileOntoAnotherInANestedArchive", moveFileOntoAnother, with({{"a", "bytes of b"}}, {"b"}),
         Home::Nested},
        {"MoveFolder", moveFolder, with({{"e/papers/", ""}, {"e/papers/x", "4"}}, {"docs/", "docs/x"})},
    };
}

Scenario beginningWith(Beginning beginning, Scenario scenario) {
    scenario.beginning = std::move(beginning);
    return scenario;
}

/// Changes that are recorded, to be saved after the faults.
std::vector<Scenario> recordedChanges() {
    const auto held = [](const char* name, void (*act)(MountedZip&), Contents after) {
        return beginningWith({hold, contentsBefore()}, {name, act, std::move(after)});
    };
    return {
        held("WriteWithoutSaving", writeNew, with({{"docs/new", newBytes()}})),
        held("OverwriteWithoutSaving", overwrite, with({{"a", newBytes()}})),
        held("CreateFolderWithoutSaving", createFolder, with({{"docs/new/", ""}})),
        held("RemoveFileWithoutSaving", removeFile, with({}, {"b"})),
        held("RemoveFolderWithoutSaving", removeFolder, with({}, {"e/"})),
        held("MoveFileWithoutSaving", moveFile, with({{"docs/c", "bytes of b"}}, {"b"})),
        held("MoveFolderWithoutSaving", moveFolder,
             with({{"e/papers/", ""}, {"e/papers/x", "4"}}, {"docs/", "docs/x"})),
    };
}

/// The same, of what is changed already and mostly open.
std::vector<Scenario> furtherChanges() {
    const auto open = [](const char* name, void (*act)(MountedZip&), Contents after) {
        return beginningWith({changeAndKeepOpen, changedAndOpen()}, {name, act, std::move(after)});
    };
    return {
        beginningWith({changeAndHold, changedAndHeld()},
                      {"GiveUpAStreamOnAChangedFile",
                       [](MountedZip& zip) { writeAll(*appender(zip, "/b"), newBytes()); },
                       changedAndHeld()}),
        open(
            "MoveAnOpenFile", [](MountedZip& zip) { zip.moveFile("/b", "/e/c"); },
            changedAndOpen({{"e/c", "bytes of b and more still"}}, {"b"})),
        open(
            "MoveAnOpenFileOntoAnother",
            [](MountedZip& zip) { zip.moveFile("/b", "/docs/new", MoveOption::ReplaceExisting); },
            changedAndOpen({{"docs/new", "bytes of b and more still"}}, {"b"})),
        open("MoveAFolderWithOpenFiles", moveFolder,
             changedAndOpen({{"e/papers/", ""},
                             {"e/papers/x", "4"},
                             {"e/papers/new", newBytes()},
                             {"e/papers/empty/", ""}},
                            {"docs/", "docs/x", "docs/new", "docs/empty/"})),
        open(
            "RemoveAnOpenFile", [](MountedZip& zip) { zip.removeFile("/docs/new"); },
            changedAndOpen({}, {"docs/new"})),
        open(
            "RemoveAChangedFolder", [](MountedZip& zip) { zip.removeFolder("/docs/empty"); },
            changedAndOpen({}, {"docs/empty/"})),
    };
}

/// A save that fails when the new archive is complete, which is kept then.
Streams saveInVain(MountedZip& zip) {
    try {
        zip.moveFile("/b", "/e/kept");
    } catch (const std::exception&) {
        return {};
    }
    throw std::logic_error("the save that was to fail went through");
}

/// What goes on from an archive that was kept.
std::vector<Scenario> afterAFailedSave() {
    const Entries moved{{"e/kept", "bytes of b"}};
    const auto kept = [&](const char* name, void (*act)(MountedZip&), Contents after) {
        return beginningWith({saveInVain, with(moved, {"b"}), true}, {name, act, std::move(after)});
    };
    return {
        kept(
            "ReadAfterAFailedSave", [](MountedZip& zip) { zip.read("/e/kept"); }, with(moved, {"b"})),
        kept(
            "AppendAfterAFailedSave", [](MountedZip& zip) { zip.append("/e/kept", " and more"); },
            with({{"e/kept", "bytes of b and more"}}, {"b"})),
        kept("CreateFolderAfterAFailedSave", createFolder, changed(with(moved, {"b"}), {{"docs/new/", ""}})),
    };
}

} // namespace

std::vector<Scenario> scenarios() {
    auto all = openings();
    for (const auto& more : {savedChanges(), recordedChanges(), furtherChanges(), afterAFailedSave()}) {
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

} // namespace kx::test
