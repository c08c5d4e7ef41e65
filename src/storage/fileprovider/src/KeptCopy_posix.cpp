#include <storage/fileprovider/src/KeptCopy.h>

#include <storage/fileprovider/src/Descriptor.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/Staging.h>
#include <storage/fileprovider/src/WorkingNames.h>

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

namespace storage::fileprovider {

namespace {

// More than anyone leaves lying about; a bound for a file system that reports EEXIST for ever.
constexpr int maximalCopies = 1000;

/// Fills a new file. Returns 0 or an errno.
int fillDraft(const Environment& environment, int file, Descriptor& draft) {
    struct stat status {};
    if (::fstat(file, &status) != 0) {
        return errno;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    int error = copyBytes(environment, file, draft.get(), size, true);
    error = error != 0 ? error : setSize(environment, draft.get(), size);
    return error != 0 ? error : syncFile(environment, draft.get());
}

/// Gives the draft the first free one of the names that begin with `copy`, which becomes that name.
int giveFreeName(const Environment& environment, const std::string& draft, std::string& copy) {
    const auto name = copy;
    for (int i = 1; environment.calls->renameToFree(draft.c_str(), copy.c_str()) != 0; ++i) {
        if (errno != EEXIST || i == maximalCopies) {
            return errno;
        }
        copy = name + std::to_string(i);
    }
    return 0;
}

} // namespace

int keepCopy(const EnvironmentPtr& environment, int file, std::string_view target, std::string_view folder,
             const std::string& draft, std::string& copy) {
    copy = fmt::format("{}/{}", folder == "/" ? "" : folder, keptCopyName(target));
    environment->calls->unlink(draft.c_str());
    auto kept = Descriptor::open(environment->calls, draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW,
                                 S_IRUSR | S_IWUSR);
    if (!kept.isOpen()) {
        return errno;
    }
    int error = fillDraft(*environment, file, kept);
    // Without a staging file to lock, two recoveries may be at work.
    if (!isSameFile(kept.get(), draft)) {
        return EBUSY;
    }
    error = error != 0 ? error : giveFreeName(*environment, draft, copy);
    if (error != 0) {
        environment->calls->unlink(draft.c_str());
        return error;
    }
    if (!isSameFile(kept.get(), copy)) {
        return EBUSY;
    }
    const int closeError = kept.close();
    error = closeError != 0 ? closeError : syncFolder(*environment, std::string(folder));
    if (error != 0) {
        environment->calls->unlink(copy.c_str());
    }
    return error;
}

} // namespace storage::fileprovider
