#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Entries.h>

#include <CLI/CLI.hpp>
#include <fl/i18n/utf8.h>

namespace apps::kxvfs {

namespace {

class Find : public Command {
public:
    void declare(CLI::App& app) override {
        app.add_option("--name", m_pattern,
                       "Only names that match: * any text, ? one character, [a-c] one of a set")
            ->type_name("GLOB");
        app.add_option("--type", m_type, "Only files (f) or folders (d)")
            ->type_name("f|d")
            ->check(CLI::IsMember({"f", "d"}));
        app.add_flag("-0,--print0", m_null, "End each path with a NUL instead of a line end");
        m_locations.declare(app, false);
    }

    void run(Session& session) override {
        for (const auto& typed : m_locations.orElse("."))
            session.attempt(typed, [&] {
                const auto place =
                    session.find(typed, storage::vfs::FileMeaning::Folder, m_locations.archive);
                const auto top = entryAt(place);
                if (m_pattern.empty())
                    show(session, top);
                if (!top.folder)
                    return;
                if (m_pattern.empty())
                    walk(session, place, top, [&](const Entry& entry) { show(session, entry); });
                else
                    showMatches(session, place, top);
            });
    }

private:
    void showMatches(Session& session, const Place& place, const Entry& top) {
        auto& provider = place.provider();
        const auto matches = provider.listAllRecursiveWildcards(top.iri, fl::i18n::fromUtf8(m_pattern));
        while (matches->hasNext()) {
            matches->next();
            const auto match = matches->current();
            const auto relative = fl::i18n::toUtf8(match.getName());
            const auto path = top.iri.getResolvedPath();
            Place found{place.location, place.mounted};
            found.location.iri =
                top.iri.withPath(path + (path.ends_with(u'/') ? u"" : u"/") + match.getName());
            found.location.typed = joinShown(top.shown, relative);
            session.attempt(found.shown(), [&] { show(session, entryAt(found)); });
        }
    }

    void show(Session& session, const Entry& entry) const {
        if (!m_type.empty() && (m_type == "d") != entry.folder)
            return;
        auto& out = session.out();
        if (out.isJson())
            out.object(toJson(entry));
        else if (m_null)
            out.bytes(entry.shown.c_str(), entry.shown.size() + 1);
        else
            out.line(out.name(entry.shown));
    }

    Locations m_locations;
    std::string m_pattern;
    std::string m_type;
    bool m_null = false;
};

} // namespace

const CommandRow findRow{
    "find", "[LOCATION...] [--name GLOB] [--type f|d]", "Find files and folders by name",
    "Prints the path of everything in each folder or archive, a folder before what is in it.\n"
    "With --name, of what lies below the location and matches.",
    &makeCommand<Find>};

} // namespace apps::kxvfs
