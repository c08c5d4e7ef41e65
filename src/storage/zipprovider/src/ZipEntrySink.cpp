#include "ZipEntrySink.h"

#include "DosTime.h"
#include "EntryName.h"
#include "MiniZipException.h"
#include "ZipConstants.h"

#include <foundation/core/except/throwInternal.h>

#include <minizip/zip.h>

#include <cstddef>
#include <string>

namespace storage::zipprovider {

namespace {

/// Why the headers of an entry cannot have that name; null when they can. minizip takes a name as a C string,
/// and the headers have 16 bits for its length: it would store another name than it was told to.
const char16_t* obstacleTo(const std::string& name) {
    return name.find('\0') != std::string::npos ? u"its name has a NUL in it"
           : name.size() > maximalNameSize      ? u"its name takes more than 65535 bytes"
                                                : nullptr;
}

/// A path of any length, for a message.
fl::i18n::ustring excerpt(const ZipEntryPath& path) {
    constexpr std::size_t limit = 100;
    auto text = path.toString();
    if (text.size() > limit) {
        text.resize(limit);
        text += u'\u2026';
    }
    return text;
}

} // namespace

fl::i18n::ustring zipEntryName(const ZipEntryPath& path, ZipEntryType type) {
    auto name = path.toString();
    if (type == ZipEntryType::Folder) {
        name += u'/';
    }
    return name;
}

void requireStorableName(const ZipEntryPath& path, ZipEntryType type) {
    if (const auto* obstacle =
            obstacleTo(encodeEntryName(zipEntryName(ZipEntryPath(path.toString(false)), type)))) {
        foundation::core::except::throwInternal(
            MiniZipException(u"cannot store the entry " + excerpt(path) + u": " + obstacle));
    }
}

void openZipEntry(MiniZipWriteHandle& handle, const EntryDescription& description, EntryData data,
                  std::uint32_t internalAttributes) {
    zip_fileinfo info{};
    info.internal_fa = internalAttributes;
    info.tmz_date = toLocalDosTime(description.lastModified);
    const auto name = encodeEntryName(zipEntryName(description.path, description.type));
    const int raw = data == EntryData::AlreadyDeflated ? 1 : 0;
    constexpr int windowBits = -MAX_WBITS;
    constexpr int memoryLevel = 8;
    constexpr int noZip64 = 0;
    if (obstacleTo(name) != nullptr ||
        zipOpenNewFileInZip3_64(handle.get(), name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                Z_DEFLATED, Z_DEFAULT_COMPRESSION, raw, windowBits, memoryLevel,
                                Z_DEFAULT_STRATEGY, nullptr, 0, noZip64) != ZIP_OK) {
        foundation::core::except::throwInternal(
            MiniZipException(u"ZipEntrySink: Problem opening zip file for writing"));
    }
}

ZipEntrySink::ZipEntrySink(MiniZipWriteHandle& handle, const EntryDescription& description)
    : m_handle(&handle), m_description(description) {
    openZipEntry(handle, description, EntryData::ToDeflate);
}

std::int64_t ZipEntrySink::write(const char* data, std::int64_t count) {
    if (zipWriteInFileInZip(m_handle->get(), data, static_cast<unsigned>(count)) != ZIP_OK) {
        foundation::core::except::throwInternal(
            MiniZipException(u"ZipEntrySink: Problem writing entry data"));
    }
    return count;
}

} // namespace storage::zipprovider
