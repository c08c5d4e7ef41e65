#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>

namespace foundation::storage::provider {

void IProvider::doSetLastModified(const StorageIRI& location, boost::posix_time::ptime /*time*/) {
    throw Exception(ErrorCode::NotSupported, location, "modification times cannot be set here");
}

void IProvider::doSetWritable(const StorageIRI& location, bool /*writable*/) {
    throw Exception(ErrorCode::NotSupported, location, "write permission cannot be changed here");
}

bool IProvider::doHasFeature(Feature feature) {
    switch (feature) {
    case Feature::TransactionalStreams:
    case Feature::AtomicCopy:
    case Feature::ChangeEvents:
    case Feature::TruncateToSize:
    case Feature::EmptyFolders:
        return true;
    case Feature::SetLastModified:
    case Feature::SetWritable:
    case Feature::PreciseTimes:
    case Feature::StorageInfo:
        return false;
    }
    return false;
}

PathComparator IProvider::doGetPathComparator() {
    return [](fl::i18n::ustring_view a, fl::i18n::ustring_view b) { return a.compare(b); };
}

StorageIRI IProvider::doGetCanonicalLocation(const StorageIRI& location) {
    const auto& path = location.getResolvedPath();
    fl::i18n::ustring canonical;
    canonical.reserve(path.size());
    for (const char16_t unit : path) {
        if (unit != u'/' || canonical.empty() || canonical.back() != u'/') {
            canonical += unit;
        }
    }
    if (canonical.size() > 1 && canonical.back() == u'/') {
        canonical.pop_back();
    }
    return location.withPath(canonical.empty() ? fl::i18n::ustring_view(u"/") : canonical);
}

FilenameSensitivity IProvider::doGetFilenameSensitivity() {
    return FilenameSensitivity::CaseSensitive;
}

bool IProvider::doExists(const StorageIRI& location) {
    return doExistsExtended(location) != Existence::Nothing;
}

Existence IProvider::doExistsExtended(const StorageIRI& location) {
    return doIsFile(location)     ? Existence::File
           : doIsFolder(location) ? Existence::Folder
                                  : Existence::Nothing;
}

ExtendedAttributes IProvider::doGetExtendedAttributes(const StorageIRI& location) {
    switch (doExistsExtended(location)) {
    case Existence::File: {
        const auto file = doGetFileAttributes(location);
        return {EntryKind::File, file.getSize(), file.getLastModified(), file.isWritable(), {}};
    }
    case Existence::Folder: {
        const auto folder = doGetFolderAttributes(location);
        return {EntryKind::Folder, std::nullopt, folder.getLastModified(), folder.isWritable(), {}};
    }
    case Existence::Nothing:
        break;
    }
    throw Exception(ErrorCode::NotFound, location);
}

ProviderStorageInfo IProvider::doGetProviderStorageInfo() {
    return {};
}

ProviderCacheUsage IProvider::doGetProviderCacheUsage() {
    return {};
}

} // namespace foundation::storage::provider
