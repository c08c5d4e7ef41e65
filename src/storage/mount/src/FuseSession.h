#pragma once

#include <storage/mount/MountOptions.h>
#include <storage/mount/src/FileSystem.h>

#include <filesystem>
#include <memory>
#include <string>

namespace storage::mount {

/// The connection between the system and a FileSystem.
class FuseSession {
public:
    /// Mounts. `source` is what the system shows as the device. Errors: std::runtime_error.
    FuseSession(FileSystem& files, const std::string& source, const std::filesystem::path& mountPoint,
                const MountOptions& options);
    /// Unmounts if that has not happened.
    ~FuseSession();

    FuseSession(const FuseSession&) = delete;
    FuseSession& operator=(const FuseSession&) = delete;

    /// Begins to answer requests. Errors: std::system_error when no thread can be had.
    void start();
    /// After start(): answers requests until the folder is unmounted or end() was called.
    /// Errors: std::system_error when the connection to the system broke.
    void serve();
    /// Callable from another thread.
    void end();

    static bool isSupported();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace storage::mount
