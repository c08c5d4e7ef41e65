#include <apps/kxvfs/src/CommandLine.h>
#include <apps/kxvfs/src/Interruption.h>
#include <apps/kxvfs/src/ManualPage.h>
#include <apps/kxvfs/src/ProgramStart.h>
#include <apps/kxvfs/src/Progress.h>
#include <apps/kxvfs/src/Session.h>
#include <apps/kxvfs/src/TemporarySpace.h>

#include <foundation/log/control.h>
#include <storage/vfs/Recovery.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

using namespace apps::kxvfs;

namespace {

constexpr int usageStatus = 2;

/// Nothing is made beside a local file from here on that is not among these.
std::vector<std::string> locationsBeingSaved() {
    std::vector<std::string> locations;
    for (const auto& file : storage::vfs::haltSaves())
        locations.push_back(file.toUtf8());
    return locations;
}

int complain(const CommandLine::Declared* command, std::string_view problem) {
    const std::string name = command ? fmt::format("kxvfs {}", command->row->name) : "kxvfs";
    fmt::print(stderr, "{}: {}\nTry '{} --help'.\n",
               command ? fmt::format("kxvfs: {}", command->row->name) : name, problem, name);
    return usageStatus;
}

int run(const CommandLine::Declared& chosen, const GlobalOptions& options) {
    Session session(std::string(chosen.row->name), options, chosen.command->needsDurableFiles());
    try {
        chosen.command->run(session);
    } catch (const OutputError&) {
        throw;
    } catch (const UsageError&) {
        throw;
    } catch (...) {
        session.fail("cannot go on");
    }
    session.out().finish();
    return session.exitStatus();
}

int guardedRun(const CommandLine::Declared& chosen, const GlobalOptions& options) {
    try {
        return run(chosen, options);
    } catch (const UsageError& problem) {
        return complain(&chosen, problem.what());
    } catch (const OutputError& failure) {
        if (failure.code().value() == EPIPE)
            return -1;
        fmt::print(stderr, "kxvfs: {}: {}\n", chosen.row->name, failure.what());
        return 1;
    }
}

int parse(CommandLine& line, int count, char** arguments) {
    try {
        line.app().parse(count, arguments);
    } catch (const CLI::ParseError& problem) {
        if (problem.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
            return line.app().exit(problem);
        const auto rest = line.app().remaining();
        if (!line.chosen() && !rest.empty() && !rest.front().starts_with('-'))
            return complain(nullptr, fmt::format("there is no command \"{}\"", rest.front()));
        return complain(line.chosen(), problem.what());
    }
    return -1;
}

} // namespace

int main(int count, char** arguments) {
    prepareArguments(count, arguments);
    finishInterruptedRun(count, arguments);
    useUtc();
    ignoreBrokenPipes();
    // For the build and for packagers, not for people: no option of the help.
    if (count == 2 && std::string_view(arguments[1]) == "--manual-page") {
        fmt::print("{}", manualPage());
        return EXIT_SUCCESS;
    }

    CommandLine line;
    if (const int status = parse(line, count, arguments); status >= 0)
        return status;
    const auto* chosen = line.chosen();
    if (!chosen) {
        fmt::print(stderr, "{}", line.app().help());
        return usageStatus;
    }
    if (line.options().verbosity > 0)
        foundation::log::enable(line.options().verbosity > 1 ? foundation::log::severity::debug
                                                             : foundation::log::severity::info);

    TemporarySpace::removeAbandoned();
    holdSignals();
    TemporarySpace temporary;
    if (!chosen->command->endsItself())
        endOnSignals([folder = temporary.folder()] {
            return Remains{folder, locationsBeingSaved(), ProgressLine::isShown()};
        });
    const int status = guardedRun(*chosen, line.options());
    for (const auto& rescued : temporary.keepRescued())
        fmt::print(stderr, "kxvfs: {}: the archive that could not be put in place is kept as {}\n",
                   chosen->row->name, rescued.string());
    temporary.remove();
    if (status < 0)
        endByBrokenPipe();
    return status;
}
