#include <storage/fileprovider/src/KeptCopy.h>

#include <storage/fileprovider/src/Descriptor.h>
#include <storage/fileprovider/src/FileIo.h>
#include <storage/fileprovider/src/WorkingNames.h>

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

namespace storage::fileprovider {

namespace {

// More than anyone leaves lying about; a bound for a file system that reports EEXIST for ever.
constexpr int maximalCopies = 1000;

Descriptor create(const EnvironmentPtr& environment, const std::string& path) {
    return Descriptor::open(environment->calls, path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW,
                            S_IRUSR | S_IWUSR);
}

} // namespace

int keepCopy(const EnvironmentPtr& environment, int file, std::string_view target, std::string_view folder,
             std::string& copy) {
    struct stat status {};
    if (::fstat(file, &status) != 0) {
        return errno;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const auto name = fmt::format("{}/{}", folder == "/" ? "" : folder, keptCopyName(target));
    copy = name;
    auto kept = create(environment, copy);
    for (int i = 1; !kept.isOpen() && errno == EEXIST && i < maximalCopies; ++i) {
        copy = name + std::to_string(i);
        kept = create(environment, copy);
    }
    if (!kept.isOpen()) {
        return errno;
    }
    int error = copyBytes(*environment, file, kept.get(), size, true);
    error = error != 0 ? error : setSize(*environment, kept.get(), size);
    error = error != 0 ? error : syncFile(*environment, kept.get());
    const int closeError = kept.close();
    error = error != 0 ? error : closeError;
    error = error != 0 ? error : syncFolder(*environment, std::string(folder));
    if (error != 0) {
        environment->calls->unlink(copy.c_str());
    }
    return error;
}

} // namespace storage::fileprovider
