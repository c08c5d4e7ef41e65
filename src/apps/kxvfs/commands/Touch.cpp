#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/ChangingCommand.h>

#include <CLI/CLI.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using storage::vfs::FileMeaning;

namespace {

class Touch : public ChangingCommand {
public:
    void declare(CLI::App& app) override {
        app.add_flag("-c,--no-create", m_existingOnly, "Make no files");
        m_locations.declare(app, true);
    }

    void lock(Session& session) override { session.lock(m_locations.changed()); }

    void change(Session& session) override {
        for (const auto& typed : m_locations.typed)
            session.attempt(typed, [&] { touch(session, typed); });
    }

private:
    void touch(Session& session, const std::string& typed) const {
        const auto place = session.findToChange(typed, FileMeaning::File, m_locations.archive);
        const bool folder = place.isFolder();
        const bool exists = folder || place.isFile();
        const bool canSetTime = place.provider().hasFeature(Feature::SetLastModified);
        if (!exists && m_existingOnly)
            return;
        if (!exists && (place.location.folderMeant || !place.provider().isFolder(place.iri().parent())))
            throw CommandError(ErrorCode::NotFound, std::string(toText(ErrorCode::NotFound)));
        if (folder && !canSetTime)
            throw CommandError(ErrorCode::NotSupported, "the time of a folder in an archive cannot be set");
        const auto provider = session.changing(place);
        if (!exists)
            provider->createFile(place.iri());
        else if (canSetTime)
            provider->setLastModified(place.iri(), boost::posix_time::microsec_clock::universal_time());
        else
            // A file that was open for writing is stored again, with the time at which it was.
            provider->openStream(place.iri(), ByteStreamOpenOptions::modify())->close();
        session.done({place.iri(), place.mounted, exists ? "touched" : "created"});
    }

    Locations m_locations;
    bool m_existingOnly = false;
};

} // namespace

const CommandRow touchRow{
    "touch", "LOCATION...", "Make empty files, or give files the current time",
    "Makes each file that does not exist, empty, and gives the others the current time.",
    &makeCommand<Touch>};

} // namespace apps::kxvfs
