#include <storage/mount/MountOptions.h>

#include <sys/stat.h>
#include <unistd.h>

namespace storage::mount {

MountOptions defaultMountOptions() {
    MountOptions options;
    options.uid = getuid();
    options.gid = getgid();
    options.umask = umask(0);
    umask(options.umask);
    return options;
}

} // namespace storage::mount
