#pragma once

#include "LocalArchiveStream.h"
#include "MiniZipException.h"
#include "RebuildMode.h"
#include "StoredArchiveWriter.h"
#include "StoredEntryCopy.h"
#include "ZipConstants.h"

#include <fl/filesystem/operations.h>
#include <fl/i18n/utf8.h>
#include <foundation/core/except/throwInternal.h>
#include <foundation/log/log.h>

#include <boost/iostreams/stream.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <ios>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace storage::zipprovider {

namespace detail {

/// Copies one entry of the old archive into the new one, byte for byte as long as both agree on its size.
inline void copyEntry(IEntrySource& source, const ZipEntrySink& sink, std::uint64_t expectedSize) {
    boost::iostreams::stream<ZipEntrySink> out;
    out.open(sink, -1, -1);
    const auto copied = source.doWrite(out);
    // The copy looks at the stream before each write only, and closing it forgets a failure.
    if (!out) {
        throwMiniZip(u"ZipEntrySink: Problem writing entry data");
    }
    out.close();
    if (copied != expectedSize) {
        throwMiniZip(u"Error on return of unzReadCurrentFile in MiniZipEntrySerializer::doRead");
    }
}

} // namespace detail

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::doFlush() const {
    KX_LOG_FUNCTION(m_logger);
    KX_LOG_DEBUG(m_logger) << "Will actually flush and update zip? " << m_stateChanged;
    if (!m_stateChanged) {
        return;
    }
    readKeptArchive();
    refuseUnreadArchive();
    refuseForeignChange();
    refuseEncryptedEntries();
    TemporaryArchive target;
    buildArchive(openArchive(), target);
    auto stored = prepareToContinue();
    bringIntoContainer(target, stored);
    auto superseded = std::exchange(m_keptArchive, std::nullopt);
    try {
        rebuildBasalState(Incomplete::IsRefused);
    } catch (...) {
        m_keptArchive = std::move(superseded);
        continueFrom(target, stored);
        throw;
    }
    removeQuietly(target.path());
    if (superseded) {
        removeQuietly(*superseded);
    }
    removeSuperseded();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::refuseUnreadArchive() const {
    if (!m_unread.empty()) {
        detail::throwMiniZip(u"cannot rebuild " + containerText() + u": " + m_unread +
                             u", and overwriting it would lose the rest");
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::refuseForeignChange() const {
    if (!holdsWhatWasRead()) {
        throwForeignChange();
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::throwForeignChange() const {
    detail::throwMiniZip(u"cannot rebuild " + containerText() +
                         u": another program has changed it since it was read");
}

/// A stamp may change while the archive does not (a container inside another archive gets its time rounded
/// when that is written), so the contents have the last word. A copy that was interrupted leaves part of the
/// archive that was kept, and whoever opens the container since then may finish or undo it; all of that
/// changes the size as well.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipState<StorageItem, ByteStreamDevice>::holdsWhatWasRead() const {
    const auto stamp = ContainerStamp::of(m_container.getFileAttributes());
    if (stamp == m_stamp) {
        return true;
    }
    const bool sameSize = stamp.size == m_stamp.size;
    if (!sameSize && !m_keptArchive) {
        return false;
    }
    if (!hasOwnDirectory(sameSize) && !(m_keptArchive && showsPartOf(*m_keptArchive))) {
        return false;
    }
    m_stamp = stamp;
    m_directoryPlace.reset();
    return true;
}

/// An empty container has the directory of an archive without entries, so only one of the size that is known
/// counts without being an archive.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipState<StorageItem, ByteStreamDevice>::hasOwnDirectory(bool sameSize) const {
    try {
        const auto archive = std::make_shared<ReadHandle>(m_container);
        archive->rethrowFailure();
        return (sameSize || archive->isOpen()) &&
               m_ownDirectories.contains(directoryFingerprint(readEntries(archive)));
    } catch (const std::out_of_range&) {
        // Boost's calendar refuses a date that no entry of what was read has had.
        return false;
    }
}

/// Opening it would fail as well, but only after the entries in front of it were deflated, and without a word
/// about the cause.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::refuseEncryptedEntries() const {
    for (const auto& [path, entry] : m_carriedOver) {
        if (entry.encrypted) {
            detail::throwMiniZip(u"cannot rebuild " + containerText() + u": its entry " + path.toString() +
                                 u" is encrypted and cannot be carried over");
        }
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::buildArchive(const std::shared_ptr<ReadHandle>& archive,
                                                           const TemporaryArchive& target) const {
    const auto rest = writeStoredEntries(archive, target);
    // What was begun must be there: the next archive would lack its entries.
    auto writer = rest == m_carriedOver.cbegin() ? MiniZipWriteHandle(target.path())
                                                 : MiniZipWriteHandle::addingTo(target.path());
    try {
        writeCarriedOverEntries(archive, rest, writer);
        ZipEntryAppender appender(writer, target.path(), m_carriedOver.size());
        writeModifiedEntries(appender);
        writeFolders(appender);
    } catch (const MiniZipException&) {
        // Where the new archive could not be written, its entries are not to blame, and its end tells why.
        closeArchive(writer, target);
        throw;
    }
    closeArchive(writer, target);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::closeArchive(MiniZipWriteHandle& writer,
                                                           const TemporaryArchive& target) const {
    errno = 0;
    try {
        writer.close();
    } catch (const MiniZipException& failure) {
        const auto cause = errno != 0 ? ": " + std::generic_category().message(errno) : std::string();
        detail::throwMiniZip(u"cannot rebuild " + containerText() + u": cannot write the new archive " +
                             fl::i18n::fromUtf8(target.path().string() + ": " + failure.what() + cause));
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
EntryDescription ZipState<StorageItem, ByteStreamDevice>::description(const Path& path,
                                                                      const CarriedOverEntry& entry) {
    return {entry.type, nameInNextArchive(path, entry), entry.size, entry.lastModified, entry.index};
}

/// Takes over as stored what can be, up to the first entry that cannot; returns that one's place.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
auto ZipState<StorageItem, ByteStreamDevice>::writeStoredEntries(const std::shared_ptr<ReadHandle>& archive,
                                                                 const TemporaryArchive& target) const ->
    typename CarriedOverEntries::const_iterator {
    auto place = m_carriedOver.cbegin();
    if (rebuildMode() == RebuildMode::Plain) {
        return place;
    }
    StoredArchiveWriter writer(
        [handle = archive.get()](std::uint64_t position, char* buffer, std::uint32_t count) {
            return handle->readUpTo(position, buffer, count);
        },
        target.path());
    try {
        while (place != m_carriedOver.cend() &&
               writer.add(place->second.stored, description(place->first, place->second))) {
            ++place;
        }
        writer.finish();
    } catch (const MiniZipException& failure) {
        detail::throwMiniZip(u"cannot rebuild " + containerText() + u": cannot write the new archive " +
                             fl::i18n::fromUtf8(target.path().string() + ": " + failure.what()));
    }
    return place;
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::writeCarriedOverEntries(
    const std::shared_ptr<ReadHandle>& archive, typename CarriedOverEntries::const_iterator place,
    MiniZipWriteHandle& target) const {
    for (; place != m_carriedOver.cend(); ++place) {
        const auto& [path, entry] = *place;
        try {
            const auto described = description(path, entry);
            if (!copyStoredEntry(archive->get(), entry.stored, target, described)) {
                EntrySource source(archive, entry.stored);
                detail::copyEntry(source, ZipEntrySink(target, described), entry.size);
            }
        } catch (const MiniZipException& failure) {
            archive->rethrowFailure();
            detail::throwMiniZip(u"cannot rebuild " + containerText() + u": its entry " + path.toString() +
                                 u" cannot be carried over: " + fl::i18n::fromUtf8(failure.what()));
        }
    }
}

/// An entry that stays where it is keeps the kind of name it has; all that the system names is relative.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
ZipEntryPath ZipState<StorageItem, ByteStreamDevice>::nameInNextArchive(const Path& path,
                                                                        const CarriedOverEntry& entry) {
    return entry.moved ? Path(path.toString(false)) : Path(entry.stored.name);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::writeModifiedEntries(ZipEntryAppender& target) const {
    for (const auto& [path, modified] : m_modified) {
        try {
            target.appendFile(path, *modified.entry);
        } catch (const MiniZipException& failure) {
            detail::throwMiniZip(u"cannot rebuild " + containerText() + u": cannot write its entry " +
                                 path.toString() + u": " + fl::i18n::fromUtf8(failure.what()));
        }
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::writeFolders(ZipEntryAppender& target) const {
    for (const auto& [path, time] : m_createdFolders) {
        try {
            target.appendFolder(path, time);
        } catch (const MiniZipException& failure) {
            detail::throwMiniZip(u"cannot rebuild " + containerText() + u": cannot write its folder " +
                                 path.toString() + u": " + fl::i18n::fromUtf8(failure.what()));
        }
    }
}

/// Building the archive may have taken long, and so may copying it, so both are followed by another look at
/// the container. Between the last look and the close nothing but a lock helps.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::bringIntoContainer(TemporaryArchive& archive,
                                                                 std::vector<StoredEntryName>& stored) const {
    refuseForeignChange();
    bool opened = false;
    try {
        ByteStreamDevice container(m_container.openStream({}));
        opened = true;
        copyIntoContainer(container, archive);
        if (!holdsWhatWasRead() && !showsPartOf(archive.path())) {
            throwForeignChange();
        }
        container.close();
    } catch (...) {
        // The stream is gone: a container that takes back what was not closed has done so. One that could not
        // be opened is as it was, and the new archive need not be kept.
        if (opened) {
            continueFrom(archive, stored);
        }
        throw;
    }
}

/// Whether the container's bytes are those with which an archive begins that was copied into it: it may show
/// what is written to it before that is closed.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
bool ZipState<StorageItem, ByteStreamDevice>::showsPartOf(const fl::filesystem::path& archive) const {
    LocalArchiveStream written(archive);
    const auto container = m_container.openReadOnlyStream();
    std::vector<char> shown(comparingBufferSize);
    std::vector<char> expected(comparingBufferSize);
    for (;;) {
        const auto count = container->read(shown.data(), comparingBufferSize);
        if (count <= 0) {
            return true;
        }
        const auto end = shown.begin() + static_cast<std::ptrdiff_t>(count);
        if (written.read(expected.data(), count) != count ||
            !std::equal(shown.begin(), end, expected.begin())) {
            return false;
        }
    }
}

/// Closing the container's stream is what puts the new archive in place, so only a copy that is known to be
/// complete may get there.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::copyIntoContainer(ByteStreamDevice& container,
                                                                const TemporaryArchive& archive) const {
    LocalArchiveStream file(archive.path());
    const auto expected = fl::filesystem::status(archive.path()).size;
    std::vector<char> buffer(fileCopyBufferSize);
    std::uint64_t copied = 0;
    for (;;) {
        const auto count = file.read(buffer.data(), fileCopyBufferSize);
        if (count <= 0) {
            break;
        }
        container.write(buffer.data(), count);
        copied += static_cast<std::uint64_t>(count);
    }
    file.close();
    if (copied != expected) {
        detail::throwMiniZip(u"cannot bring the new archive into " + containerText() +
                             u": the temporary archive could not be read to the end");
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
std::u16string ZipState<StorageItem, ByteStreamDevice>::containerText() const {
    return m_container.getLocation().toString();
}

} // namespace storage::zipprovider
