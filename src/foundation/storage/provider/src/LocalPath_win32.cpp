#include "LocalPath.h"

namespace foundation::storage::provider::detail {

namespace {

bool isLetter(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

} // namespace

std::optional<LocalPath> splitLocalPath(fl::i18n::ustring_view path) {
    using fl::i18n::ustring;
    if (path.starts_with(u"//")) {
        const auto rest = path.substr(2);
        const auto end = rest.find(u'/');
        if (end != 0 && end != fl::i18n::ustring_view::npos) {
            return LocalPath{ustring(rest.substr(0, end)), ustring(rest.substr(end))};
        }
    }
    if (path.starts_with(u'/')) {
        return LocalPath{{}, ustring(path)};
    }
    if (path.size() >= 3 && isLetter(path[0]) && path[1] == u':' && path[2] == u'/') {
        return LocalPath{{}, u'/' + ustring(path)};
    }
    return std::nullopt;
}

} // namespace foundation::storage::provider::detail
