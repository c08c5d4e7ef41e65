#include <storage/fileprovider/src/Strays.h>

#include <storage/fileprovider/src/Failure.h>
#include <storage/fileprovider/src/Staging.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace storage::fileprovider {

namespace {

/// Also where that cannot be told: what a journal may need must not be removed.
bool exists(const std::string& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0 || !isMissing(errno);
}

bool anyJournal(const std::vector<WorkingNames>& places) {
    return std::any_of(places.begin(), places.end(),
                       [](const WorkingNames& names) { return exists(names.journal()); });
}

} // namespace

Descriptor openWorkingFile(const EnvironmentPtr& environment, const std::string& path) {
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK;
    return Descriptor::open(environment->calls, path.c_str(), flags);
}

std::vector<std::string> removeStrays(const EnvironmentPtr& environment,
                                      const std::vector<WorkingNames>& places, const WorkingNames& names,
                                      unsigned emptySlots) {
    std::vector<std::string> removed;
    unsigned empty = 0;
    for (unsigned slot = 0; empty < emptySlots; ++slot) {
        const auto path = names.staging(slot);
        const auto staging = openWorkingFile(environment, path);
        if (!staging.isOpen()) {
            ++empty;
            continue;
        }
        struct stat status {};
        if (::fstat(staging.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
            lockFile(staging.get(), false) != LockResult::Locked || !isSameFile(staging.get(), path) ||
            anyJournal(places)) {
            continue;
        }
        environment->calls->unlink(journalDraftFor(path).c_str());
        environment->calls->unlink(copyDraftFor(path).c_str());
        if (environment->calls->unlink(path.c_str()) == 0) {
            removed.push_back(path);
        }
    }
    return removed;
}

} // namespace storage::fileprovider
