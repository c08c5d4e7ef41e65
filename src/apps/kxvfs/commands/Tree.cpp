#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Entries.h>
#include <apps/kxvfs/src/Printable.h>

#include <CLI/CLI.hpp>
#include <fl/i18n/KxLocale.h>
#include <fmt/format.h>

namespace apps::kxvfs {

namespace {

struct Drawing {
    std::string_view branch;
    std::string_view last;
    std::string_view pass;
    std::string_view blank;
};

constexpr Drawing lines{"├── ", "└── ", "│   ", "    "};
constexpr Drawing ascii{"|-- ", "`-- ", "|   ", "    "};

class Tree : public Command {
public:
    void declare(CLI::App& app) override {
        app.add_flag("-d,--folders", m_foldersOnly, "Folders only");
        app.add_option("-L,--level", m_level, "Descend this many levels")
            ->type_name("N")
            ->check(CLI::PositiveNumber);
        m_locations.declare(app, false);
    }

    void run(Session& session) override {
        m_drawing = fl::i18n::KxLocale::system().codeSet() == "UTF-8" ? lines : ascii;
        for (const auto& typed : m_locations.orElse("."))
            session.attempt(typed, [&] {
                const auto place =
                    session.find(typed, storage::vfs::FileMeaning::Folder, m_locations.archive);
                const auto top = entryAt(place);
                if (session.out().isJson())
                    session.out().object(toJson(top));
                else
                    session.out().line(session.out().folderName(top.shown));
                if (top.folder)
                    draw(session, place, top);
            });
        if (!session.out().isJson())
            session.out().line(fmt::format("\n{}, {}", counted(m_folders, "folder", "folders"),
                                           counted(m_files, "file", "files")));
    }

private:
    /// An entry that waits to be drawn: the lines in front of it, and where it stands among its siblings.
    struct Pending {
        Entry entry;
        std::string indent;
        bool last;
        std::size_t level;
    };

    void draw(Session& session, const Place& place, const Entry& top) {
        std::vector<Pending> pending;
        const auto enter = [&](const Entry& folder, const std::string& indent, std::size_t level) {
            if (m_level > 0 && level > m_level)
                return;
            session.attempt(folder.shown, [&] {
                auto entries = entriesIn(session, place, folder, session.out().isJson());
                if (m_foldersOnly)
                    std::erase_if(entries, [](const Entry& entry) { return !entry.folder; });
                for (auto at = entries.size(); at-- > 0;)
                    pending.push_back({std::move(entries[at]), indent, at + 1 == entries.size(), level});
            });
        };
        enter(top, "", 1);
        while (!pending.empty()) {
            const auto next = std::move(pending.back());
            pending.pop_back();
            show(session.out(), next);
            ++(next.entry.folder ? m_folders : m_files);
            if (next.entry.folder)
                enter(next.entry, next.indent + std::string(next.last ? m_drawing.blank : m_drawing.pass),
                      next.level + 1);
        }
    }

    void show(Output& out, const Pending& next) const {
        const auto& entry = next.entry;
        if (out.isJson())
            out.object(toJson(entry));
        else
            out.line(fmt::format("{}{}{}", next.indent, next.last ? m_drawing.last : m_drawing.branch,
                                 entry.folder ? out.folderName(entry.name) : out.name(entry.name)));
    }

    Locations m_locations;
    bool m_foldersOnly = false;
    std::size_t m_level = 0;
    Drawing m_drawing = lines;
    std::size_t m_folders = 0;
    std::size_t m_files = 0;
};

} // namespace

const CommandRow treeRow{"tree", "[LOCATION...]", "Draw folders as a tree",
                         "Draws each folder or archive with all that is below it, and counts.",
                         &makeCommand<Tree>};

} // namespace apps::kxvfs
