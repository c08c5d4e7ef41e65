#pragma once

#include <fl/filesystem/Export.h>
#include <fl/filesystem/path.h>
#include <fl/i18n/ustring.h>

#include <cstdio>
#include <memory>

namespace fl::filesystem {

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

/// Closes the file when it goes; what has not been written out by then is lost silently, so fflush() first
/// where that matters.
using FileOwner = std::unique_ptr<std::FILE, FileCloser>;

struct TemporaryFile {
    /// Open for reading and writing, in binary mode, not inherited by child processes.
    FileOwner file;
    /// The path of the file: the folder's name and the name within it. Nobody removes the file but who asked
    /// for it.
    i18n::ustring name;
    /// The same in the form that the operations of this library take. Known before the file is made, so that
    /// a caller whose memory runs out has it.
    path item;
};

/// The absolute name of the folder for temporary files: what TMPDIR names if that is a folder (and its name
/// is UTF-8), else /tmp. Threads: any, as long as no other changes the environment.
KXFOUNDATION_FILESYSTEM_API i18n::ustring temp_directory_name();

/// Creates an empty file `<directory>/<prefix><unique part><suffix>` that was not there before, readable and
/// writable by its owner only, and opens it. A symbolic link of that name is never followed.
/// Errors: FsysExceptionBase, also for a prefix or suffix that holds a '/' or a NUL.
/// Threads: any; no two calls, also of different processes, get the same file.
KXFOUNDATION_FILESYSTEM_API TemporaryFile tmpfile(i18n::ustring_view directory, i18n::ustring_view prefix,
                                                  i18n::ustring_view suffix);

/// A name of the same form at which nothing was when it was looked for. Nothing is created: a caller to whom
/// it matters creates the file exclusively. Errors: FsysExceptionBase, also when `directory` is not a folder
/// that can be searched.
KXFOUNDATION_FILESYSTEM_API i18n::ustring tmpnam(i18n::ustring_view directory, i18n::ustring_view prefix,
                                                 i18n::ustring_view suffix);

} // namespace fl::filesystem
