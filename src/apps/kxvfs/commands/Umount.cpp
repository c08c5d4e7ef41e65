#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Progress.h>
#include <apps/kxvfs/src/Session.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <storage/mount/MountRecord.h>

#include <filesystem>
#include <vector>

namespace apps::kxvfs {

namespace fs = std::filesystem;
using foundation::storage::provider::ErrorCode;
using storage::mount::MountRecord;
using storage::mount::MountWatch;

namespace {

class Umount : public Command {
public:
    void declare(CLI::App& app) override {
        app.add_option("DIR", m_folders, "The folders that show archives")->required();
    }

    void run(Session& session) override {
        for (const auto& folder : m_folders)
            session.attempt(folder, [&] { unmount(session, folder); });
    }

private:
    /// A folder whose server is gone cannot be asked for its own name, its parent can.
    static fs::path mountPoint(const std::string& typed) {
        auto folder = fs::absolute(typed).lexically_normal();
        if (!folder.has_filename())
            folder = folder.parent_path();
        std::error_code failure;
        if (auto canonical = fs::canonical(folder, failure); !failure)
            return canonical;
        const auto parent = fs::canonical(folder.parent_path(), failure);
        return failure ? folder : parent / folder.filename();
    }

    static void unmount(Session& session, const std::string& typed) {
        const auto folder = mountPoint(typed);
        const auto watch = MountWatch::find(folder);
        if (!watch)
            throw CommandError(ErrorCode::NotFound, "no archive of this user is mounted there");
        const auto before = watch->look();
        if (!before.ended)
            release(folder, before);
        // Another namespace of mounts (a container, a service) may show the archive, too; nobody here uses
        // it.
        watch->end();
        if (!session.options().quiet && before.condition.unsavedChanges > 0)
            ProgressLine::show("saving …");
        const auto after = watch->waitForEnd();
        ProgressLine::clear();
        watch->forget();
        if (!after.ended)
            throw CommandError(
                ErrorCode::LocalFileSystem,
                fmt::format("the process that served it was killed; what it had not saved ({} changes) "
                            "is lost, the archive is as it was last saved",
                            after.condition.unsavedChanges));
        report(session, typed, after);
    }

    static void release(const fs::path& folder, const MountRecord& before) {
        try {
            // What nobody serves any more is of no use to those who have it open.
            storage::mount::unmount(folder, !before.alive);
        } catch (const std::system_error&) {
            // A process that was killed may have been unmounted by somebody else.
            if (before.alive)
                throw;
        }
    }

    static std::string rescued(const MountRecord& after) {
        std::string text;
        if (const auto& list = after.condition.rescueList; !list.empty())
            text += fmt::format("; \"kxvfs batch {} {}\" makes the changes", after.archive, list.string());
        if (const auto& archive = after.condition.rescue; !archive.empty())
            text += fmt::format("; the changed files are kept in {}", archive.string());
        return text;
    }

    static void report(Session& session, const std::string& typed, const MountRecord& after) {
        if (!after.failure.empty())
            session.fail(
                typed, ErrorCode::LocalFileSystem,
                fmt::format("{} could not be saved: {}{}", after.archive, after.failure, rescued(after)));
        else if (session.out().isJson())
            session.out().object(
                {{"path", typed}, {"archive", after.archive}, {"saves", after.condition.saves}});
    }

    std::vector<std::string> m_folders;
};

} // namespace

const CommandRow umountRow{
    "umount", "DIR...", "Unmount an archive, and tell whether everything was saved",
    "Unmounts each folder and waits until the archive's last changes are saved. The exit status is 1 when "
    "they could not be; the message names the archive into which the changed files were put, and the command "
    "that brings them into the archive. Where a container or a service with mounts of its own shows the "
    "archive, too, it ends there as well.",
    &makeCommand<Umount>};

} // namespace apps::kxvfs
