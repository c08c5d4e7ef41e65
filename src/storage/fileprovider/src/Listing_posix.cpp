#include <storage/fileprovider/src/Listing.h>

#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/IClonableFolderEntryIterator.h>
#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/WorkingNames.h>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <vector>

namespace storage::fileprovider {

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

class OpenFolder {
public:
    /// Does not follow a link in the last place when `noFollow`.
    OpenFolder(const StorageIRI& iri, const std::string& path, bool noFollow) : m_iri(iri) {
        const int file =
            ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (noFollow ? O_NOFOLLOW : 0));
        m_folder = file < 0 ? nullptr : ::fdopendir(file);
        if (m_folder == nullptr) {
            throwSystemError(iri, errno);
        }
    }
    ~OpenFolder() { ::closedir(m_folder); }

    OpenFolder(const OpenFolder&) = delete;
    OpenFolder& operator=(const OpenFolder&) = delete;

    /// Null at the end.
    const dirent* next() {
        for (;;) {
            errno = 0;
            const dirent* entry = ::readdir(m_folder);
            if (entry == nullptr && errno != 0) {
                throwSystemError(m_iri, errno, "cannot read the folder");
            }
            const std::string_view name = entry == nullptr ? std::string_view() : entry->d_name;
            if (name != "." && name != "..") {
                return entry;
            }
        }
    }

    /// A link into a mounted folder whose server is gone.
    static bool leadsIntoNothing(const dirent& entry, int error) {
        return entry.d_type == DT_LNK && (error == ENOTCONN || error == ESTALE || error == EHOSTDOWN);
    }

    /// Links are followed; one that leads nowhere is a file.
    EntryKind kindOf(const dirent& entry) const {
        if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) {
            return entry.d_type == DT_DIR ? EntryKind::Folder : EntryKind::File;
        }
        struct stat status {};
        if (::fstatat(::dirfd(m_folder), entry.d_name, &status, 0) != 0 && !isAbsence(errno) &&
            !leadsIntoNothing(entry, errno)) {
            throwSystemError(m_iri, errno, std::string("cannot tell what \"") + entry.d_name + "\" is");
        }
        return S_ISDIR(status.st_mode) ? EntryKind::Folder : EntryKind::File;
    }

private:
    const StorageIRI& m_iri;
    DIR* m_folder = nullptr;
};

struct Tree {
    std::vector<std::string> files;
    std::vector<std::string> folders;
};

Tree readTreeLevel(const StorageIRI& iri, const std::string& path) {
    Tree level;
    OpenFolder folder(iri, path, true);
    while (const auto* entry = folder.next()) {
        auto child = path + '/' + entry->d_name;
        struct stat status {};
        const bool isFolder = entry->d_type == DT_UNKNOWN
                                  ? ::lstat(child.c_str(), &status) == 0 && S_ISDIR(status.st_mode)
                                  : entry->d_type == DT_DIR;
        (isFolder ? level.folders : level.files).push_back(std::move(child));
    }
    return level;
}

} // namespace

std::unique_ptr<IFolderEntryIterator> listFolder(const StorageIRI& iri, const std::string& path,
                                                 std::optional<EntryKind> kind) {
    std::vector<FolderEntry> entries;
    OpenFolder folder(iri, path, false);
    while (const auto* entry = folder.next()) {
        if (isWorkingName(entry->d_name)) {
            continue;
        }
        const auto entryKind = folder.kindOf(*entry);
        if (!kind || *kind == entryKind) {
            entries.emplace_back(fl::i18n::fromUtf8(entry->d_name), entryKind);
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const FolderEntry& a, const FolderEntry& b) { return a.getName() < b.getName(); });
    return std::make_unique<SnapshotIterator>(std::move(entries));
}

int removeEmptyFolder(const Environment& environment, const StorageIRI& iri, const std::string& path) {
    if (environment.calls->removeFolder(path.c_str()) == 0) {
        return 0;
    }
    if (errno != ENOTEMPTY && errno != EEXIST) {
        return errno;
    }
    std::vector<std::string> workingFiles;
    OpenFolder folder(iri, path, true);
    while (const auto* entry = folder.next()) {
        if (!isWorkingName(entry->d_name)) {
            return ENOTEMPTY;
        }
        workingFiles.push_back(path + '/' + entry->d_name);
    }
    for (const auto& file : workingFiles) {
        if (environment.calls->unlink(file.c_str()) != 0 && errno != ENOENT) {
            return errno;
        }
    }
    return environment.calls->removeFolder(path.c_str()) == 0 ? 0 : errno;
}

void removeTree(const Environment& environment, const StorageIRI& iri, const std::string& path) {
    // Every folder stands in the list before what is below it, so removing goes from the end to the begin.
    std::vector<std::string> folders{path};
    for (std::size_t i = 0; i < folders.size(); ++i) {
        auto level = readTreeLevel(iri, folders[i]);
        for (const auto& file : level.files) {
            if (environment.calls->unlink(file.c_str()) != 0 && errno != ENOENT) {
                throwSystemError(iri, errno, "cannot remove " + file);
            }
        }
        std::move(level.folders.begin(), level.folders.end(), std::back_inserter(folders));
    }
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        if (environment.calls->removeFolder(folder->c_str()) != 0 && errno != ENOENT) {
            throwSystemError(iri, errno, "cannot remove " + *folder);
        }
    }
}

} // namespace storage::fileprovider
