#include "EntryLocator.h"

namespace storage::zipprovider {

namespace {

bool isAt(unzFile archive, unz64_file_pos position, const std::string& name) {
    unz_file_info64 info{};
    if (unzGoToFilePos64(archive, &position) != UNZ_OK ||
        unzGetCurrentFileInfo64(archive, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK ||
        info.size_filename != name.size()) {
        return false;
    }
    std::string found(name.size(), '\0');
    return unzGetCurrentFileInfo64(archive, &info, found.data(), static_cast<uLong>(found.size()), nullptr, 0,
                                   nullptr, 0) == UNZ_OK &&
           found == name;
}

bool isFound(unzFile archive, const std::string& name) {
    // minizip takes the name as a C string: it would find the entry whose name ends before a NUL.
    if (name.find('\0') != std::string::npos) {
        return false;
    }
    // It refuses to look while it stands at no entry, as after a place that does not exist.
    unzGoToFirstFile(archive);
    constexpr int caseSensitive = 1;
    return unzLocateFile(archive, name.c_str(), caseSensitive) == UNZ_OK;
}

} // namespace

bool goToEntry(unzFile archive, const std::string& name, const std::optional<unz64_file_pos>& position) {
    return archive != nullptr && ((position && isAt(archive, *position, name)) || isFound(archive, name));
}

} // namespace storage::zipprovider
