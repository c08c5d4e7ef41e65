#include <storage/vfs/src/TypedPath.h>

#include <fl/i18n/utf8.h>

#include <filesystem>

namespace storage::vfs {

using foundation::storage::provider::StorageIRI;

TypedPath typedPath(std::string_view typed) {
    auto path = fl::i18n::fromUtf8(typed);
    if (!path.starts_with(u'/'))
        path = fl::i18n::fromUtf8(std::filesystem::current_path().generic_string()) + u"/" + path;
    return {StorageIRI::fromLocalPath(u"/"), std::move(path)};
}

bool endsLikeFolder(std::string_view typed) {
    return typed.ends_with('/');
}

std::optional<std::string> objectionToLocalName(fl::i18n::ustring_view) {
    return std::nullopt;
}

bool isSymbolicLink(const StorageIRI& location) {
    std::error_code unknown;
    const std::filesystem::path target(fl::i18n::toUtf8(location.getResolvedPath()));
    return std::filesystem::is_symlink(std::filesystem::symlink_status(target, unknown));
}

} // namespace storage::vfs
