#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace apps::kxvfs {

class Session;

/// One command of the tool: what it can be told, and what it does.
class Command {
public:
    virtual ~Command() = default;

    /// Adds the command's options and arguments. They are bound to members.
    virtual void declare(CLI::App& app) = 0;
    /// Does it, with the options set. Failures of single operations go to Session::fail; what is thrown ends
    /// the command.
    virtual void run(Session& session) = 0;
    /// Whether local files that it writes must be on the storage medium before it goes on.
    virtual bool needsDurableFiles() const { return false; }
    /// Whether it ends by itself when a signal asks for that (waitForSignal), instead of being ended.
    virtual bool endsItself() const { return false; }
};

/// A row of the table that the command line, the help and the manual page are made from.
struct CommandRow {
    std::string_view name;
    /// The arguments behind the name.
    std::string_view usage;
    /// One line.
    std::string_view help;
    /// Whole sentences for the manual page and --help; paragraphs separated by empty lines.
    std::string_view description;
    std::unique_ptr<Command> (*make)();
};

/// All commands, in the order in which the help shows them.
std::span<const CommandRow> commandTable();

template <typename T>
std::unique_ptr<Command> makeCommand() {
    return std::make_unique<T>();
}

} // namespace apps::kxvfs
