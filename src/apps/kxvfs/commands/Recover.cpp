#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Entries.h>
#include <apps/kxvfs/src/Session.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <storage/vfs/Recovery.h>

#include <vector>

namespace apps::kxvfs {

using foundation::storage::provider::StorageIRI;
using storage::vfs::RecoveryResult;

namespace {

struct Wording {
    const char* code;
    const char* sentence;
};

Wording wordingOf(RecoveryResult result) {
    switch (result) {
    case RecoveryResult::Undone:
        return {"undone", "an interrupted write was undone; the archive is the old one"};
    case RecoveryResult::Finished:
        return {"finished", "an interrupted write was finished; the archive is the new one"};
    case RecoveryResult::LeftAlone:
        return {"left alone", "what an interrupted write left belongs to another file or cannot be removed"};
    case RecoveryResult::Nothing:
        break;
    }
    return {"nothing", "nothing to recover"};
}

class Recover : public Command {
public:
    void declare(CLI::App& app) override {
        app.add_option("ARCHIVE", m_archives, "The archives to recover")->required();
    }

    void run(Session& session) override {
        for (const auto& typed : m_archives)
            session.attempt(typed, [&] {
                // Not gone into: opening it would recover it without a word.
                const auto file = session.resolver().localContainer(typed, true);
                if (!file)
                    throw CommandError(foundation::storage::provider::ErrorCode::NotFound,
                                       "there is no such archive");
                show(session, typed, *file, storage::vfs::recoverContainer(*file));
            });
    }

private:
    static void show(Session& session, const std::string& typed, const StorageIRI& file,
                     const storage::vfs::Recovery& recovery) {
        const auto wording = wordingOf(recovery.result);
        auto& out = session.out();
        if (out.isJson()) {
            auto object = toJson(entryAt({{file, typed}, session.vfs().mount(file)}));
            object["result"] = wording.code;
            object["details"] = recovery.details;
            out.object(object);
            return;
        }
        out.line(fmt::format("{}: {}", out.name(typed), wording.sentence));
        for (const auto& detail : recovery.details)
            out.line("  " + out.name(detail));
    }

    std::vector<std::string> m_archives;
};

} // namespace

const CommandRow recoverRow{
    "recover", "ARCHIVE...", "Finish or undo an interrupted write",
    "A process that was killed while it wrote an archive leaves files from which the write can be finished "
    "or undone.\n"
    "Every command does that by itself when it opens the archive; this one says what it did. "
    "Bytes that a stop\n"
    "of the system may have garbled are kept in a copy, NAME.before-recovery, which is named.",
    &makeCommand<Recover>};

} // namespace apps::kxvfs
