#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/fileprovider/src/Descriptor.h>
#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/WorkingNames.h>

#include <string>

namespace storage::fileprovider {

/// A staging file: the contents that are to replace those of a target, while they are written. The process
/// that writes it holds a lock on it, which is how others know a dead process's staging file from a living
/// one's.
struct Staging {
    Descriptor file;
    WorkingNames names;
    unsigned slot;
    /// Whether it stands in the target's own folder.
    bool beside;
    /// Known from the begin, so that remove() needs no memory.
    std::string stagingPath;
    std::string draftPath;

    const std::string& path() const { return stagingPath; }

    /// Makes an empty one beside `target`, or, where nothing can be made there and `elsewhere` allows, in the
    /// state folder. `mode` is that of open.
    /// Errors: the provider's Exception.
    static Staging create(const EnvironmentPtr& environment,
                          const foundation::storage::provider::StorageIRI& iri, const std::string& target,
                          mode_t mode, bool elsewhere);
    /// Removes it and the journal draft of its slot, as far as that goes.
    void remove(const Environment& environment) noexcept;
};

/// What became of the try to lock a file.
enum class LockResult {
    Locked,
    /// Someone else holds the lock.
    Held,
    /// The file system knows no locks.
    Impossible,
};

/// Waits only with `wait`. A lock ends with the last descriptor of the opening that took it.
LockResult lockFile(int file, bool wait) noexcept;

/// Whether `path`, which is no link, names the file that is open as `file`.
bool isSameFile(int file, const std::string& path) noexcept;

} // namespace storage::fileprovider
