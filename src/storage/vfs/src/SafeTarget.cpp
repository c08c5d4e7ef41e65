#include <storage/vfs/src/SafeTarget.h>

#include <storage/vfs/src/PathText.h>

#include <fl/i18n/utf8.h>

#include <algorithm>
#include <filesystem>

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
    if (m_from.absoluteEntries) {
        const auto path = normalizedPath(source.getResolvedPath());
        if (std::binary_search(m_from.absoluteEntries->begin(), m_from.absoluteEntries->end(), path))
            return "its stored name is absolute";
    }
    // Asked of the file system itself: the provider follows links.
    std::error_code unknown;
    const std::filesystem::path target(fl::i18n::toUtf8(destination.getResolvedPath()));
    if (std::filesystem::is_symlink(std::filesystem::symlink_status(target, unknown)))
        return "a symbolic link stands at its place in the target folder";
    return std::nullopt;
}

} // namespace storage::vfs
