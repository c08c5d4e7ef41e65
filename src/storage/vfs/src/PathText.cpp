#include <storage/vfs/src/PathText.h>

#include <algorithm>

namespace storage::vfs {

std::vector<fl::i18n::ustring_view> components(fl::i18n::ustring_view path) {
    std::vector<fl::i18n::ustring_view> found;
    for (std::size_t start = 0; start < path.size();) {
        const auto end = std::min(path.find(u'/', start), path.size());
        if (end > start)
            found.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return found;
}

fl::i18n::ustring normalizedPath(fl::i18n::ustring_view path) {
    fl::i18n::ustring normalized;
    for (const auto component : components(path))
        normalized.append(u"/").append(component);
    return normalized;
}

} // namespace storage::vfs
