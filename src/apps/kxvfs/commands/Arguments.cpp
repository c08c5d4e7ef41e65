#include <apps/kxvfs/commands/Arguments.h>

#include <CLI/CLI.hpp>

namespace apps::kxvfs {

void Locations::declare(CLI::App& app, bool required, const std::string& name) {
    auto* locations = app.add_option(name, typed, "Where: a path that may go on inside archives, or an IRI");
    if (required)
        locations->required();
    app.add_option("-a,--archive", archive, "Take the locations as paths inside this archive, literally")
        ->type_name("ARCHIVE");
}

std::vector<std::string> Locations::orElse(const std::string& otherwise) const {
    if (!typed.empty())
        return typed;
    return {archive.empty() ? otherwise : "/"};
}

std::vector<Session::ChangedPlace> Locations::changed() const {
    std::vector<Session::ChangedPlace> places;
    for (const auto& location : typed)
        places.push_back({location, archive});
    return places;
}

} // namespace apps::kxvfs
