#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Entries.h>
#include <apps/kxvfs/src/Printable.h>
#include <apps/kxvfs/src/Terminal.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace apps::kxvfs {

namespace {

class Ls : public Command {
public:
    void declare(CLI::App& app) override {
        app.add_flag("-l", m_long, "Type, size, time and name, one entry a line");
        app.add_flag("-R,--recursive", m_recursive, "List the folders below too");
        app.add_flag("-1", m_single, "One name a line, also on a terminal");
        app.add_flag("-d,--directory", m_itself, "List a folder itself, not what is in it");
        app.add_flag("-h,--human-readable", m_human, "With -l, sizes like 1.4M");
        m_locations.declare(app, false);
    }

    void run(Session& session) override {
        const auto locations = m_locations.orElse(".");
        m_headings = locations.size() > 1 || m_recursive;
        std::vector<Entry> files;
        std::vector<std::pair<Place, Entry>> folders;
        for (const auto& typed : locations)
            session.attempt(typed, [&] {
                auto place = session.find(typed, storage::vfs::FileMeaning::Folder, m_locations.archive);
                auto entry = entryAt(place);
                entry.name = entry.shown;
                if (entry.folder && !m_itself)
                    folders.emplace_back(std::move(place), std::move(entry));
                else
                    files.push_back(std::move(entry));
            });
        print(session, files);
        m_first = files.empty();
        for (const auto& [place, entry] : folders)
            list(session, place, entry);
    }

private:
    void list(Session& session, const Place& place, const Entry& top) {
        std::vector<Entry> pending{top};
        while (!pending.empty()) {
            const auto folder = std::move(pending.back());
            pending.pop_back();
            session.attempt(folder.shown, [&] {
                auto entries = entriesIn(session, place, folder, m_long || session.out().isJson());
                heading(session.out(), folder);
                print(session, entries);
                if (m_recursive)
                    std::copy_if(std::make_move_iterator(entries.rbegin()),
                                 std::make_move_iterator(entries.rend()), std::back_inserter(pending),
                                 [](const Entry& entry) { return entry.folder; });
            });
        }
    }

    void heading(Output& out, const Entry& folder) {
        if (!m_headings || out.isJson())
            return;
        if (!m_first)
            out.line("");
        m_first = false;
        out.line(out.name(folder.shown) + ":");
    }

    void print(Session& session, const std::vector<Entry>& entries) const {
        auto& out = session.out();
        if (out.isJson())
            for (const auto& entry : entries)
                out.object(toJson(entry));
        else if (m_long)
            printLong(out, entries);
        else if (m_single || !outputIsTerminal())
            for (const auto& entry : entries)
                out.line(shownName(out, entry));
        else
            printColumns(out, entries);
    }

    std::string size(const Entry& entry) const {
        if (!entry.size)
            return entry.folder ? "0" : "?";
        return m_human ? humanSize(*entry.size) : std::to_string(*entry.size);
    }

    void printLong(Output& out, const std::vector<Entry>& entries) const {
        std::size_t width = 1;
        for (const auto& entry : entries)
            width = std::max(width, size(entry).size());
        for (const auto& entry : entries)
            out.line(fmt::format("{} {:>{}} {} {}", entry.folder ? 'd' : '-', size(entry), width,
                                 shownTime(entry.modified), shownName(out, entry)));
    }

    static std::string shownName(const Output& out, const Entry& entry) {
        return entry.folder ? out.folderName(entry.name) : out.name(entry.name);
    }

    /// As many columns as fit, filled from the top.
    static void printColumns(Output& out, const std::vector<Entry>& entries) {
        std::size_t widest = 0;
        for (const auto& entry : entries)
            widest = std::max(widest, shownWidth(out.name(entry.name)));
        const auto columns = std::max<std::size_t>(1, (terminalWidth() + 2) / (widest + 2));
        const auto rows = (entries.size() + columns - 1) / columns;
        for (std::size_t row = 0; row < rows; ++row) {
            std::string line;
            for (auto at = row; at < entries.size(); at += rows) {
                line += shownName(out, entries[at]);
                if (at + rows < entries.size())
                    line.append(widest + 2 - shownWidth(out.name(entries[at].name)), ' ');
            }
            out.line(line);
        }
    }

    Locations m_locations;
    bool m_long = false;
    bool m_recursive = false;
    bool m_single = false;
    bool m_itself = false;
    bool m_human = false;
    bool m_headings = false;
    bool m_first = true;
};

} // namespace

const CommandRow lsRow{
    "ls", "[LOCATION...]", "List folders and archives",
    "Lists what is in each folder or archive, in the order of the names. Without a location, the\n"
    "current folder. A file inside an archive that is no archive itself is listed alone.",
    &makeCommand<Ls>};

} // namespace apps::kxvfs
