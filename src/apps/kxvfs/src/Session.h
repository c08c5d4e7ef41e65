#pragma once

#include <apps/kxvfs/src/Failure.h>
#include <apps/kxvfs/src/Output.h>
#include <apps/kxvfs/src/SaveProgressLine.h>

#include <foundation/storage/provider/IProvider.h>
#include <storage/vfs/ChangeSession.h>
#include <storage/vfs/LocationResolver.h>
#include <storage/vfs/Vfs.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace apps::kxvfs {

/// What holds for every command.
struct GlobalOptions {
    bool json = false;
    bool quiet = false;
    /// 1: operations are logged; 2: with details.
    int verbosity = 0;
};

/// A location that was found, with who serves it.
struct Place {
    storage::vfs::Location location;
    storage::vfs::MountedContainer mounted;

    foundation::storage::provider::IProvider& provider() const { return *mounted.provider; }
    const foundation::storage::provider::StorageIRI& iri() const { return location.iri; }
    /// As it was typed, for messages and for listings.
    const std::string& shown() const { return location.typed; }
    bool isFile() const { return provider().isFile(iri()); }
    bool isFolder() const { return provider().isFolder(iri()); }
};

/// The action of a change whose source is gone once that is saved too.
inline constexpr std::string_view movedAction = "moved";

/// A change that was made, for the objects of --json.
struct Change {
    /// What was changed, and as what it was served.
    foundation::storage::provider::StorageIRI iri;
    storage::vfs::MountedContainer mounted;
    std::string action;
    /// Where it came from; empty for what came from nowhere.
    foundation::storage::provider::StorageIRI source = {};
    /// What is known of something that is gone; what is there is looked at when it is saved.
    std::optional<nlohmann::ordered_json> known = {};
};

/// One run of one command: the front to storage, standard output, and the failures met so far.
class Session {
public:
    /// `durableFiles`: as Vfs::Options::durableFiles.
    Session(std::string command, GlobalOptions options, bool durableFiles);
    ~Session();

    const GlobalOptions& options() const { return m_options; }
    Output& out() { return m_out; }
    storage::vfs::Vfs& vfs() { return *m_vfs; }
    storage::vfs::LocationResolver& resolver() { return m_resolver; }
    /// The changes that this command makes; written by commit().
    storage::vfs::ChangeSession& changes() { return *m_changes; }

    /// The place that a person typed. `archive` not empty: `typed` is a path in it, taken literally.
    Place find(const std::string& typed, storage::vfs::FileMeaning meaning, const std::string& archive = {});
    /// The same for a place that is to be changed: a damaged archive is an error.
    Place findToChange(const std::string& typed, storage::vfs::FileMeaning meaning,
                       const std::string& archive = {});

    /// A place that a command will change, as it was typed.
    struct ChangedPlace {
        std::string typed;
        std::string archive = {};
        /// A file that is an archive means its inside.
        bool target = false;
    };
    /// Locks the archives that the changes of all these places need, before anything of them is read.
    void lock(const std::vector<ChangedPlace>& places);
    /// Mounts; a damaged archive is reported once, as a failure, and read as far as it goes.
    storage::vfs::MountedContainer mount(const foundation::storage::provider::StorageIRI& location,
                                         const std::string& shown);
    /// Errors: CommandError for a place whose name its archive could not hold when it is written.
    static void requireStorable(const foundation::storage::provider::StorageIRI& place, bool folder);
    /// The provider to change a place with. Errors: as requireStorable; those of ChangeSession::changing.
    std::shared_ptr<foundation::storage::provider::IProvider> changing(const Place& place);
    /// Lets the changed archives be written, once; failures are reported, and what could not be written is
    /// given up. Returns whether there were none.
    bool flush();
    /// The same, tells what was done, and lets go of the locks.
    void commit();

    /// Tells of a change. It is printed when the archive that it is in is saved, and not at all when that
    /// fails.
    void done(Change change);

    /// `kxvfs: COMMAND: LOCATION: cause` on standard error, for the exception being handled; the exit status
    /// becomes 1. With --json also an object with the error's code.
    void fail(std::string_view shown);
    void fail(std::string_view shown, const std::exception_ptr& error);
    void fail(std::string_view shown, foundation::storage::provider::ErrorCode code,
              const std::string& cause);
    /// Whether progress may be shown, should there be a terminal.
    bool progressWanted() const { return !m_options.quiet && !m_options.json; }
    /// A message that is no failure; nothing with -q.
    void note(std::string_view text);
    /// Reports what `work` throws as a failure of `shown`; what ends the whole run passes. Returns whether it
    /// did not throw.
    template <typename Work>
    bool attempt(std::string_view shown, Work&& work);

    /// Stands in front of the location in every message while it is set ("changes.txt:12").
    void setContext(std::string context) { m_context = std::move(context); }

    std::size_t failures() const { return m_failures; }
    /// Messages of the front about bundles so far; they are no failures of a command that does without those.
    const std::vector<std::string>& warnings() const { return m_warnings; }
    /// Counts as a failure what was told already.
    void countFailure() { ++m_failures; }
    int exitStatus() const { return m_failures == 0 ? 0 : 1; }

private:
    /// What goes into the JSON array when the changes are saved: a change or, to keep the order, the object
    /// of a failure.
    struct Result {
        std::optional<Change> change;
        nlohmann::ordered_json failure;
    };

    /// The archive in which the last place was found, which mostly is that of the next one, too.
    struct FoundArchive {
        std::string archive;
        foundation::storage::provider::StorageIRI root;
        storage::vfs::MountedContainer mounted;
    };

    std::unique_ptr<storage::vfs::Vfs> makeVfs(bool durableFiles);
    void drop(const foundation::storage::provider::StorageIRI& unsaved);
    void printResults();
    void report(std::string_view shown, const Failure& failure);
    bool save(bool last);

    const std::string m_command;
    const GlobalOptions m_options;
    Output m_out;
    std::unique_ptr<storage::vfs::Vfs> m_vfs;
    storage::vfs::LocationResolver m_resolver;
    /// While archives are written.
    std::optional<SaveProgressLine> m_saving;
    std::unique_ptr<storage::vfs::ChangeSession> m_changes;
    std::set<foundation::storage::provider::StorageIRI> m_damaged;
    std::optional<FoundArchive> m_found;
    std::string m_context;
    std::vector<Result> m_results;
    std::vector<std::string> m_warnings;
    std::size_t m_failures = 0;
};

template <typename Work>
bool Session::attempt(std::string_view shown, Work&& work) {
    try {
        work();
        return true;
    } catch (const OutputError&) {
        throw;
    } catch (const UsageError&) {
        throw;
    } catch (...) {
        fail(shown);
        return false;
    }
}

} // namespace apps::kxvfs
