#pragma once

#include <apps/kxvfs/src/Command.h>
#include <apps/kxvfs/src/Session.h>

#include <CLI/CLI.hpp>

#include <memory>
#include <vector>

namespace apps::kxvfs {

/// The parser of the whole command line, with one subcommand for each row of the table.
class CommandLine {
public:
    CommandLine();

    CLI::App& app() { return m_app; }
    const GlobalOptions& options() const { return m_options; }

    struct Declared {
        const CommandRow* row;
        CLI::App* app;
        std::unique_ptr<Command> command;
    };
    const std::vector<Declared>& commands() const { return m_commands; }
    /// The one that was named; null when none was.
    const Declared* chosen() const;

private:
    CLI::App m_app;
    GlobalOptions m_options;
    std::vector<Declared> m_commands;
};

} // namespace apps::kxvfs
