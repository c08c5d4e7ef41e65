#pragma once

#include <foundation/storage/provider/ByteStreamOpenOptions.h>
#include <foundation/storage/provider/ErrorCode.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kx::test {

/// What an archive with open streams ought to do, as plainly as it can be said: files and folders in a map,
/// no container and no temporary files. All folders have entries of their own. Paths look like "/a/b".
///
/// The checks tell with which code an operation is refused, nothing when it is allowed; the changes expect
/// that it is. As long as a stream for writing is open nothing is saved. An abandoned stream goes back to
/// what was there when the first of those that are open on its file was opened: what is saved, or what others
/// have closed since.
class ArchiveModel {
public:
    using ErrorCode = foundation::storage::provider::ErrorCode;
    using Options = foundation::storage::provider::ByteStreamOpenOptions;
    using Refusal = std::optional<ErrorCode>;
    /// What streams that are open on a file together share.
    using WorkingFile = std::shared_ptr<std::string>;

    struct Node {
        bool isFolder = false;
        std::string saved = {};
        std::weak_ptr<std::string> working = {};
        /// Set from the first opening for writing to the next save.
        WorkingFile changed = {};
        bool isNew = false;
        bool wasClosed = false;
        int writers = 0;
        /// What the last stream that was closed has left, while those opened since may be given up.
        WorkingFile closed = {};
        bool isGone = false;
        /// The stored stamp, as seconds since 1970 of what it shows; of an unsaved folder when it was made.
        std::int64_t stamp = 0;
        /// It is written by the next save, and not carried over: a folder that was made, a file that was
        /// changed.
        bool isUnsaved = false;
        /// A save has written it since takeTimes() was called last.
        bool wasWritten = false;
    };

    struct Stream {
        std::shared_ptr<Node> node;
        WorkingFile working;
        std::size_t position = 0;
        bool canWrite = false;
        bool canRead = true;
        bool appends = false;
    };

    ArchiveModel();

    const std::map<std::string, std::shared_ptr<Node>>& nodes() const { return m_nodes; }
    std::list<Stream>& streams() { return m_streams; }
    bool isFile(const std::string& path) const;
    bool isFolder(const std::string& path) const;
    /// What a stream that is opened at the moment would read.
    static const std::string& bytesOf(const Node& node, WorkingFile& keep);
    bool isBeingWritten() const { return m_writers > 0; }

    /// Whether a file at `to`, or below it when what stands at `from` is moved there, would have the name of
    /// a folder above it, which then may show as a file itself: such an archive is beyond this model.
    bool wouldBeNamedLikeAFolderAbove(const std::string& from, const std::string& to) const;

    Refusal checkNew(const std::string& path) const;
    Refusal checkRemoveFile(const std::string& path) const;
    Refusal checkRemoveFolder(const std::string& path) const;
    Refusal checkMove(const std::string& from, const std::string& to, bool folder, bool replaces) const;
    Refusal checkOpenForWriting(const std::string& path, const Options& options) const;

    void createFile(const std::string& path);
    void createFolder(const std::string& path);
    void remove(const std::string& path);
    void move(const std::string& from, const std::string& to);

    void openForReading(const std::string& path);
    void openForWriting(const std::string& path, const Options& options);
    static void write(Stream& stream, std::string_view bytes);
    /// In seconds since 1970.
    void setTime(std::int64_t now) { m_now = now; }
    /// What the saves since the last call have made of the stamps: a file that they wrote has the local time
    /// of now, a folder that of its making; everything else was carried over `rebuilds` times, each of which
    /// takes its stamp for UTC and stores the local time.
    void takeTimes(std::uint64_t rebuilds);

    void close(std::list<Stream>::iterator stream);
    void abandon(std::list<Stream>::iterator stream);

private:
    static std::string parentOf(const std::string& path);
    Stream& openWorking(const std::shared_ptr<Node>& node);
    void changed();

    std::map<std::string, std::shared_ptr<Node>> m_nodes;
    std::list<Stream> m_streams;
    int m_writers = 0;
    std::int64_t m_now = 0;
};

} // namespace kx::test
