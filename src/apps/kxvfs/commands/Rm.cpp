#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/ChangingCommand.h>
#include <apps/kxvfs/src/Entries.h>

#include <CLI/CLI.hpp>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using storage::vfs::FileMeaning;

namespace {

class Rm : public ChangingCommand {
public:
    void declare(CLI::App& app) override {
        app.add_flag("-r,-R,--recursive", m_recursive, "Remove folders with all in them");
        app.add_flag("-d,--dir", m_emptyFolders, "Remove empty folders too");
        app.add_flag("-f,--force", m_force, "What does not exist is no failure");
        m_locations.declare(app, true);
    }

    void lock(Session& session) override { session.lock(m_locations.changed()); }

    void change(Session& session) override {
        for (const auto& typed : m_locations.typed)
            session.attempt(typed, [&] { remove(session, typed); });
    }

private:
    void remove(Session& session, const std::string& typed) const {
        const auto place = session.findToChange(typed, FileMeaning::File, m_locations.archive);
        const bool folder = place.isFolder();
        if (!folder && !place.isFile()) {
            if (m_force)
                return;
            throw CommandError(ErrorCode::NotFound, std::string(toText(ErrorCode::NotFound)));
        }
        const auto name = place.iri().getName();
        if (folder && (name.empty() || (!place.iri().hasContainer() && (name == u"." || name == u".."))))
            throw CommandError(ErrorCode::InvalidArgument, name.empty()
                                                               ? "the root is not removed"
                                                               : "is not removed through \".\" or \"..\"");
        if (folder && !m_recursive && !m_emptyFolders)
            throw CommandError(ErrorCode::FolderNotEmpty, "is a folder; -r removes folders");
        if (folder && !m_recursive && place.provider().listAll(place.iri())->hasNext())
            throw CommandError(ErrorCode::FolderNotEmpty, std::string(toText(ErrorCode::FolderNotEmpty)));
        const auto provider = session.changing(place);
        const auto known = session.out().isJson() ? std::optional(toJson(entryAt(place))) : std::nullopt;
        if (!folder)
            provider->removeFile(place.iri());
        else if (m_recursive)
            provider->removeFolderRecursively(place.iri());
        else
            provider->removeFolder(place.iri());
        session.done({place.iri(), place.mounted, "removed", {}, known});
    }

    Locations m_locations;
    bool m_recursive = false;
    bool m_emptyFolders = false;
    bool m_force = false;
};

} // namespace

const CommandRow rmRow{
    "rm", "LOCATION...", "Remove files and folders",
    "Removes each location. The root of an archive is not removed; the archive as a file is, when it\n"
    "is named without a \"/\" behind it.",
    &makeCommand<Rm>};

} // namespace apps::kxvfs
