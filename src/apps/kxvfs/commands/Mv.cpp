#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/ChangingCommand.h>
#include <apps/kxvfs/src/Copying.h>
#include <apps/kxvfs/src/Entries.h>

#include <CLI/CLI.hpp>

#include <vector>

namespace apps::kxvfs {

using namespace foundation::storage::provider;
using storage::vfs::FileMeaning;

namespace {

class Mv : public ChangingCommand {
public:
    void declare(CLI::App& app) override {
        app.add_flag("-n,--no-clobber", m_keepExisting,
                     "Leave files that exist as they are, and the source too");
        app.add_flag("-T,--no-target-directory", m_exactTarget,
                     "Move to exactly DEST, also where it is a folder or an archive");
        app.add_option("-a,--archive", m_archive,
                       "Take the locations as paths inside this archive, literally")
            ->type_name("ARCHIVE");
        app.add_option("SOURCE... DEST", m_places, "What to move, and where to")->required()->expected(2, -1);
    }

    /// A source goes only when its copy is certain to stay.
    bool needsDurableFiles() const override { return true; }

    void lock(Session& session) override {
        std::vector<Session::ChangedPlace> places;
        for (const auto& typed : m_places)
            places.push_back({typed, m_archive, false});
        places.back().target = !m_exactTarget;
        session.lock(places);
    }

    void change(Session& session) override {
        Copying::Options options;
        options.recursive = true;
        options.keepTimes = true;
        options.exactTarget = m_exactTarget;
        options.action = "moved";
        Copying copying(session, options);
        const auto& destination = m_places.back();
        if (!session.attempt(destination,
                             [&] { copying.setTarget(destination, m_archive, m_places.size() > 2); }))
            return;
        std::vector<Place> copied;
        for (std::size_t i = 0; i + 1 < m_places.size(); ++i)
            session.attempt(m_places[i], [&] {
                const auto source = session.find(m_places[i], FileMeaning::File, m_archive);
                if (!moveWithin(session, copying, source) && copying.copy(source))
                    copied.push_back(source);
            });
        removeCopied(session, copied);
    }

private:
    /// Moves what stays with one provider, and what needs no moving; false where it has to be copied.
    bool moveWithin(Session& session, const Copying& copying, const Place& source) const {
        const bool folder = source.isFolder();
        if (!folder && !source.isFile())
            throw CommandError(ErrorCode::NotFound, std::string(toText(ErrorCode::NotFound)));
        const auto name = source.iri().getName();
        if (name.empty() || name == u"." || name == u"..")
            throw CommandError(ErrorCode::InvalidArgument, "cannot be moved");
        const auto destination = copying.destinationOf(source);
        auto& target = copying.target().provider();
        if (m_keepExisting && target.exists(destination))
            return true;
        // The last component stays as it is: what is moved is a link, not what it leads to.
        const auto from = session.vfs().canonicalLocation(source.iri().parent()).child(name);
        if (from == destination)
            throw CommandError(ErrorCode::InvalidArgument, "source and destination are the same");
        if (from.isSameOrAbove(destination))
            throw CommandError(ErrorCode::InvalidArgument, "a folder cannot be moved into itself");
        if (folder && target.exists(destination))
            throw CommandError(ErrorCode::AlreadyExists,
                               "the destination exists: " + copying.shownDestination(source));
        if (source.mounted.container != copying.target().mounted.container)
            return false;
        const auto provider = session.changing(copying.target());
        if (folder)
            provider->moveFolder(from, destination, MoveOption::AllowCopy);
        else
            provider->moveFile(from, destination, MoveOption::ReplaceExistingAllowCopy);
        report(session, from, destination);
        return true;
    }

    static void report(Session& session, const StorageIRI& from, const StorageIRI& to) {
        if (session.out().isJson())
            session.out().object({{"path", to.toUtf8()}, {"action", "moved"}, {"source", from.toUtf8()}});
    }

    /// The copies are written before the first source goes.
    static void removeCopied(Session& session, const std::vector<Place>& copied) {
        if (copied.empty() || !session.flush())
            return;
        for (const auto& source : copied)
            session.attempt(source.shown(), [&] {
                const auto provider = session.changing(source);
                if (provider->isFolder(source.iri()))
                    provider->removeFolderRecursively(source.iri());
                else
                    provider->removeFile(source.iri());
            });
    }

    bool m_keepExisting = false;
    bool m_exactTarget = false;
    std::string m_archive;
    std::vector<std::string> m_places;
};

} // namespace

const CommandRow mvRow{"mv", "SOURCE... DEST", "Move and rename files and folders",
                       "Moves within an archive, between archives, and between archives and local folders. "
                       "What leaves its archive or\n"
                       "file system is copied, the copies are saved, and only then are the sources removed. "
                       "A DEST that is an archive\n"
                       "is moved into; -T replaces it.",
                       &makeCommand<Mv>};

} // namespace apps::kxvfs
