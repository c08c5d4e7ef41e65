#include <storage/fileprovider/src/Environment.h>

#include <storage/fileprovider/src/SettledFiles.h>

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace storage::fileprovider {

namespace {

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        return home;
    }
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr && found->pw_dir[0] == '/') {
        return found->pw_dir;
    }
    return {};
}

int makeFolders(SystemCalls& calls, const std::string& path) {
    if (calls.makeFolder(path.c_str(), 0700) == 0 || errno == EEXIST) {
        return 0;
    }
    const auto slash = path.find_last_of('/');
    if (errno != ENOENT || slash == 0 || slash == std::string::npos) {
        return errno;
    }
    if (const int error = makeFolders(calls, path.substr(0, slash)); error != 0) {
        return error;
    }
    return calls.makeFolder(path.c_str(), 0700) == 0 || errno == EEXIST ? 0 : errno;
}

} // namespace

std::string defaultStateFolder() {
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && state[0] == '/') {
        return std::string(state) + "/kxvfs";
    }
    const auto home = homeFolder();
    return home.empty() ? home : home + "/.local/state/kxvfs";
}

std::shared_ptr<const Environment> Environment::from(const LocalFileOptions& options) {
    auto environment = std::make_shared<Environment>();
    environment->calls = options.systemCalls ? options.systemCalls : std::make_shared<SystemCalls>();
    environment->sync = options.sync;
    environment->stateFolder = options.stateFolder ? *options.stateFolder : defaultStateFolder();
    environment->settled = std::make_shared<SettledFiles>();
    return environment;
}

int makeStateFolder(const Environment& environment) {
    if (environment.stateFolder.empty()) {
        return ENOENT;
    }
    if (const int error = makeFolders(*environment.calls, environment.stateFolder); error != 0) {
        return error;
    }
    struct stat status {};
    if (::stat(environment.stateFolder.c_str(), &status) != 0) {
        return errno;
    }
    if (!S_ISDIR(status.st_mode)) {
        return ENOTDIR;
    }
    return status.st_uid == ::geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 ? 0 : EACCES;
}

} // namespace storage::fileprovider
