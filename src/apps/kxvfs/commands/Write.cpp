#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/ChangingCommand.h>
#include <apps/kxvfs/src/StandardInput.h>

#include <CLI/CLI.hpp>
#include <storage/vfs/TreeCopier.h>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using storage::vfs::FileMeaning;

namespace {

class Write : public ChangingCommand {
public:
    void declare(CLI::App& app) override {
        app.add_flag("--append", m_append, "Write behind what the file holds");
        app.add_option("LOCATION", m_typed, "The file to write")->required();
        app.add_option("-a,--archive", m_archive,
                       "Take the location as a path inside this archive, literally")
            ->type_name("ARCHIVE");
    }

    void lock(Session& session) override { session.lock({{m_typed, m_archive}}); }

    void change(Session& session) override {
        session.attempt(m_typed, [&] {
            const auto place = session.findToChange(m_typed, FileMeaning::File, m_archive);
            if (place.isFolder())
                throw CommandError(ErrorCode::InvalidArgument, "is a folder");
            if (place.location.folderMeant || !place.provider().isFolder(place.iri().parent()))
                throw CommandError(ErrorCode::NotFound, "the folder for it does not exist");
            session.changing(place);
            StandardInput input;
            storage::vfs::TreeCopier::Options options;
            options.onFailure = [&](const storage::vfs::CopyFailure& failure) {
                session.fail(m_typed, failure.error);
            };
            storage::vfs::TreeCopier(options).copyStream(input, place.mounted, place.iri(),
                                                         m_append ? ByteStreamOpenOptions::append()
                                                                  : ByteStreamOpenOptions::overwrite());
            session.done({place.iri(), place.mounted, m_append ? "appended" : "written"});
        });
    }

private:
    std::string m_typed;
    std::string m_archive;
    bool m_append = false;
};

} // namespace

const CommandRow writeRow{
    "write", "[--append] LOCATION", "Write standard input to a file",
    "Writes what standard input gives to the file, which is made where it does not exist.",
    &makeCommand<Write>};

} // namespace apps::kxvfs
