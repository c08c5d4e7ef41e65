#include "StoredArchiveWriter.h"

#include "DosTime.h"
#include "EntryName.h"
#include "MiniZipException.h"
#include "ZipConstants.h"

#include <fl/filesystem/detail/path_forms.h>
#include <fl/i18n/utf8.h>
#include <foundation/core/except/throwInternal.h>

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

namespace storage::zipprovider {

namespace {

/// Above these, minizip writes records that this writer leaves to it.
constexpr std::uint64_t maximalCount = 0xFFFE;
constexpr std::uint64_t maximalPosition = 0xFFFF0000;

bool carriesTheWritersMarks(const CentralHeader& header, std::uint64_t size) {
    return header.method == Z_DEFLATED && header.flags == 0 && header.madeBy == writerMadeBy &&
           header.needed == writerNeeded && header.internalAttributes <= textAttribute &&
           header.externalAttributes == 0 && header.extraLength == 0 && header.commentLength == 0 &&
           header.disk == 0 && header.compressedSize < zip64Limit && header.uncompressedSize < zip64Limit &&
           header.uncompressedSize == size;
}

/// The fields that the two headers of an entry have in common.
void putCommonFields(std::string& out, const CentralHeader& header, std::uint32_t dosTime,
                     std::size_t nameSize) {
    putLittleEndian(out, writerNeeded, 2);
    putLittleEndian(out, 0, 2);
    putLittleEndian(out, Z_DEFLATED, 2);
    putLittleEndian(out, dosTime, 4);
    putLittleEndian(out, header.crc32, 4);
    putLittleEndian(out, header.compressedSize, 4);
    putLittleEndian(out, header.uncompressedSize, 4);
    putLittleEndian(out, nameSize, 2);
    putLittleEndian(out, 0, 2);
}

[[noreturn]] void failToWrite() {
    const auto cause = errno != 0 ? ": " + std::generic_category().message(errno) : std::string();
    foundation::core::except::throwInternal(
        MiniZipException(u"ZipEntrySink: Problem writing entry data" + fl::i18n::fromUtf8(cause)));
}

} // namespace

StoredArchiveWriter::StoredArchiveWriter(ReadArchiveUpTo old, fl::filesystem::path path)
    : m_old(std::move(old)), m_path(std::move(path)), m_oldDirectory(m_old, 0),
      m_buffer(storedCopyBufferSize) {}

bool StoredArchiveWriter::add(const StoredEntryName& stored, const EntryDescription& description) {
    m_oldDirectory.goTo(stored.position.pos_in_zip_directory);
    const auto header = m_oldDirectory.header();
    const auto name = encodeEntryName(zipEntryName(description.path, description.type));
    if (!header || header->name != encodeEntryName(stored.name) ||
        !carriesTheWritersMarks(*header, description.size) || name.find('\0') != std::string::npos ||
        name.size() > maximalNameSize || m_count == maximalCount || !localHeaderAgrees(*header)) {
        return false;
    }
    const auto dosTime = dosDateAndTime(toLocalDosTime(description.lastModified));
    std::string localHeader;
    putLittleEndian(localHeader, localHeaderSignature, 4);
    putCommonFields(localHeader, *header, dosTime, name.size());
    localHeader += name;
    const auto place = m_file ? m_file->position() : 0;
    if (place + localHeader.size() + header->compressedSize > maximalPosition ||
        !copyEntry(*header, localHeader)) {
        return false;
    }
    putLittleEndian(m_directory, centralHeaderSignature, 4);
    putLittleEndian(m_directory, writerMadeBy, 2);
    putCommonFields(m_directory, *header, dosTime, name.size());
    putLittleEndian(m_directory, 0, 4);
    putLittleEndian(m_directory, header->internalAttributes, 2);
    putLittleEndian(m_directory, 0, 4);
    putLittleEndian(m_directory, place, 4);
    m_directory += name;
    ++m_count;
    return true;
}

bool StoredArchiveWriter::localHeaderAgrees(const CentralHeader& header) {
    const auto expected = localHeaderSize + header.name.size();
    std::vector<char> bytes(expected);
    if (m_old(header.localHeader, bytes.data(), static_cast<std::uint32_t>(expected)) != expected) {
        return false;
    }
    std::string same;
    putLittleEndian(same, localHeaderSignature, 4);
    putCommonFields(same, header, header.dosTime, header.name.size());
    same += header.name;
    return std::equal(same.begin(), same.end(), bytes.begin(), bytes.end());
}

bool StoredArchiveWriter::copyEntry(const CentralHeader& header, const std::string& localHeader) {
    if (!m_file) {
        m_file = LocalArchiveFile::open(
            fl::filesystem::detail::make_access_form(fl::filesystem::detail::to_filesystem(m_path)),
            LocalArchiveFile::Mode::Create);
        if (!m_file) {
            return false;
        }
    }
    const auto begin = m_file->position();
    write(localHeader.data(), localHeader.size());
    std::uint64_t from = header.localHeader + localHeaderSize + header.name.size();
    for (std::uint64_t left = header.compressedSize; left > 0;) {
        const auto now = static_cast<std::uint32_t>(std::min<std::uint64_t>(left, m_buffer.size()));
        if (m_old(from, m_buffer.data(), now) != now) {
            m_file->goTo(begin);
            if (!m_file->truncate()) {
                failToWrite();
            }
            return false;
        }
        write(m_buffer.data(), now);
        from += now;
        left -= now;
    }
    return true;
}

void StoredArchiveWriter::write(const char* data, std::size_t count) {
    if (!m_file->write(data, count)) {
        failToWrite();
    }
}

void StoredArchiveWriter::finish() {
    if (!m_file) {
        return;
    }
    std::string end = std::move(m_directory);
    const auto directorySize = end.size();
    putLittleEndian(end, endRecordSignature, 4);
    putLittleEndian(end, 0, 4);
    putLittleEndian(end, m_count, 2);
    putLittleEndian(end, m_count, 2);
    putLittleEndian(end, directorySize, 4);
    putLittleEndian(end, m_file->position(), 4);
    putLittleEndian(end, 0, 2);
    write(end.data(), end.size());
    if (!m_file->close()) {
        failToWrite();
    }
}

} // namespace storage::zipprovider
