#include <storage/mount/src/FuseSession.h>

#include <stdexcept>

namespace storage::mount {

struct FuseSession::Impl {};

FuseSession::FuseSession(FileSystem&, const std::string&, const std::filesystem::path&, const MountOptions&) {
    throw std::runtime_error("this build cannot mount archives: it was made without libfuse");
}

FuseSession::~FuseSession() = default;

void FuseSession::start() {}

void FuseSession::serve() {}

void FuseSession::end() {}

bool FuseSession::isSupported() {
    return false;
}

} // namespace storage::mount
