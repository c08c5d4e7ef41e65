#include <storage/fileprovider/src/WorkingPlaces.h>

#include <storage/fileprovider/src/Failure.h>

#include <cerrno>
#include <unistd.h>

namespace storage::fileprovider {

WorkingPlaces WorkingPlaces::of(const Environment& environment, const std::string& target) {
    WorkingPlaces places{{WorkingNames::beside(target)}};
    const auto& folder = environment.stateFolder;
    if (folder.empty()) {
        return places;
    }
    if (environment.calls->access(folder.c_str(), X_OK) == 0) {
        places.names.push_back(WorkingNames::inStateFolder(folder, target));
    } else if (!isAbsence(errno)) {
        places.stateError = errno;
    }
    return places;
}

} // namespace storage::fileprovider
