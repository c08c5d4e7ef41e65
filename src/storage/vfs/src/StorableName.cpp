#include <storage/vfs/StorableName.h>

#include <storage/vfs/src/ContainerCheck.h>
#include <storage/vfs/src/PathText.h>

#include <fl/i18n/utf8.h>
#include <fmt/format.h>

namespace storage::vfs {

namespace {

/// The length of a name is stored in 16 bits.
constexpr std::size_t longestName = 65535;

} // namespace

std::optional<std::string> unstorable(const foundation::storage::provider::StorageIRI& place, bool folder) {
    if (!place.hasContainer() || !isCheckedFormat(place.getScheme()))
        return std::nullopt;
    const auto path = normalizedPath(place.getResolvedPath());
    if (path.find(u'\0') != fl::i18n::ustring::npos)
        return "its name holds a NUL, which an archive cannot store";
    // Stored without the slash in front, a folder with one behind.
    const auto length = fl::i18n::toUtf8(path).size() - (path.starts_with(u'/') ? 1 : 0) + (folder ? 1 : 0);
    if (length > longestName)
        return fmt::format("its path in the archive is {} bytes long, an archive can store {}", length,
                           longestName);
    return std::nullopt;
}

} // namespace storage::vfs
