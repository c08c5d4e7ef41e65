#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Background.h>
#include <apps/kxvfs/src/Interruption.h>
#include <apps/kxvfs/src/Printable.h>
#include <apps/kxvfs/src/Session.h>
#include <apps/kxvfs/src/TemporarySpace.h>

#include <CLI/CLI.hpp>
#include <fl/i18n/utf8.h>
#include <fmt/format.h>
#include <foundation/core/Mutex.h>
#include <foundation/core/ThreadAnnotations.h>
#include <storage/mount/ArchiveMount.h>
#include <storage/mount/MountRecord.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <thread>
#include <unistd.h>
#include <vector>

namespace apps::kxvfs {

namespace fs = std::filesystem;
using foundation::core::Mutex;
using foundation::core::MutexLock;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::StorageIRI;
using storage::mount::ArchiveMount;
using storage::mount::MountCondition;
using storage::mount::MountOptions;
using storage::mount::MountRecord;
using storage::mount::MountRecordFile;
using storage::vfs::FileMeaning;

namespace {

/// What a signal ends, for as long as it is there.
class Serving {
public:
    explicit Serving(ArchiveMount& mounted) : m_mounted(&mounted) {}

    void end() {
        const MutexLock lock(m_mutex);
        if (m_mounted)
            m_mounted->end();
    }

    void over() {
        const MutexLock lock(m_mutex);
        m_mounted = nullptr;
    }

private:
    Mutex m_mutex;
    ArchiveMount* m_mounted KX_GUARDED_BY(m_mutex);
};

class Mount : public Command {
public:
    void declare(CLI::App& app) override {
        app.add_option("ARCHIVE", m_archive, "The archive to mount");
        app.add_option("DIR", m_folder,
                       "The folder that shows it; what stands in the folder is hidden meanwhile");
        app.add_flag("-f,--foreground", m_foreground, "Stay in the foreground, and report there");
        app.add_option("-o", m_options, "Mount options, separated by commas")
            ->type_name("OPTIONS")
            ->allow_extra_args(false);
        app.add_flag("--list", m_list, "List the mounts of this user, and what they have not saved");
    }

    bool endsItself() const override { return true; }
    bool needsDurableFiles() const override { return true; }

    void run(Session& session) override {
        if (m_list) {
            list(session);
            return;
        }
        if (m_archive.empty() || m_folder.empty())
            throw UsageError("ARCHIVE and DIR are required");
        session.attempt(m_archive, [&] { mount(session, optionsGiven()); });
    }

private:
    MountOptions optionsGiven() const {
        auto options = storage::mount::defaultMountOptions();
        try {
            for (const auto& list : m_options)
                setMountOptions(options, list);
        } catch (const std::invalid_argument& problem) {
            throw UsageError(problem.what());
        }
        return options;
    }

    fs::path mountPoint() const {
        std::error_code failure;
        auto folder = fs::canonical(m_folder, failure);
        if (failure || !fs::is_directory(folder, failure))
            throw CommandError(ErrorCode::NotFound, fmt::format("{} is no folder to mount over", m_folder));
        return folder;
    }

    /// The root of the archive that was typed.
    StorageIRI rootGiven(Session& session) const {
        const auto location = session.resolver().resolve(m_archive, FileMeaning::Folder);
        const auto& path = location.iri.getResolvedPath();
        if (!location.iri.hasContainer() || !(path.empty() || path == u"/"))
            throw CommandError(ErrorCode::InvalidArgument, "this is no archive");
        return session.vfs().canonicalLocation(location.iri);
    }

    void mount(Session& session, const MountOptions& options) {
        if (!ArchiveMount::isSupported())
            throw CommandError(ErrorCode::NotSupported, "this build cannot mount archives");
        const auto folder = mountPoint();
        // A descendant knows nothing of threads and locks that were there before it.
        const auto background = m_foreground ? nullptr : std::make_unique<Background>();
        std::unique_ptr<MountRecordFile> record;
        ArchiveMount mounted(session.vfs(), rootGiven(session), folder, options,
                             {[&](const std::string& message) { tell(session, message); },
                              [&](const MountCondition& condition) {
                                  if (record)
                                      record->update(condition);
                              }});
        MountRecord first;
        first.archive = m_file = fs::absolute(m_archive).string();
        first.mountPoint = folder;
        first.process = getpid();
        first.readOnly = options.readOnly;
        record = std::make_unique<MountRecordFile>(std::move(first));
        if (session.out().isJson())
            session.out().object(
                {{"path", m_archive}, {"mountPoint", folder.string()}, {"process", getpid()}});
        m_inBackground = background != nullptr;
        mounted.start();
        if (background) {
            session.out().finish();
            background->ready();
        }
        const auto serving = std::make_shared<Serving>(mounted);
        std::thread([serving] {
            waitForSignal();
            serving->end();
        }).detach();
        const auto broken = served(mounted);
        serving->over();
        end(session, mounted, *record, broken);
    }

    /// Returns why the system cannot be answered any more; empty when the mount ended as it was asked to.
    static std::string served(ArchiveMount& mounted) {
        try {
            mounted.serve();
            return {};
        } catch (const std::exception& failure) {
            return failure.what();
        }
    }

    void end(Session& session, ArchiveMount& mounted, MountRecordFile& record,
             const std::string& broken) const {
        const bool saved = mounted.finish();
        if (!broken.empty()) {
            tell(session, broken);
            session.fail(m_archive, ErrorCode::LocalFileSystem, broken);
        }
        if (saved) {
            record.end(mounted.condition(), broken);
            return;
        }
        auto condition = mounted.condition();
        const auto cause = condition.lastSave ? condition.lastSave->failure : std::string();
        // An archive that was complete, and could only not be put in place, has more than the changes alone.
        for (const auto& whole : TemporarySpace::rescued())
            tell(session,
                 fmt::format("the archive that could not be put in place is kept as {}", whole.string()));
        if (!condition.rescue.empty())
            tell(session, fmt::format("the changed files are kept in {}", condition.rescue.string()));
        if (!condition.rescueList.empty())
            tell(session, fmt::format("\"kxvfs batch {} {}\" makes the changes", m_file,
                                      condition.rescueList.string()));
        record.end(condition, cause);
        session.fail(m_archive, ErrorCode::LocalFileSystem,
                     fmt::format("not everything could be saved: {}", cause));
    }

    void tell(Session& session, const std::string& message) const {
        if (m_inBackground)
            logToSystem(escaped(message).c_str());
        else
            session.note(escaped(message));
    }

    static void list(Session& session) {
        auto& out = session.out();
        for (const auto& record : storage::mount::listMounts()) {
            const auto json = nlohmann::ordered_json::parse(toJson(record));
            if (out.isJson()) {
                out.object(json);
                continue;
            }
            const auto& save = record.condition.lastSave;
            out.line(fmt::format(
                "{} on {}: {}, {}, {}", out.name(record.archive), out.name(record.mountPoint.string()),
                record.readOnly ? "read-only" : json.at("state").get<std::string>(),
                record.condition.unsavedChanges == 0
                    ? "everything saved"
                    : fmt::format("{} not saved", record.condition.unsavedChanges),
                !save ? "no save so far"
                : save->failure.empty()
                    ? fmt::format("last save {}", json.at("lastSave").at("time").get<std::string>())
                    : fmt::format("last save failed: {}", out.name(save->failure))));
        }
    }

    std::string m_archive;
    /// The same, for use from whatever folder.
    std::string m_file;
    std::string m_folder;
    std::vector<std::string> m_options;
    bool m_foreground = false;
    bool m_list = false;
    bool m_inBackground = false;
};

} // namespace

const CommandRow mountRow{
    "mount", "[-f] [-o OPTIONS] ARCHIVE DIR | --list", "Show an archive as a folder of the system",
    "Shows the archive in DIR, where every program can read and change its files, and returns when it is "
    "there. "
    "The archive stays locked until it is unmounted (kxvfs umount DIR, or umount DIR): other commands that "
    "change "
    "it wait.\n\n"
    "Changes are gathered and saved together: when none has come for a second (save_after=SECONDS), at the "
    "latest a "
    "minute after the first (save_within=SECONDS), when they take more than 256 MiB (space=BYTES, with K, M "
    "or G), "
    "when a program calls fsync on a file or folder, and at the end. fsync returns when the archive on disk "
    "holds "
    "the change, or with the error that kept it from that; close gives the error of a save that has failed "
    "since. "
    "\"sync DIR\" is such an fsync of the folder and saves everything; sync without a folder, sync -f and "
    "syncfs "
    "are not passed on by the system. Until it is saved, a change is lost with the process.\n\n"
    "Other options: ro (nothing can be changed, nothing is locked), nested (each NAME.zip appears also as a "
    "read-only folder NAME.zip.d, or .d2 and so on where that name is taken), allow_other (other users may "
    "look in), "
    "uid=N, gid=N, umask=OCTAL (what is shown).\n\n"
    "Files are shown with the permissions 0644, folders with 0755, less the umask. Permissions and times "
    "that "
    "programs set hold until the archive is unmounted; an archive stores of them only the time at which a "
    "file was "
    "last saved after a change. Owners cannot be changed, hard links, symbolic links and special files "
    "cannot be "
    "made (EPERM), there are no extended attributes (EOPNOTSUPP), and two names cannot be exchanged "
    "(EINVAL). "
    "Entries that the system could not name (\".\", \"..\", more than 255 bytes) are not shown.\n\n"
    "SIGTERM, SIGINT, SIGHUP and SIGQUIT end the mount after a last save. What was made, changed or moved "
    "and cannot "
    "be saved "
    "at the end is put into an archive NAME.rescued.zip beside the archive, or where there is room for it. "
    "Beside that, NAME.rescued.batch lists the changes, removals included: \"kxvfs batch ARCHIVE "
    "NAME.rescued.batch\" makes them. The log and kxvfs umount name both.",
    &makeCommand<Mount>};

} // namespace apps::kxvfs
