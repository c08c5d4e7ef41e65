#include <storage/vfs/src/SafeTarget.h>

#include <storage/vfs/src/PathText.h>
#include <storage/vfs/src/TypedPath.h>

#include <algorithm>

namespace storage::vfs {

using foundation::storage::provider::StorageIRI;

SafeTarget::SafeTarget(const MountedContainer& from, const MountedContainer& to)
    : m_from(from), m_guarded(!from.container.empty() && to.container.empty()) {}

std::optional<std::string> SafeTarget::objection(const StorageIRI& source,
                                                 const StorageIRI& destination) const {
    if (!m_guarded)
        return std::nullopt;
    const auto name = destination.getName();
    if (name == u"." || name == u"..")
        return "its name would lead out of the target folder";
    if (name.find(u'\0') != fl::i18n::ustring::npos)
        return "its name holds a NUL";
    if (auto objection = objectionToLocalName(name))
        return objection;
    if (m_from.absoluteEntries) {
        const auto path = normalizedPath(source.getResolvedPath());
        if (std::binary_search(m_from.absoluteEntries->begin(), m_from.absoluteEntries->end(), path))
            return "its stored name is absolute";
    }
    // Asked of the file system itself: the provider follows links.
    if (isSymbolicLink(destination))
        return "a symbolic link stands at its place in the target folder";
    return std::nullopt;
}

std::optional<std::string> SafeTarget::objectionToFolder(const StorageIRI& top,
                                                         const StorageIRI& folder) const {
    if (!m_guarded)
        return std::nullopt;
    for (auto at = folder; at != top; at = at.parent())
        if (isSymbolicLink(at))
            return "a symbolic link stands in the place of a folder above it";
    return std::nullopt;
}

} // namespace storage::vfs
