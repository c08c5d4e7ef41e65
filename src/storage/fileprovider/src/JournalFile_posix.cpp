#include <storage/fileprovider/src/JournalFile.h>

#include <storage/fileprovider/src/ContentSamples.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/LocalPath.h>
#include <storage/fileprovider/src/WorkingNames.h>

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace storage::fileprovider {

namespace {

// The journal holds no secrets, and whoever may read the target must be able to see that it is half written.
constexpr mode_t journalMode = 0644;
constexpr auto ownJournal = static_cast<uid_t>(-1);

int writeDraftFor(const EnvironmentPtr& environment, const Journal& journal, const std::string& draft,
                  uid_t owner) {
    environment->calls->unlink(draft.c_str());
    auto file = Descriptor::open(environment->calls, draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW,
                                 journalMode);
    if (!file.isOpen()) {
        return errno;
    }
    const auto bytes = encodeJournal(journal);
    if (const int error =
            writeAt(*environment, file.get(), bytes.data(), static_cast<std::int64_t>(bytes.size()), 0);
        error != 0) {
        return error;
    }
    if (owner != ownJournal && environment->calls->setOwner(file.get(), owner, static_cast<gid_t>(-1)) != 0) {
        const int error = errno;
        environment->calls->unlink(draft.c_str());
        // EINVAL: a user that does not exist where this process runs.
        return error == EINVAL ? EPERM : error;
    }
    if (const int error = syncFile(*environment, file.get()); error != 0) {
        return error;
    }
    return file.close();
}

int replaceJournalFor(const EnvironmentPtr& environment, const Journal& journal, const std::string& draft,
                      const std::string& path, uid_t owner) {
    if (const int error = writeDraftFor(environment, journal, draft, owner); error != 0) {
        return error;
    }
    if (environment->calls->rename(draft.c_str(), path.c_str()) != 0) {
        return errno;
    }
    return syncFolder(*environment, std::string(parentOf(path)));
}

int replaceJournalOfAnother(const EnvironmentPtr& environment, const Journal& journal,
                            const std::string& draft, const std::string& path, uid_t owner) {
    const auto folder = openJournalFolder(environment, path, owner);
    if (!folder.isOpen()) {
        return errno;
    }
    const auto inside = fmt::format("/proc/self/fd/{}/", folder.get());
    return replaceJournalFor(environment, journal, inside + std::string(nameOf(draft)),
                             inside + std::string(nameOf(path)), owner);
}

} // namespace

int writeJournalDraft(const EnvironmentPtr& environment, const Journal& journal, const std::string& draft) {
    return writeDraftFor(environment, journal, draft, ownJournal);
}

int replaceJournal(const EnvironmentPtr& environment, const Journal& journal, const std::string& draft,
                   const std::string& path) {
    return replaceJournalFor(environment, journal, draft, path, ownJournal);
}

Descriptor openJournalFolder(const EnvironmentPtr& environment, const std::string& path, uid_t owner) {
    auto folder =
        Descriptor::open(environment->calls, std::string(parentOf(path)).c_str(), O_PATH | O_DIRECTORY);
    const std::string name(nameOf(path));
    struct stat present {};
    int error = 0;
    if (!folder.isOpen() || ::fstatat(folder.get(), name.c_str(), &present, AT_SYMLINK_NOFOLLOW) != 0) {
        error = errno;
    } else if (present.st_uid != owner) {
        error = EPERM;
    }
    if (error != 0) {
        folder.close();
        errno = error;
    }
    return folder;
}

int renewJournal(const EnvironmentPtr& environment, const Journal& journal, const std::string& journalPath,
                 uid_t owner, int target) {
    struct stat status {};
    const bool isOwn = owner == ::geteuid();
    if (!isOwn && ::geteuid() != 0) {
        return EPERM;
    }
    if (::fstat(target, &status) != 0) {
        return errno;
    }
    auto renewed = journal;
    renewed.bootId = environment->calls->run().id;
    // A device may have another number after a restart.
    renewed.device = status.st_dev;
    renewed.oldSize = static_cast<std::uint64_t>(status.st_size);
    if (const int error =
            sampleContents(*environment, target, renewed.oldSize, renewed.newSize, renewed.oldSamples);
        error != 0) {
        return error;
    }
    const auto folder = std::string(parentOf(journalPath));
    const auto draft = journalDraftFor(folder + '/' + journal.stagingName);
    return isOwn ? replaceJournal(environment, renewed, draft, journalPath)
                 : replaceJournalOfAnother(environment, renewed, draft, journalPath, owner);
}

} // namespace storage::fileprovider
