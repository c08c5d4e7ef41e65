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
        std::vector<Copied> copied;
        options.onCopied = [&](Change change) { copied.back().changes.push_back(std::move(change)); };
        Copying copying(session, options);
        const auto& destination = m_places.back();
        if (!session.attempt(destination,
                             [&] { copying.setTarget(destination, m_archive, m_places.size() > 2); }))
            return;
        for (std::size_t i = 0; i + 1 < m_places.size(); ++i)
            session.attempt(m_places[i], [&] {
                const auto source = session.find(m_places[i], FileMeaning::File, m_archive);
                if (moveWithin(session, copying, source))
                    return;
                copied.push_back({source, {}, false});
                copied.back().whole = copying.copy(source);
            });
        removeCopied(session, copied);
    }

private:
    /// A source that was copied, or not wholly.
    struct Copied {
        Place source;
        std::vector<Change> changes;
        bool whole;
    };

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
        Session::requireStorable(destination, folder);
        const auto provider = session.changing(copying.target());
        if (folder)
            provider->moveFolder(from, destination, MoveOption::AllowCopy);
        else
            provider->moveFile(from, destination, MoveOption::ReplaceExistingAllowCopy);
        session.done({destination, copying.target().mounted, std::string(movedAction), from});
        return true;
    }

    /// The copies are written before the first source goes.
    static void removeCopied(Session& session, std::vector<Copied>& copied) {
        if (copied.empty())
            return;
        const bool saved = session.flush();
        for (auto& [source, changes, whole] : copied) {
            const bool gone = saved && whole && session.attempt(source.shown(), [&, &from = source] {
                const auto provider = session.changing(from);
                if (provider->isFolder(from.iri()))
                    provider->removeFolderRecursively(from.iri());
                else
                    provider->removeFile(from.iri());
            });
            for (auto& change : changes)
                if (saved || change.mounted.container.empty())
                    tell(session, std::move(change), gone);
        }
    }

    static void tell(Session& session, Change change, bool gone) {
        if (gone)
            change.action = movedAction;
        session.done(std::move(change));
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
