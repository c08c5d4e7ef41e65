#pragma once

#include "ReadArchive.h"

#include <storage/zipprovider/src/MiniZipException.h>

#include <foundation/core/except/IInternalException.h>
#include <support/archives/ArchiveBuilder.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace kx::test {

constexpr auto locateFailed = "Error while calling unzLocateFile in MiniZipEntrySerializer::doOpen";
constexpr auto openFailed = "Error while calling unzOpenCurrentFile in MiniZipEntrySerializer::doOpen";
constexpr auto readFailed = "Error on return of unzReadCurrentFile in MiniZipEntrySerializer::doRead";

/// What() of the MiniZipException that `work` throws; empty when it throws none.
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

/// The bytes of the entry of this name.
inline std::string contents(const std::string& archive, const std::u16string& name) {
    EntrySource source(openArchive(archive), storage::zipprovider::ZipEntryPath(name));
    return contentsOf(source);
}

/// An archive of one entry.
inline std::string archiveOf(ArchiveEntry entry) {
    return ArchiveBuilder().add(std::move(entry)).build();
}

} // namespace kx::test
