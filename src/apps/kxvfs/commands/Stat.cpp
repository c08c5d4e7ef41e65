#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Entries.h>
#include <apps/kxvfs/src/Printable.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace apps::kxvfs {

using namespace foundation::storage::provider;

namespace {

class Stat : public Command {
public:
    void declare(CLI::App& app) override { m_locations.declare(app, true); }

    void run(Session& session) override {
        for (const auto& typed : m_locations.typed)
            session.attempt(typed, [&] {
                const auto place = session.find(typed, storage::vfs::FileMeaning::File, m_locations.archive);
                const auto entry = entryAt(place);
                const auto attributes = place.provider().getExtendedAttributes(place.iri());
                if (session.out().isJson())
                    showJson(session, place, entry, attributes);
                else
                    show(session, place, entry, attributes);
            });
    }

private:
    static void showJson(Session& session, const Place& place, const Entry& entry,
                         const ExtendedAttributes& attributes) {
        auto object = toJson(entry);
        object["path"] = session.vfs().canonicalLocation(place.iri()).toUtf8();
        object["writable"] = attributes.writable;
        for (const auto& [name, value] : attributes.properties)
            object[name] = value;
        session.out().object(object);
    }

    static void show(Session& session, const Place& place, const Entry& entry,
                     const ExtendedAttributes& attributes) {
        auto& out = session.out();
        const auto row = [&](std::string_view label, const std::string& value) {
            out.line(fmt::format("{:>12}: {}", label, value));
        };
        row("File", out.name(entry.shown));
        row("Type", entry.folder ? "folder" : "file");
        if (entry.size)
            row("Size", std::to_string(*entry.size));
        row("Modified", entry.modified.is_special() ? "unknown" : isoTime(entry.modified));
        row("Writable", attributes.writable ? "yes" : "no");
        for (const auto& [name, value] : attributes.properties)
            row(name, out.name(value));
        row("Location", session.vfs().canonicalLocation(place.iri()).toUtf8());
    }

    Locations m_locations;
};

} // namespace

const CommandRow statRow{
    "stat", "LOCATION...", "Show what is known of files and folders",
    "Prints type, size, time of the last change, and the location in its canonical form.",
    &makeCommand<Stat>};

} // namespace apps::kxvfs
