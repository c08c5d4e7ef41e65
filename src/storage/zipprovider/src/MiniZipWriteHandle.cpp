#include "MiniZipWriteHandle.h"

#include "LocalFileFunctions.h"
#include "MiniZipException.h"

#include <fl/i18n/utf8.h>
#include <foundation/core/except/throwInternal.h>

#include <utility>

namespace storage::zipprovider {

MiniZipWriteHandle::MiniZipWriteHandle(const fl::filesystem::path& path)
    : MiniZipWriteHandle(path, openLocalZipForWriting(path)) {}

MiniZipWriteHandle MiniZipWriteHandle::addingTo(const fl::filesystem::path& path) {
    return {path, detail::openForWriting(path, true, &detail::tryOpenLocalZip)};
}

MiniZipWriteHandle::MiniZipWriteHandle(const fl::filesystem::path& path, zipFile zip) : m_zip(zip) {
    if (m_zip == nullptr) {
        foundation::core::except::throwInternal(
            MiniZipException(u"Error while calling zipOpen in MiniZipWriteHandle::MiniZipWriteHandle for " +
                             fl::i18n::fromUtf8(path.string())));
    }
}

MiniZipWriteHandle::~MiniZipWriteHandle() {
    try {
        close();
    } catch (...) {
        // Whoever needs to know calls close().
    }
}

void MiniZipWriteHandle::close() {
    if (const auto zip = std::exchange(m_zip, nullptr); zip != nullptr && zipClose(zip, nullptr) != ZIP_OK) {
        foundation::core::except::throwInternal(
            MiniZipException(u"MiniZipWriteHandle: Problem closing zip file"));
    }
}

} // namespace storage::zipprovider
