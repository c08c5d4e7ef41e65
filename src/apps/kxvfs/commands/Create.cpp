#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/ChangingCommand.h>

#include <CLI/CLI.hpp>

#include <vector>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using storage::vfs::FileMeaning;

namespace {

class Create : public ChangingCommand {
public:
    void declare(CLI::App& app) override {
        app.add_option("ARCHIVE", m_archives, "The archives to make")->required();
    }

    void lock(Session& session) override {
        std::vector<Session::ChangedPlace> places;
        for (const auto& typed : m_archives)
            places.push_back({typed});
        session.lock(places);
    }

    void change(Session& session) override {
        for (const auto& typed : m_archives)
            session.attempt(typed, [&] {
                const auto place = session.findToChange(typed, FileMeaning::File);
                if (place.isFile() || place.isFolder())
                    throw CommandError(ErrorCode::AlreadyExists,
                                       std::string(toText(ErrorCode::AlreadyExists)));
                if (place.location.folderMeant || !place.provider().isFolder(place.iri().parent()))
                    throw CommandError(ErrorCode::NotFound, "the folder for it does not exist");
                session.changing(place);
                session.vfs().createArchive(place.iri());
                session.done({place.iri(), place.mounted, "created"});
            });
    }

private:
    std::vector<std::string> m_archives;
};

} // namespace

const CommandRow createRow{
    "create", "ARCHIVE...", "Make new empty archives",
    "Makes each archive, locally or inside another archive. Fails where the file exists.",
    &makeCommand<Create>};

} // namespace apps::kxvfs
