#pragma once

#include "ScriptedStream.h"

#include <storage/zipprovider/src/instantiations.h>

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

} // namespace kx::test
