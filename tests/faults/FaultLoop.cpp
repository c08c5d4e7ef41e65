#include "FaultLoop.h"

#include <foundation/storage/provider/MoveOption.h>
#include <support/contents.h>

#include <iostream>
#include <ostream>
#include <string>
#include <utility>

namespace kx::test {

using foundation::storage::provider::MoveOption;

namespace {

Contents with(std::vector<std::pair<std::string, std::string>> entries,
              const std::vector<std::string>& removed = {}) {
    auto contents = contentsBefore();
    for (const auto& name : removed) {
        contents.erase(name);
    }
    for (auto& [name, bytes] : entries) {
        contents[name] = std::move(bytes);
    }
    return contents;
}

std::string newBytes() {
    return randomBytes(areLongLoops() ? 30'000 : 5'000, 2);
}

void list(MountedZip& zip) {
    zip.list();
}

void writeNew(MountedZip& zip) {
    zip.write("/docs/new", newBytes());
}

} // namespace

std::vector<Scenario> scenarios() {
    const auto written = with({{"docs/new", newBytes()}});
    return {
        {"OpenAndIndex", list, contentsBefore(), Home::Renamed, false},
        {"OpenAndIndexANestedArchive", list, contentsBefore(), Home::Nested, false},
        {"FinishAnInterruptedSave", list, written, Home::Overwritten, false, "copy_file_range", written},
        {"FinishAnInterruptedSaveWithoutMark", list, written, Home::Overwritten, false, "copy_file_range",
         written, false},
        {"UndoAnInterruptedSave", list, contentsBefore(), Home::Overwritten, false, "fsetxattr", written},
        {"GiveUpAStream", [](MountedZip& zip) { writeAll(*zip.writer("/docs/new"), newBytes()); },
         contentsBefore()},
        {"Read", [](MountedZip& zip) { zip.read("/a"); }, contentsBefore()},
        {"WriteAndCommitByRenaming", writeNew, written},
        {"WriteAndCommitByJournal", writeNew, written, Home::Overwritten},
        {"WriteAndCommitByJournalWithoutMark",
         writeNew,
         written,
         Home::Overwritten,
         true,
         nullptr,
         {},
         false},
        {"WriteIntoANestedArchive", writeNew, written, Home::Nested},
        {"Overwrite", [](MountedZip& zip) { zip.write("/a", newBytes()); }, with({{"a", newBytes()}})},
        {"Append", [](MountedZip& zip) { zip.append("/b", newBytes()); },
         with({{"b", "bytes of b" + newBytes()}})},
        {"CreateFile", [](MountedZip& zip) { zip.createFile("/docs/new"); }, with({{"docs/new", ""}})},
        {"CreateFolder", [](MountedZip& zip) { zip.createFolder("/docs/new"); }, with({{"docs/new/", ""}})},
        {"RemoveFile", [](MountedZip& zip) { zip.removeFile("/b"); }, with({}, {"b"})},
        {"RemoveFolder", [](MountedZip& zip) { zip.removeFolder("/e"); }, with({}, {"e/"})},
        {"MoveFile", [](MountedZip& zip) { zip.moveFile("/b", "/docs/c"); },
         with({{"docs/c", "bytes of b"}}, {"b"})},
        {"MoveFileOntoAnother",
         [](MountedZip& zip) { zip.moveFile("/b", "/a", MoveOption::ReplaceExisting); },
         with({{"a", "bytes of b"}}, {"b"})},
        {"MoveFolder", [](MountedZip& zip) { zip.moveFolder("/docs", "/e/papers"); },
         with({{"e/papers/", ""}, {"e/papers/x", "4"}}, {"docs/", "docs/x"})},
    };
}

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

void FaultLoop::SetUp() {
    if (InjectedFaults::unavailable() != nullptr) {
        GTEST_SKIP() << InjectedFaults::unavailable();
    }
}

void FaultLoop::expectSound(FaultBench& bench, const InjectedFaults::Plan& plan) {
    const auto problems = bench.run(plan);
    EXPECT_EQ(problems, "") << "call " << plan.number << " (" << InjectedFaults::firstFailure()
                            << "), manner " << static_cast<int>(plan.manner) << ", error " << plan.error;
}

std::uint64_t FaultLoop::loop(FaultBench& bench, Manner manner, int error, Subject subject) {
    for (std::uint64_t number = 1;; ++number) {
        expectSound(bench, {subject, manner, number, error});
        if (bench.failures() == 0) {
            return number - 1;
        }
    }
}

std::vector<int> FaultLoop::errors(std::vector<int> all) {
    if (!areLongLoops()) {
        all.resize(1);
    }
    return all;
}

void FaultLoop::report(const char* what, std::uint64_t points) {
    std::cout << GetParam().name << ": " << points << ' ' << what << std::endl;
}

} // namespace kx::test
