#pragma once

namespace kx::test {

/// The operations that every provider has of its own, and those of its streams; what is counted and made to
/// fail.
enum class ProviderOperation {
    CreateFile,
    CreateFolder,
    IsFile,
    IsFolder,
    RemoveFile,
    MoveFile,
    RemoveFolder,
    MoveFolder,
    GetFileAttributes,
    GetFolderAttributes,
    OpenStream,
    OpenReadStream,
    ListAll,
    ListFiles,
    ListFolders,
    SetLastModified,
    SetWritable,
    StreamRead,
    StreamWrite,
    StreamSeek,
    StreamClose,
};

} // namespace kx::test
