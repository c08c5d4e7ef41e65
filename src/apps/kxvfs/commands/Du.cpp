#include <apps/kxvfs/commands/Arguments.h>
#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/Entries.h>
#include <apps/kxvfs/src/Printable.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace apps::kxvfs {

namespace {

class Du : public Command {
public:
    void declare(CLI::App& app) override {
        app.add_flag("-s,--summarize", m_totalsOnly, "Only the total of each location");
        app.add_flag("--all", m_files, "Files too, not only folders");
        app.add_flag("-h,--human-readable", m_human, "Sizes like 1.4M");
        m_locations.declare(app, false);
    }

    void run(Session& session) override {
        for (const auto& typed : m_locations.orElse("."))
            session.attempt(typed, [&] {
                const auto place =
                    session.find(typed, storage::vfs::FileMeaning::Folder, m_locations.archive);
                measure(session, place, entryAt(place));
            });
    }

private:
    /// A folder that is being added up: its entries that are still to come stand reversed.
    struct Open {
        Entry folder;
        std::vector<Entry> rest;
        std::uint64_t bytes = 0;
    };

    void measure(Session& session, const Place& place, const Entry& top) {
        if (!top.folder) {
            show(session.out(), top, top.size.value_or(0));
            return;
        }
        std::vector<Open> open;
        open.push_back(begin(session, place, top));
        while (!open.empty()) {
            auto& current = open.back();
            if (current.rest.empty()) {
                const auto bytes = current.bytes;
                if (!m_totalsOnly || open.size() == 1)
                    show(session.out(), current.folder, bytes);
                open.pop_back();
                if (!open.empty())
                    open.back().bytes += bytes;
                continue;
            }
            auto entry = std::move(current.rest.back());
            current.rest.pop_back();
            if (entry.folder) {
                open.push_back(begin(session, place, entry));
                continue;
            }
            current.bytes += entry.size.value_or(0);
            if (m_files && !m_totalsOnly)
                show(session.out(), entry, entry.size.value_or(0));
        }
    }

    static Open begin(Session& session, const Place& place, const Entry& folder) {
        Open open{folder, {}, 0};
        session.attempt(folder.shown, [&] {
            open.rest = entriesIn(session, place, folder, true);
            std::reverse(open.rest.begin(), open.rest.end());
        });
        return open;
    }

    void show(Output& out, const Entry& entry, std::uint64_t bytes) const {
        if (out.isJson()) {
            auto object = toJson(entry);
            object["size"] = bytes;
            out.object(object);
        } else {
            out.line(fmt::format("{}\t{}", m_human ? humanSize(bytes) : std::to_string(bytes),
                                 out.name(entry.shown)));
        }
    }

    Locations m_locations;
    bool m_totalsOnly = false;
    bool m_files = false;
    bool m_human = false;
};

} // namespace

const CommandRow duRow{
    "du", "[LOCATION...]", "Add up the sizes of files",
    "Prints how many bytes the files in each folder hold together, uncompressed, the folders below\n"
    "first.",
    &makeCommand<Du>};

} // namespace apps::kxvfs
