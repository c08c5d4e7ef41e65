#include "ArchiveProbe.h"

#include <algorithm>
#include <array>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <fl/i18n/utf8.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

namespace kx::test {

namespace {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;

void readWhole(IProvider& provider, const StorageIRI& location, ProbedEntry& entry) {
    const auto stream = provider.openReadStream(location);
    std::array<char, 65536> buffer;
    uLong crc = crc32(0, nullptr, 0);
    std::uint64_t total = 0;
    while (const std::int64_t count = stream->read(buffer.data(), buffer.size())) {
        crc = crc32(crc, reinterpret_cast<const Bytef*>(buffer.data()), static_cast<uInt>(count));
        total += static_cast<std::uint64_t>(count);
    }
    stream->close();
    entry.crc32 = static_cast<std::uint32_t>(crc);
    if (total != entry.size)
        entry.error = std::to_string(total) + " bytes read of " + std::to_string(entry.size);
}

void probeEntry(IProvider& provider, const StorageIRI& location, std::uint64_t readLimit,
                ProbedEntry& entry) {
    if (entry.folder) {
        entry.modified = to_iso_extended_string(provider.getFolderAttributes(location).getLastModified());
        return;
    }
    const auto attributes = provider.getFileAttributes(location);
    entry.size = attributes.getSize().value_or(0);
    entry.modified = to_iso_extended_string(attributes.getLastModified());
    if (entry.size > readLimit)
        entry.error = "not read: too large for this probe";
    else
        readWhole(provider, location, entry);
}

} // namespace

const ProbedEntry* ProbedArchive::find(const std::string& path) const {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const ProbedEntry& entry) { return entry.path == path; });
    return found == entries.end() ? nullptr : &*found;
}

ProbedArchive probeArchive(IProvider& provider, const StorageIRI& root, std::uint64_t readLimit) {
    ProbedArchive result;
    try {
        for (const auto entries = provider.listAllRecursive(root); entries->hasNext();) {
            entries->next();
            const auto current = entries->current();
            ProbedEntry entry;
            entry.path = fl::i18n::toUtf8(current.getName());
            entry.folder = current.isFolder();
            try {
                probeEntry(provider, root.withPath(u"/" + current.getName()), readLimit, entry);
            } catch (const std::exception& error) {
                entry.error = error.what();
            }
            result.entries.push_back(std::move(entry));
        }
    } catch (const std::exception& error) {
        result.error = error.what();
        if (result.error.empty())
            result.error = "an exception without text";
    }
    return result;
}

std::string toText(const ProbedArchive& archive) {
    nlohmann::json rows = nlohmann::json::array();
    for (const ProbedEntry& entry : archive.entries)
        rows.push_back({entry.path, entry.folder, entry.size, entry.modified, entry.crc32, entry.error});
    const nlohmann::json whole = {archive.error, rows};
    return whole.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

ProbedArchive fromText(const std::string& text) {
    const nlohmann::json whole = nlohmann::json::parse(text);
    ProbedArchive archive;
    archive.error = whole.at(0);
    for (const nlohmann::json& row : whole.at(1)) {
        ProbedEntry entry;
        entry.path = row.at(0);
        entry.folder = row.at(1);
        entry.size = row.at(2);
        entry.modified = row.at(3);
        entry.crc32 = row.at(4);
        entry.error = row.at(5);
        archive.entries.push_back(std::move(entry));
    }
    return archive;
}

} // namespace kx::test
