#pragma once

#include "MiniZipException.h"
#include "StoredEntryCopy.h"
#include "ZipConstants.h"

#include <fl/filesystem/operations.h>
#include <fl/i18n/utf8.h>
#include <foundation/core/except/throwInternal.h>
#include <foundation/log/log.h>

#include <boost/iostreams/device/file.hpp>
#include <boost/iostreams/stream.hpp>

#include <exception>
#include <ios>
#include <optional>
#include <utility>
#include <vector>

namespace storage::zipprovider {

namespace detail {

[[noreturn]] inline void throwMiniZip(const std::u16string& message) {
    foundation::core::except::throwInternal(MiniZipException(message));
}

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
    refuseUnreadArchive();
    refuseForeignChange();
    refuseEncryptedEntries();
    TemporaryArchive target;
    buildArchive(openArchive(), target);
    bringIntoContainer(target);
    const auto superseded = std::exchange(m_keptArchive, std::nullopt);
    try {
        rebuildBasalState();
        if (!m_unread.empty()) {
            detail::throwMiniZip(u"cannot read " + containerText() + u" after it was rebuilt: " + m_unread);
        }
    } catch (...) {
        continueFrom(target);
        removeQuietly(superseded);
        throw;
    }
    target.remove();
    removeQuietly(superseded);
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::refuseUnreadArchive() const {
    if (!m_unread.empty()) {
        detail::throwMiniZip(u"cannot rebuild " + containerText() + u": " + m_unread +
                             u", and overwriting it would lose the rest");
    }
}

/// A stamp may change while the archive does not (a container inside another archive gets its time rounded
/// when that is written), so the directory has the last word.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::refuseForeignChange() const {
    const auto stamp = ContainerStamp::of(m_container.getFileAttributes());
    if (!m_stamp || stamp == *m_stamp) {
        return;
    }
    if (stamp.size == m_stamp->size && m_fingerprint &&
        directoryFingerprint(EntryInfos(std::make_shared<ReadHandle>(m_container))) == *m_fingerprint) {
        m_stamp = stamp;
        return;
    }
    detail::throwMiniZip(u"cannot rebuild " + containerText() +
                         u": another program has changed it since it was read");
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
    MiniZipWriteHandle writer(target.path());
    writeCarriedOverEntries(archive, writer);
    ZipEntryAppender appender(writer, target.path(), m_carriedOver.size());
    writeModifiedEntries(appender);
    writeFolders(appender);
    writer.close();
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::writeCarriedOverEntries(
    const std::shared_ptr<ReadHandle>& archive, MiniZipWriteHandle& target) const {
    for (const auto& [path, entry] : m_carriedOver) {
        try {
            // An entry that stays where it is keeps the kind of name it has; all that the system names is
            // relative.
            const auto name = entry.moved ? Path(path.toString(false)) : Path(entry.stored.name);
            const EntryDescription description{entry.type, name, entry.size, entry.lastModified, entry.index};
            if (!copyStoredEntry(archive->get(), entry.stored, target, description)) {
                EntrySource source(archive, entry.stored);
                detail::copyEntry(source, ZipEntrySink(target, description), entry.size);
            }
        } catch (const MiniZipException& failure) {
            detail::throwMiniZip(u"cannot rebuild " + containerText() + u": its entry " + path.toString() +
                                 u" cannot be carried over: " + fl::i18n::fromUtf8(failure.what()));
        }
    }
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

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::bringIntoContainer(TemporaryArchive& archive) const {
    bool opened = false;
    try {
        ByteStreamDevice container(m_container.openStream({}));
        opened = true;
        copyIntoContainer(container, archive);
        container.close();
    } catch (...) {
        // The stream is gone: a container that takes back what was not closed has done so. One that could not
        // be opened is as it was, and the new archive need not be kept.
        if (opened) {
            continueFrom(archive);
        }
        throw;
    }
}

/// The container holds the old archive, the new one, or half of it; which one is not for us to find out. The
/// new archive has everything, so it is what is read, and what a later flush starts from.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::continueFrom(TemporaryArchive& archive) const {
    archive.keep();
    KX_LOG(m_logger) << "Could not bring the new archive into the container; it is kept as "
                     << archive.path().string();
    try {
        const EntryInfos infos(
            std::make_shared<ReadHandle>(std::make_unique<LocalArchiveStream>(archive.path())));
        install(infos, findFolder(Path(u"/"))->ownEntry()->lastModified);
        m_unread.clear();
    } catch (const std::exception& error) {
        KX_LOG(m_logger) << "Could not read the kept archive: " << error.what();
        return;
    }
    // The container still lacks what the kept archive has.
    m_stateChanged = m_treeChanged = true;
    removeQuietly(std::exchange(m_keptArchive, archive.path()));
    try {
        m_stamp = ContainerStamp::of(m_container.getFileAttributes());
    } catch (...) {
        // What the interrupted copy has left cannot be told from what another program may write.
        m_stamp.reset();
    }
}

template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::removeQuietly(
    const std::optional<fl::filesystem::path>& archive) const {
    if (!archive) {
        return;
    }
    try {
        fl::filesystem::remove_all(*archive);
    } catch (const std::exception& error) {
        // The changes are in another place; a file too many is no failure of that.
        KX_LOG(m_logger) << "Could not remove " << archive->string() << ": " << error.what();
    }
}

/// Closing the container's stream is what puts the new archive in place, so only a copy that is known to be
/// complete may get there.
template <ContainerItem StorageItem, StreamDevice ByteStreamDevice>
void ZipState<StorageItem, ByteStreamDevice>::copyIntoContainer(ByteStreamDevice& container,
                                                                const TemporaryArchive& archive) const {
    boost::iostreams::basic_file<char> file(archive.path().string(),
                                            std::ios_base::in | std::ios_base::binary, std::ios_base::in);
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
