#pragma once

#include <storage/fileprovider/src/Environment.h>
#include <storage/fileprovider/src/WorkingNames.h>

#include <string>
#include <vector>

namespace storage::fileprovider {

/// Where the working files of a target may stand.
struct WorkingPlaces {
    /// Beside the target, and in the state folder where there is one.
    std::vector<WorkingNames> names;
    /// Why nobody can tell whether anything stands in the state folder; 0 when that can be told.
    int stateError = 0;

    static WorkingPlaces of(const Environment& environment, const std::string& target);
};

} // namespace storage::fileprovider
