#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/ChangingCommand.h>

#include <CLI/CLI.hpp>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using storage::vfs::FileMeaning;

namespace {

class Mkdir : public ChangingCommand {
public:
    void declare(CLI::App& app) override {
        app.add_flag("-p,--parents", m_parents,
                     "Make missing folders above too; an existing folder is no failure");
        m_locations.declare(app, true);
    }

    void lock(Session& session) override { session.lock(m_locations.changed()); }

    void change(Session& session) override {
        for (const auto& typed : m_locations.typed)
            session.attempt(typed, [&] { make(session, typed); });
    }

private:
    void make(Session& session, const std::string& typed) const {
        const auto place = session.findToChange(typed, FileMeaning::File, m_locations.archive);
        // Asked first: a change that cannot be made must not cost a rewrite of the archive.
        if (place.isFolder() && m_parents)
            return;
        if (place.isFolder() || place.isFile())
            throw CommandError(ErrorCode::AlreadyExists, std::string(toText(ErrorCode::AlreadyExists)));
        if (!m_parents && !place.provider().isFolder(place.iri().parent()))
            throw CommandError(ErrorCode::NotFound, "the folder above does not exist; -p makes it");
        Session::requireStorable(place.iri(), true);
        const auto provider = session.changing(place);
        if (m_parents)
            provider->createFolderRecursive(place.iri());
        else
            provider->createFolder(place.iri());
        session.done({place.iri(), place.mounted, "created"});
    }

    Locations m_locations;
    bool m_parents = false;
};

} // namespace

const CommandRow mkdirRow{"mkdir", "LOCATION...", "Make folders", "Makes each folder, which must not exist.",
                          &makeCommand<Mkdir>};

} // namespace apps::kxvfs
