#pragma once

#include <storage/mount/src/Tree.h>
#include <storage/mount/src/WorkingSpace.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace storage::mount {

/// Reads and changes the bytes of files. A file is read from its provider until it is first changed; from
/// then on, and as long as a program has it open, its bytes are kept here.
///
/// Errors: those of the providers; std::system_error for working files. Threads: any. Locks: a file's own,
/// then those of the provider; the tree's for a moment inside it.
class Contents {
public:
    Contents(Tree& tree, WorkingSpace& space);

    /// Gives a file that was just made its bytes: none.
    void startEmpty(Node& file);
    /// Opens what a program that has just opened the file is going to read, while the system tells it so.
    /// Does nothing for bytes that the system has from before. What fails is met again, and told, by the
    /// read.
    void readAhead(Node& file) noexcept;
    std::size_t read(Node& file, std::uint64_t offset, char* buffer, std::size_t count);
    void write(const NodePtr& file, std::uint64_t offset, const char* data, std::size_t count);
    void resize(const NodePtr& file, std::uint64_t size);
    /// Makes the file at least this long.
    void extend(const NodePtr& file, std::uint64_t size);
    void clear(const NodePtr& file, std::uint64_t offset, std::uint64_t count);

    /// Sees to it that the file can be read when the provider has removed or replaced it.
    void keepReadable(Node& file);
    /// Writes the newest bytes to `target`.
    void copyTo(Node& file, foundation::storage::provider::ByteStream& target);
    /// The provider has the newest bytes: those kept here go, unless a program has the file open.
    void release(Node& file);

private:
    /// `body` is the file's.
    void openReading(Node& file, FileBody& body) KX_REQUIRES(body.mutex);
    LocalContent& makeLocal(Node& file, FileBody& body, bool empty) KX_REQUIRES(body.mutex);
    void changed(const NodePtr& file, std::uint64_t size);
    /// Whether a program has the file open, and would find bytes in it.
    bool isOpen(const Node& file) const;

    Tree& m_tree;
    WorkingSpace& m_space;
    // Counted without a mutex: each waits for its file's.
    std::atomic<int> m_readingAhead = 0;
};

} // namespace storage::mount
