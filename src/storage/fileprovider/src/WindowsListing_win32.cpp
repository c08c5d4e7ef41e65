#include <storage/fileprovider/src/WindowsListing.h>

#include <foundation/storage/provider/IClonableFolderEntryIterator.h>
#include <storage/fileprovider/src/WindowsFile.h>
#include <storage/fileprovider/src/WindowsNames.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace storage::fileprovider {

namespace fs = std::filesystem;
using fl::i18n::ustring;
using foundation::storage::provider::EntryKind;
using foundation::storage::provider::FolderEntry;
using foundation::storage::provider::IClonableFolderEntryIterator;
using foundation::storage::provider::IFolderEntryIterator;
using foundation::storage::provider::StorageIRI;

namespace {

class SnapshotIterator final : public IClonableFolderEntryIterator<SnapshotIterator> {
public:
    explicit SnapshotIterator(std::vector<FolderEntry> entries)
        : m_entries(std::make_shared<const std::vector<FolderEntry>>(std::move(entries))) {}

    FolderEntry current() const override {
        if (m_passed == 0) {
            throw std::logic_error("cannot tell the current entry: next() was not called");
        }
        return (*m_entries)[m_passed - 1];
    }
    bool hasNext() const override { return m_passed < m_entries->size(); }
    void next() override {
        if (!hasNext()) {
            throw std::out_of_range("cannot move to the next entry: none remains");
        }
        ++m_passed;
    }

private:
    std::shared_ptr<const std::vector<FolderEntry>> m_entries;
    std::size_t m_passed = 0;
};

struct Found {
    std::wstring name;
    bool isFolder = false;
    bool isLink = false;
};

std::vector<Found> drives() {
    std::vector<Found> found;
    const DWORD mask = ::GetLogicalDrives();
    for (int i = 0; i < 26; ++i) {
        if ((mask >> static_cast<unsigned>(i) & 1U) != 0) {
            found.push_back({std::wstring{static_cast<wchar_t>(L'A' + i), L':'}, true, false});
        }
    }
    return found;
}

std::vector<Found> read(const StorageIRI& iri, const fs::path& path) {
    if (path.empty()) {
        return drives();
    }
    if (const auto status = statusOf(path); status && !status->isFolder) {
        throwWindowsError(iri, ERROR_DIRECTORY);
    }
    std::vector<Found> found;
    WIN32_FIND_DATAW entry{};
    const HANDLE search = ::FindFirstFileW((path / L"*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE) {
        throwWindowsError(iri, ::GetLastError());
    }
    do {
        const std::wstring name = entry.cFileName;
        if (name != L"." && name != L"..") {
            found.push_back({name, (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
                             (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0});
        }
    } while (::FindNextFileW(search, &entry) != 0);
    const DWORD error = ::GetLastError();
    ::FindClose(search);
    if (error != ERROR_NO_MORE_FILES) {
        throwWindowsError(iri, error, "cannot read the folder");
    }
    return found;
}

} // namespace

std::unique_ptr<IFolderEntryIterator> listFolder(const StorageIRI& iri, const fs::path& path,
                                                 std::optional<EntryKind> kind) {
    std::vector<FolderEntry> entries;
    for (const auto& entry : read(iri, path)) {
        const auto entryKind = entry.isFolder ? EntryKind::Folder : EntryKind::File;
        if (!isWorkingFile(entry.name) && (!kind || *kind == entryKind)) {
            entries.emplace_back(ustring(entry.name.begin(), entry.name.end()), entryKind);
        }
    }
    std::sort(entries.begin(), entries.end(), [](const FolderEntry& a, const FolderEntry& b) {
        const int order = compareNames(a.getName(), b.getName());
        return order != 0 ? order < 0 : a.getName() < b.getName();
    });
    return std::make_unique<SnapshotIterator>(std::move(entries));
}

DWORD removeEmptyFolder(const StorageIRI& iri, const fs::path& path) {
    if (::RemoveDirectoryW(path.c_str()) != 0) {
        return 0;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_DIR_NOT_EMPTY) {
        return error;
    }
    const auto entries = read(iri, path);
    const bool onlyWorkingFiles = std::all_of(entries.begin(), entries.end(),
                                              [](const Found& entry) { return isWorkingFile(entry.name); });
    if (!onlyWorkingFiles) {
        return error;
    }
    const auto isHeld = [&](const Found& entry) {
        const auto file = FileHandle::open(path / entry.name, GENERIC_READ, OPEN_EXISTING);
        return file.isOpen() && lockFile(file.get(), false) == LockResult::Held;
    };
    // The folder would stay until they are closed, and their saves would be lost for nothing.
    if (std::any_of(entries.begin(), entries.end(), isHeld)) {
        return ERROR_SHARING_VIOLATION;
    }
    for (const auto& entry : entries) {
        ::DeleteFileW((path / entry.name).c_str());
    }
    return ::RemoveDirectoryW(path.c_str()) != 0 ? 0 : ::GetLastError();
}

void removeTree(const StorageIRI& iri, const fs::path& path) {
    // Every folder stands in the list before what is below it, so removing goes from the end to the begin.
    std::vector<fs::path> folders{path};
    for (std::size_t i = 0; i < folders.size(); ++i) {
        const auto folder = folders[i];
        for (const auto& entry : read(iri, folder)) {
            const auto child = folder / entry.name;
            if (entry.isFolder && !entry.isLink) {
                folders.push_back(child);
            } else if ((entry.isFolder ? ::RemoveDirectoryW(child.c_str()) : ::DeleteFileW(child.c_str())) ==
                       0) {
                throwWindowsError(iri, ::GetLastError(), "cannot remove " + textOf(child));
            }
        }
    }
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        if (::RemoveDirectoryW(folder->c_str()) == 0) {
            throwWindowsError(iri, ::GetLastError(), "cannot remove " + textOf(*folder));
        }
    }
}

} // namespace storage::fileprovider
