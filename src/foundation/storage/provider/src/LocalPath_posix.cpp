#include "LocalPath.h"

namespace foundation::storage::provider::detail {

std::optional<LocalPath> splitLocalPath(fl::i18n::ustring_view path) {
    if (path.empty() || path.front() != u'/') {
        return std::nullopt;
    }
    return LocalPath{{}, fl::i18n::ustring(path)};
}

} // namespace foundation::storage::provider::detail
