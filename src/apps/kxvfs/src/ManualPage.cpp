#include <apps/kxvfs/src/ManualPage.h>

#include <apps/kxvfs/src/CommandLine.h>

#include <fmt/format.h>

namespace apps::kxvfs {

namespace {

/// Text as roff prints it: no request at the start of a line, no escape, a plain hyphen.
std::string roff(std::string_view text) {
    std::string safe;
    bool lineStart = true;
    for (const char c : text) {
        if (lineStart && (c == '.' || c == '\''))
            safe += "\\&";
        if (c == '\\')
            safe += "\\e";
        else if (c == '-')
            safe += "\\-";
        else
            safe += c;
        lineStart = c == '\n';
    }
    return safe;
}

std::string paragraphs(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto end = std::min(text.find("\n\n"), text.size());
        result += ".PP\n" + roff(text.substr(0, end)) + "\n";
        text.remove_prefix(std::min(end + 2, text.size()));
    }
    return result;
}

/// "N" of "N:POSITIVE": what a value is called, without what is checked of it.
std::string typeName(const CLI::Option& option) {
    const auto type = option.get_type_name();
    return type.substr(0, type.find(':'));
}

std::string options(const CLI::App& app) {
    std::string result;
    for (const auto* option : app.get_options()) {
        if (option->get_positional() || option->get_description().empty())
            continue;
        std::string names;
        for (const auto& name : option->get_snames())
            names += (names.empty() ? "\\-" : ", \\-") + name;
        for (const auto& name : option->get_lnames())
            names += (names.empty() ? "\\-\\-" : ", \\-\\-") + roff(name);
        if (option->get_expected_min() > 0 && !option->get_type_name().empty())
            names += " " + typeName(*option);
        result += fmt::format(".TP\n.B {}\n{}\n", names, roff(option->get_description()));
    }
    return result;
}

constexpr std::string_view introduction =
    R"(kxvfs lists, reads and changes files inside ZIP archives as if an archive were a folder.

A path is walked from the left. Its first component that is a regular file is an archive, since a file has no
children, whatever its name: plans.zip/docs/a.txt. Archives nest: outer.zip/inner.zip/x. The name of an archive
alone means its root where a command works on folders, and the file elsewhere; with a trailing "/" it always means
the root. plans.zip!/docs/a.txt and full storage IRIs (zip:file:///home/me/plans.zip!/docs/a.txt) are understood
too.

All changes that one command makes to an archive are written together, as one new archive that takes the place of
the old one when it is whole. A command that is interrupted (Ctrl-C) leaves the old archive, or the new one, and
nothing else; interrupting it again ends it before it has removed its working files, which the next run does then.
Commands that change the same archive wait for one another.

With --json, results are one array of objects with path, type, size and modified. A command that changes something
tells what it did, with action and, where there is one, source, once that is saved; what could not be saved is not
among them, but has an object with the error.

On a terminal, what takes long shows how far it is.

Times are shown and stored as UTC.)";

constexpr std::string_view environment =
    R"(.TP
.B KXVFS_PROVIDERS
Folders to look for provider bundles in, separated by ":".
.TP
.B KX_LOG
What is logged to standard error, as \-v does: "info" or "debug", optionally with ":" and channels.
.TP
.B NO_COLOR
Where set, nothing is coloured.
.TP
.B TMPDIR
Where working files are kept while an archive is changed.
)";

constexpr std::string_view exitStatus =
    R"(.TP
.B 0
Everything was done.
.TP
.B 1
At least one operation failed; each has its message on standard error, with \-\-json also an object with an error.
What did not fail was done.
.TP
.B 2
The command line was wrong; nothing was done.
)";

} // namespace

std::string manualPage() {
    CommandLine line;
    std::string page = ".TH KXVFS 1 \"\" \"kxvfs " KXVFS_VERSION "\" \"User Commands\"\n"
                       ".SH NAME\nkxvfs \\- work with files inside ZIP archives\n"
                       ".SH SYNOPSIS\n.B kxvfs\n[\\-\\-json] [\\-q] [\\-v] COMMAND ...\n.SH DESCRIPTION\n";
    page += paragraphs(introduction);
    page += ".SH OPTIONS\nThey may stand before or behind the command.\n" + options(line.app());
    page += ".SH COMMANDS\n";
    for (const auto& declared : line.commands()) {
        page += fmt::format(".SS {} {}\n", declared.row->name, roff(declared.row->usage));
        page +=
            roff(declared.row->help) + ".\n" + paragraphs(declared.row->description) + options(*declared.app);
    }
    page += ".SH ENVIRONMENT\n" + std::string(environment);
    page += ".SH EXIT STATUS\n" + std::string(exitStatus);
    return page;
}

} // namespace apps::kxvfs
