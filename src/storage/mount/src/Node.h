#pragma once

#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>
#include <foundation/storage/provider/ByteStream.h>
#include <storage/mount/src/LocalContent.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace storage::mount {

struct Node;
struct Backing;
using NodePtr = std::shared_ptr<Node>;

/// The bytes of one file, as far as the mount has to do with them.
struct FileBody {
    /// Held during one read, write or hand-over of the file.
    foundation::core::Mutex mutex;
    /// The newest contents; null while the provider has them.
    std::unique_ptr<LocalContent> local KX_GUARDED_BY(mutex);
    /// What is read from while `local` is null; opened by the first read.
    std::unique_ptr<foundation::storage::provider::ByteStream> reading KX_GUARDED_BY(mutex);
    std::int64_t position KX_GUARDED_BY(mutex) = 0;
    /// Whether they were fetched since they last changed: the system keeps what it has read.
    bool fetched KX_GUARDED_BY(mutex) = false;
};

/// One file or folder. What is not constant is guarded by the mutex of the Tree that holds it.
struct Node : std::enable_shared_from_this<Node> {
    Node(std::uint64_t number_, bool folder_, std::shared_ptr<Backing> backing_)
        : number(number_), folder(folder_), backing(std::move(backing_)) {}

    /// Shown as the inode number; never used again.
    const std::uint64_t number;
    const bool folder;
    /// Which storage it comes from.
    const std::shared_ptr<Backing> backing;
    /// Of files only; has its own mutex.
    const std::unique_ptr<FileBody> body = folder ? nullptr : std::make_unique<FileBody>();

    Node* parent = nullptr;
    std::string name;
    /// False once it was removed: programs that have it open go on, but it has no place.
    bool linked = false;

    /// How often the kernel was told of it; until it has forgotten as often, the Tree keeps it alive.
    std::uint64_t lookups = 0;

    std::uint32_t mode = 0;
    std::uint64_t size = 0;
    timespec modified{};
    timespec changed{};
    timespec accessed{};

    /// Whether the provider has an entry at this node's path.
    bool stored = false;
    /// Whether the provider lacks the newest contents, or the folder.
    bool dirty = false;
    /// Whether the contents are on their way to the provider.
    bool beingStored = false;
    /// Programs that have it open, and how many of them may write.
    unsigned openers = 0;
    unsigned writers = 0;

    // Of folders:
    bool loaded = false;
    bool loading = false;
    /// Entries whose names a mount cannot show stand in it.
    bool hasHidden = false;
    unsigned subfolders = 0;
    std::map<std::string, NodePtr, std::less<>> children;

    /// The folder that shows the inside of this file, and the file whose inside this folder shows.
    NodePtr view;
    Node* viewed = nullptr;
    /// Whether it was made to show a file's inside. Set before anybody else sees the node.
    bool isView = false;
};

} // namespace storage::mount
