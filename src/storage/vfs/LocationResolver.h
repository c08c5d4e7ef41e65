#pragma once

#include <foundation/storage/provider/StorageIRI.h>
#include <storage/vfs/Export.h>
#include <storage/vfs/Vfs.h>

#include <optional>
#include <string>
#include <string_view>

namespace storage::vfs {

/// What a path that ends at a file stands for.
enum class FileMeaning {
    /// The file itself.
    File,
    /// The root of the archive that it holds; a path to a local file that is no archive still means the
    /// archive, so that opening it says what is wrong. A file inside an archive that is none stays a file.
    Folder,
    /// The root of the archive where the contents say that it is one, the file itself otherwise.
    FolderIfArchive,
};

/// A location as a person typed it.
struct Location {
    foundation::storage::provider::StorageIRI iri;
    /// The text it came from, for messages.
    std::string typed;
    /// The text ended in "/": a folder is meant, whether one is there or not.
    bool folderMeant = false;
};

/// Turns what people type into locations.
///
/// A path is walked from the left. Its first component that is a regular file is a container, since a file
/// has no children: `plans.zip/docs/a.txt`; the walk goes on inside, so `outer.zip/inner.zip/x` nests. A "!"
/// behind the container's name (`plans.zip!/docs/a.txt`) is understood where the name with the "!" does not
/// exist. Texts that begin with schemes (`zip:file:///…`) are taken as IRIs. What does not exist is kept as
/// typed, as a place to create.
///
/// Threads: one at a time.
class KXVFS_API LocationResolver {
public:
    /// `vfs` must outlive the resolver.
    explicit LocationResolver(Vfs& vfs);

    /// Errors: InvalidArgument for an empty text and a malformed IRI (Exception); those of Vfs::mount for the
    /// containers on the way, read with Tolerance::Damaged.
    Location resolve(std::string_view typed, FileMeaning meaning) const;

    /// The local file that the text leads into, without opening it: what a command that changes things locks
    /// before it reads. Empty where the text leads to a local file or folder that is not gone into; where it
    /// ends at a regular file, `finalFile` says whether that counts.
    std::optional<foundation::storage::provider::StorageIRI> localContainer(std::string_view typed,
                                                                            bool finalFile) const;

    /// The place of `innerPath`, taken literally, in the archive that `archive` leads to.
    /// Errors: those of resolve; NotFound, InvalidArgument or ContainerUnreadable (Exception) where that is
    /// nothing, a folder or another file.
    Location resolveInside(std::string_view archive, std::string_view innerPath) const;

    /// The same in the archive whose root is `root`, which is not looked at.
    static Location inside(const foundation::storage::provider::StorageIRI& root, std::string_view innerPath);

private:
    Vfs& m_vfs;
};

} // namespace storage::vfs
