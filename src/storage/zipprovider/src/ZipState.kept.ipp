#pragma once

#include "MiniZipException.h"

#include <fl/filesystem/operations.h>
#include <fl/i18n/utf8.h>
#include <foundation/log/log.h>

#include <cstddef>
#include <exception>
#include <filesystem>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace storage::zipprovider {

/// The container holds the old archive, the new one, half of it, or what another program has put there
/// meanwhile; the stamp stays that of what was read, so that the next flush looks which. The new archive has
/// everything, so what is carried over is taken from there. The changes stay recorded.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::continueFrom(TemporaryArchive& archive,
                                                           std::vector<StoredEntryName>& stored) const {
    m_keptBefore = std::exchange(m_keptArchive, archive.keep());
    m_keptEntries = stored.size() + m_modified.size() + m_createdFolders.size();
    auto place = stored.begin();
    for (auto& [path, entry] : m_carriedOver) {
        std::swap(entry.stored, *place++);
    }
    m_storedBefore = std::move(stored);
    m_keptArchiveIsUnread = true;
    for (auto& [path, modified] : m_modified) {
        // The kept archive has the entry as it was written, not as it was before.
        modified.settled = true;
        modified.original.reset();
    }
    try {
        KX_LOG(m_logger) << "Could not bring the new archive into the container; it is kept as "
                         << *m_keptArchive;
        readKeptArchive();
    } catch (const std::exception& error) {
        KX_LOG(m_logger) << "Could not read the kept archive: " << error.what();
    }
}

/// What continueFrom() needs memory for: how the entries that are carried over are stored in the new archive.
/// They are the first to be written, in their order.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::vector<StoredEntryName> ZipState<StorageItem, ByteStreamDevice>::prepareToContinue() const {
    m_superseded.reserve(m_superseded.size() + 1);
    std::vector<StoredEntryName> stored;
    stored.reserve(m_carriedOver.size());
    for (const auto& [path, entry] : m_carriedOver) {
        stored.push_back({zipEntryName(nameInNextArchive(path, entry), entry.type), {0, stored.size()}});
    }
    return stored;
}

/// To be called before anything is read through the positions of entries that are carried over.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::readKeptArchive() const {
    if (!m_keptArchiveIsUnread) {
        return;
    }
    try {
        const auto infos = readEntries(openArchive());
        std::set<std::size_t> own{directoryFingerprint(infos)};
        carryOverFrom(infos);
        m_ownDirectories.merge(own);
    } catch (const std::exception& error) {
        if (ContainerStamp::of(m_container.getFileAttributes()) != m_stamp) {
            throw;
        }
        KX_LOG(m_logger) << "Could not read the kept archive " << *m_keptArchive
                         << " and go on from the one before: " << error.what();
        goBackFromKeptArchive();
        return;
    }
    m_keptArchiveIsUnread = false;
    m_storedBefore.clear();
    if (m_keptBefore) {
        m_superseded.push_back(*std::exchange(m_keptBefore, std::nullopt));
    }
    removeSuperseded();
}

/// Has the entries that are carried over found in the kept archive.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::carryOverFrom(const EntryInfos& infos) const {
    if (!infos.isComplete() || infos.size() != m_keptEntries) {
        detail::throwMiniZip(u"the archive " + fl::i18n::fromUtf8(m_keptArchive->string()) +
                             u" does not have the entries that were written");
    }
    const auto first = infos.begin();
    forEachOfTheArchive([&](CarriedOverEntry& entry) {
        const auto place = static_cast<std::ptrdiff_t>(entry.stored.position.num_of_file);
        entry.stored.position = std::next(first, place)->stored.position;
    });
}

/// The copy has left no trace in the container, so what was read before is still there. The file of the kept
/// archive stays until the changes are in the container.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::goBackFromKeptArchive() const {
    m_superseded.push_back(std::move(*m_keptArchive));
    m_keptArchive = std::exchange(m_keptBefore, std::nullopt);
    forEachOfTheArchive([&](CarriedOverEntry& entry) {
        std::swap(entry.stored, m_storedBefore[static_cast<std::size_t>(entry.stored.position.num_of_file)]);
    });
    m_keptArchiveIsUnread = false;
    m_storedBefore.clear();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
template <typename Visit>
void ZipState<StorageItem, ByteStreamDevice>::forEachOfTheArchive(Visit visit) const {
    for (auto& [path, entry] : m_carriedOver) {
        visit(entry);
    }
    for (auto& [path, modified] : m_modified) {
        if (modified.original) {
            visit(*modified.original);
        }
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::removeSuperseded() const {
    for (const auto& archive : std::exchange(m_superseded, {})) {
        removeQuietly(archive);
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::removeQuietly(const fl::filesystem::path& archive) const {
    try {
        fl::filesystem::remove_all(archive);
    } catch (const std::exception& error) {
        // Removing all begins by looking for a folder, which can fail by itself.
        std::error_code failure;
        if (!std::filesystem::remove(archive, failure)) {
            // The changes are in another place; a file too many is no failure of that.
            KX_LOG(m_logger) << "Could not remove " << archive << ": " << error.what();
        }
    }
}

} // namespace storage::zipprovider
