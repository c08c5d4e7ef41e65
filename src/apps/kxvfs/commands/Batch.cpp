#include <apps/kxvfs/commands/Commands.h>
#include <apps/kxvfs/src/ChangingCommand.h>
#include <apps/kxvfs/src/Words.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <system_error>

namespace apps::kxvfs {

namespace {

/// The commands of a list, and the option that says which archive their paths are in.
struct ListCommand {
    const CommandRow* row;
    const char* archiveOption;
};

constexpr std::array listCommands{ListCommand{&cpRow, "--into"}, ListCommand{&mvRow, "--archive"},
                                  ListCommand{&rmRow, "--archive"}, ListCommand{&mkdirRow, "--archive"},
                                  ListCommand{&touchRow, "--archive"}};

class Batch : public ChangingCommand {
public:
    void declare(CLI::App& app) override {
        app.add_option("ARCHIVE", m_archive, "The archive to change")->required();
        app.add_option("FILE", m_file, "The list of changes; standard input where it is missing or \"-\"");
    }

    void lock(Session& session) override { session.lock({{"/", m_archive}}); }

    void change(Session& session) override {
        // An archive that cannot be changed at all is told once, not for every line.
        if (!session.attempt(
                m_archive, [&] { session.findToChange("/", storage::vfs::FileMeaning::Folder, m_archive); }))
            return;
        const bool standardInput = m_file.empty() || m_file == "-";
        std::ifstream file;
        if (!standardInput) {
            file.open(m_file);
            if (!file) {
                const int error = errno;
                session.fail(m_file,
                             std::make_exception_ptr(std::system_error(error, std::generic_category())));
                return;
            }
        }
        std::istream& lines = standardInput ? std::cin : file;
        std::size_t number = 0;
        for (std::string line; std::getline(lines, line);) {
            session.setContext(fmt::format("{}:{}", standardInput ? "-" : m_file, ++number));
            doLine(session, line, standardInput);
        }
        session.setContext({});
        if (lines.bad())
            session.fail(m_file,
                         std::make_exception_ptr(std::runtime_error("cannot read the list of changes")));
    }

private:
    void doLine(Session& session, const std::string& line, bool isStandardInput) const {
        session.attempt(line, [&] {
            auto words = splitWords(line);
            if (words.empty())
                return;
            const auto known =
                std::find_if(listCommands.begin(), listCommands.end(),
                             [&](const auto& command) { return command.row->name == words.front(); });
            if (known == listCommands.end())
                throw std::invalid_argument(fmt::format(
                    "there is no change \"{}\"; there are cp, mv, rm, mkdir and touch", words.front()));
            if (isStandardInput && words.front() == cpRow.name &&
                std::find(words.begin(), words.end(), "-") != words.end())
                throw std::invalid_argument("standard input holds the list of changes");
            const auto command = known->row->make();
            CLI::App app;
            app.set_help_flag();
            command->declare(app);
            words.front() = m_archive;
            words.insert(words.begin(), known->archiveOption);
            std::reverse(words.begin(), words.end());
            app.parse(words);
            dynamic_cast<ChangingCommand&>(*command).change(session);
        });
    }

    std::string m_archive;
    std::string m_file;
};

} // namespace

const CommandRow batchRow{"batch", "ARCHIVE [FILE]", "Make a list of changes to an archive with one write",
                          "Reads changes, one a line, and makes them in their order; the archive is written "
                          "once, at the end. A change that\n"
                          "fails is reported with its line, and the others are made.\n\n"
                          "The changes are cp, mv, rm, mkdir and touch, with their options. Paths are "
                          "literal paths inside the archive, but\n"
                          "for the sources of cp, which are locations as everywhere. Words are separated by "
                          "blanks; quotes and backslashes\n"
                          "keep blanks in a word; a line that begins with \"#\" is a comment.",
                          &makeCommand<Batch>};

} // namespace apps::kxvfs
