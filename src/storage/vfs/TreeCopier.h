#pragma once

#include <foundation/storage/provider/Exception.h>
#include <foundation/storage/provider/IProvider.h>
#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Export.h>
#include <storage/vfs/Vfs.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace storage::vfs {

/// What copying does about a file that is there already.
enum class ConflictPolicy {
    Overwrite,
    /// The existing file stays; that is no failure.
    KeepExisting,
};

struct CopyProgress {
    /// The file being copied, below the root of the copy.
    const foundation::storage::provider::StorageIRI& source;
    /// Bytes of this file copied so far, and its size (0 where unknown).
    std::uint64_t fileBytes;
    std::uint64_t fileSize;
    /// Files finished and bytes copied by this copier in all.
    std::uint64_t files;
    std::uint64_t bytes;
};

/// Thrown by a callback to end a copy at once; passes through the copier.
class KXVFS_API StopCopying : public std::exception {
public:
    ~StopCopying() override;
    const char* what() const noexcept override;
};

/// What was not copied, or what is left of it, and why.
struct CopyFailure {
    foundation::storage::provider::StorageIRI source;
    foundation::storage::provider::StorageIRI destination;
    std::exception_ptr error;
};

/// Copies files and folder trees between any two providers. Memory does not grow with the size of a file.
/// The files of a tree are read in the order in which they lie in their container where that is known, else
/// folder by folder.
///
/// Out of a container into local files, names that could leave the target folder are refused: ".", "..",
/// absolute names, names with a NUL, and names that lead through a symbolic link below the target. The rest
/// is copied all the same.
///
/// Locations are canonical ones (Vfs::canonicalLocation), so that copying something onto or into itself is
/// noticed. Threads: one at a time; callbacks run on the caller's thread and throw nothing but StopCopying.
class KXVFS_API TreeCopier {
public:
    struct Options {
        ConflictPolicy conflict = ConflictPolicy::Overwrite;
        /// Gives copies the modification time of their source where the destination can.
        bool keepTimes = false;
        std::function<void(const CopyProgress&)> onProgress;
        /// Told about every file that was copied.
        std::function<void(const foundation::storage::provider::StorageIRI& source,
                           const foundation::storage::provider::StorageIRI& destination)>
            onCopied;
        std::function<void(const CopyFailure&)> onFailure;
    };

    explicit TreeCopier(Options options);

    /// Copies a file to exactly `destination`. Returns false after a failure, which onFailure was told.
    bool copyFile(const MountedContainer& from, const foundation::storage::provider::StorageIRI& source,
                  const MountedContainer& to, const foundation::storage::provider::StorageIRI& destination);

    /// Copies a file, or a folder with all below it, into the folder `destination` under `name`, which must
    /// be a safe one. Returns the number of failures.
    std::uint64_t copyInto(const MountedContainer& from,
                           const foundation::storage::provider::StorageIRI& source,
                           const MountedContainer& to,
                           const foundation::storage::provider::StorageIRI& destination,
                           fl::i18n::ustring_view name);
    /// Writes what `in` still has to exactly `destination`. After a failure the destination holds what it
    /// held before, also in a container, unless onFailure was told that it does not. Errors: those of the
    /// two.
    void copyStream(foundation::storage::provider::ByteStream& in, const MountedContainer& to,
                    const foundation::storage::provider::StorageIRI& destination,
                    const foundation::storage::provider::ByteStreamOpenOptions& options);
    /// Copies a folder and all below it so that its entries stand in the folder `destination`, which is made
    /// where it is missing; existing folders are merged into. A destination inside the source is refused.
    /// Returns the number of failures.
    std::uint64_t copyFolder(const MountedContainer& from,
                             const foundation::storage::provider::StorageIRI& source,
                             const MountedContainer& to,
                             const foundation::storage::provider::StorageIRI& destination);

private:
    struct FolderPair {
        foundation::storage::provider::StorageIRI source;
        foundation::storage::provider::StorageIRI destination;
    };
    struct WaitingFile {
        /// Index of the folder that holds it.
        std::size_t folder;
        fl::i18n::ustring name;
    };
    /// Files that were found and not yet copied, in the order of the listings.
    struct WaitingFiles {
        std::vector<FolderPair> folders;
        std::vector<WaitingFile> names;
        /// Code units of the files' paths.
        std::size_t length = 0;
        /// The folder that everything is copied into.
        foundation::storage::provider::StorageIRI top;
        /// Whether the files are read in the container's own order, many at a time. Where the copies go into
        /// the same container, one may replace the source of another, and the order of the listings counts.
        bool ordered = false;
        /// Whether the folder that is being looked through is not yet among the folders.
        bool folderIsNew = true;
    };

    void addWaiting(const MountedContainer& from, const MountedContainer& to, WaitingFiles& waiting,
                    const FolderPair& folder, const fl::i18n::ustring& name);
    void copyWaiting(const MountedContainer& from, const MountedContainer& to, WaitingFiles& waiting);
    /// Indices into waiting.names: the container's own order where that saves seeks.
    static std::vector<std::size_t> readingOrder(const MountedContainer& from, const WaitingFiles& waiting);
    void copyBytes(const MountedContainer& from, const foundation::storage::provider::StorageIRI& source,
                   const MountedContainer& to, const foundation::storage::provider::StorageIRI& destination);
    void write(foundation::storage::provider::ByteStream& in, const MountedContainer& to,
               const foundation::storage::provider::StorageIRI& destination,
               const foundation::storage::provider::ByteStreamOpenOptions& options,
               const foundation::storage::provider::StorageIRI& source, std::uint64_t size);
    void pump(foundation::storage::provider::ByteStream& in, foundation::storage::provider::ByteStream& out,
              const foundation::storage::provider::StorageIRI& source, std::uint64_t size);
    bool makeFolder(const foundation::storage::provider::StorageIRI& source, const MountedContainer& to,
                    const foundation::storage::provider::StorageIRI& destination);
    void refuse(const foundation::storage::provider::StorageIRI& source,
                const foundation::storage::provider::StorageIRI& destination, const std::string& objection);
    /// Removes a new entry that could not be written to its end; that this failed is told besides.
    void removeIncomplete(const foundation::storage::provider::StorageIRI& source,
                          foundation::storage::provider::IProvider& provider,
                          const foundation::storage::provider::StorageIRI& destination);
    /// Precondition: an exception is being handled.
    void fail(const foundation::storage::provider::StorageIRI& source,
              const foundation::storage::provider::StorageIRI& destination);
    void fail(const foundation::storage::provider::StorageIRI& source,
              const foundation::storage::provider::StorageIRI& destination,
              const foundation::storage::provider::Exception& error);
    void report(const CopyFailure& failure);

    const Options m_options;
    std::vector<char> m_buffer;
    std::uint64_t m_files = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_failures = 0;
};

} // namespace storage::vfs
