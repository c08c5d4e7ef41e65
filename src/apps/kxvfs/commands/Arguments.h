#pragma once

#include <apps/kxvfs/src/Session.h>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace apps::kxvfs {

/// LOCATION… and -a ARCHIVE, as most commands take them.
struct Locations {
    std::vector<std::string> typed;
    std::string archive;

    /// `required`: at least one location is given.
    void declare(CLI::App& app, bool required, const std::string& name = "LOCATION");
    /// The locations; `otherwise` where none was given (the root with -a).
    std::vector<std::string> orElse(const std::string& otherwise) const;
    /// The same for Session::lock.
    std::vector<Session::ChangedPlace> changed() const;
};

} // namespace apps::kxvfs
