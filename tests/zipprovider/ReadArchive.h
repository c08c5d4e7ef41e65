#pragma once

#include "ScriptedStream.h"

#include <storage/zipprovider/src/MiniZipException.h>
#include <storage/zipprovider/src/instantiations.h>

#include <foundation/core/except/IInternalException.h>
#include <support/archives/ArchiveBuilder.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace kx::test {

using ReadHandle =
    storage::zipprovider::MiniZipReadHandle<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;
using Enumerator = storage::zipprovider::MiniZipEntryEnumerator<storage::zipprovider::HostItem,
                                                                storage::zipprovider::HostDevice>;
using EntryInfos =
    storage::zipprovider::ZipEntryInfos<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;
using EntrySource =
    storage::zipprovider::ZipEntrySource<storage::zipprovider::HostItem, storage::zipprovider::HostDevice>;

inline std::shared_ptr<StreamScript> scriptOf(std::string bytes) {
    auto script = std::make_shared<StreamScript>();
    script->bytes = std::move(bytes);
    return script;
}

inline std::shared_ptr<ReadHandle> openArchive(std::shared_ptr<StreamScript> script) {
    return std::make_shared<ReadHandle>(std::make_unique<ScriptedStream>(std::move(script)));
}

inline std::shared_ptr<ReadHandle> openArchive(std::string bytes) {
    return openArchive(scriptOf(std::move(bytes)));
}

/// All entries of the archive.
inline std::vector<storage::zipprovider::ZipEntryInfo> entriesOf(std::string bytes) {
    Enumerator enumerator(openArchive(std::move(bytes)));
    std::vector<storage::zipprovider::ZipEntryInfo> entries;
    while (auto info = enumerator.next()) {
        entries.push_back(std::move(*info));
    }
    return entries;
}

/// The contents that a source delivers from where it stands.
inline std::string contentsOf(storage::zipprovider::IEntrySource& source) {
    std::ostringstream out;
    source.doWrite(out);
    return std::move(out).str();
}

constexpr auto locateFailed = "Error while calling unzLocateFile in MiniZipEntrySerializer::doOpen";
constexpr auto openFailed = "Error while calling unzOpenCurrentFile in MiniZipEntrySerializer::doOpen";
constexpr auto readFailed = "Error on return of unzReadCurrentFile in MiniZipEntrySerializer::doRead";

/// The text of the MiniZipException that `work` throws; empty when it throws none.
template <typename Work>
std::string failureOf(Work work) {
    try {
        work();
    } catch (storage::zipprovider::MiniZipException& error) {
        EXPECT_NE(dynamic_cast<foundation::core::except::IInternalException*>(&error), nullptr);
        return error.what();
    }
    return {};
}

inline std::string failureOfOpening(const std::string& archive, const std::u16string& name) {
    return failureOf([&] { EntrySource(openArchive(archive), storage::zipprovider::ZipEntryPath(name)); });
}

/// What the entry of that name holds.
inline std::string contents(const std::string& archive, const std::u16string& name) {
    EntrySource source(openArchive(archive), storage::zipprovider::ZipEntryPath(name));
    return contentsOf(source);
}

/// An archive of one entry.
inline std::string archiveOf(ArchiveEntry entry) {
    return ArchiveBuilder().add(std::move(entry)).build();
}

} // namespace kx::test
