#include <apps/kxvfs/src/CommandLine.h>

#include <fmt/format.h>

#include <algorithm>

namespace apps::kxvfs {

namespace {

class Formatter : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        for (const auto& row : commandTable())
            if (app->get_name() == row.name)
                return fmt::format("Usage: kxvfs {} [OPTIONS] {}\n", row.name, row.usage);
        return CLI::Formatter::make_usage(app, std::move(name));
    }
};

} // namespace

CommandLine::CommandLine()
    : m_app("Work with files inside ZIP archives as if they were folders: plans.zip/docs/a.txt.", "kxvfs") {
    m_app.formatter(std::make_shared<Formatter>());
    m_app.set_version_flag("--version", "kxvfs " KXVFS_VERSION);
    m_app.set_help_flag("-h,--help", "Print this help and end");
    m_app.add_flag("--json", m_options.json, "Print one JSON document instead of text");
    m_app.add_flag("-q,--quiet", m_options.quiet, "No progress and no notes; failures are still reported");
    m_app.add_flag("-v,--verbose", m_options.verbosity,
                   "Log what is done to standard error; twice: in detail");
    m_app.require_subcommand(0, 1);
    // Locations may begin with a slash on every system.
    m_app.allow_windows_style_options(false);
    m_app.fallthrough();
    for (const auto& row : commandTable()) {
        auto* app = m_app.add_subcommand(std::string(row.name), std::string(row.help));
        auto command = row.make();
        app->set_help_flag("--help", "Print this help and end");
        command->declare(*app);
        app->description(std::string(row.help) + ".");
        app->footer("\n" + std::string(row.description));
        m_commands.push_back({&row, app, std::move(command)});
    }
    m_app.footer(
        "\nA path that goes through a regular file goes on inside it: that file is an archive, and archives "
        "nest.\nkxvfs COMMAND --help tells about one command.");
}

const CommandLine::Declared* CommandLine::chosen() const {
    const auto found = std::find_if(m_commands.begin(), m_commands.end(),
                                    [](const Declared& declared) { return declared.app->parsed(); });
    return found == m_commands.end() ? nullptr : &*found;
}

} // namespace apps::kxvfs
