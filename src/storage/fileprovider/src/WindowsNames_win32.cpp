#include <storage/fileprovider/src/WindowsNames.h>

#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WorkingNames.h>

namespace storage::fileprovider {

namespace fs = std::filesystem;

namespace {

fs::path pathOf(const std::string& name) {
    return std::u8string(name.begin(), name.end());
}

/// The names for a file of that name in a folder that is left out here.
WorkingNames namesFor(const fs::path& target) {
    return WorkingNames::beside('/' + textOf(target.filename()));
}

} // namespace

fs::path stagingBeside(const fs::path& target, unsigned slot) {
    return target.parent_path() / pathOf(namesFor(target).staging(slot).substr(1));
}

fs::path journalBeside(const fs::path& target, std::uint64_t fileIndex) {
    return target.parent_path() / pathOf(namesFor(target).journal().substr(1) + std::to_string(fileIndex));
}

fs::path replacementBeside(const fs::path& target) {
    // No file has this index.
    return journalBeside(target, 0);
}

fs::path nameLockFor(const fs::path& stateFolder, const fs::path& target) {
    return stateFolder / pathOf(WorkingNames::inStateFolder("/", textOf(target)).nameLock().substr(1));
}

bool isWorkingFile(const std::wstring& name) {
    return isWorkingName(textOf(name));
}

int compareNames(std::u16string_view a, std::u16string_view b) {
    const std::wstring first(a.begin(), a.end());
    const std::wstring second(b.begin(), b.end());
    return ::CompareStringOrdinal(first.data(), static_cast<int>(first.size()), second.data(),
                                  static_cast<int>(second.size()), TRUE) -
           CSTR_EQUAL;
}

} // namespace storage::fileprovider
