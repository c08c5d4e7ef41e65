#!/usr/bin/env python3
"""Tells what the test suite has run of the sources, and why it has not run the rest.

usage: tools/coverage.py BUILD

BUILD is a folder of the preset `coverage` in which the tests have been run. Printed are lines and branches run of
each component, how many lines each reason of tools/uncovered.toml explains, and the places that none explains; the
pages for reading go to BUILD/report/index.html. Branches that only an exception takes do not count.

A place is a row of lines with code, none of which ran. An entry of the list explains the places of its files that
hold one of its pieces of text, or all of them where it has none.
Exit status: 0, 2 when gcovr fails: what runs depends on the machine, so a place without a reason is for reading.
"""

import collections
import json
import pathlib
import subprocess
import sys
import tomllib

SOURCE = pathlib.Path(__file__).resolve().parent.parent
COLUMNS = "{:<32} {:>7} {:>7} {:>7}   {:>7} {:>7} {:>7}"


def measured(build):
    """What gcovr knows of each file of src/."""
    report = build / "report"
    report.mkdir(exist_ok=True)
    data = report / "coverage.json"
    command = ["gcovr", "--root", SOURCE, "--filter", "src/", "--exclude-throw-branches", "--json", data,
               "--html-details", report / "index.html", build]
    if subprocess.run(command, cwd=SOURCE).returncode != 0:
        sys.exit(2)
    return json.loads(data.read_text())["files"]


def component(file):
    """The folder of a file below src/, without a trailing `src`."""
    parts = pathlib.PurePosixPath(file).parent.parts[1:]
    return "/".join(parts[:parts.index("src")] if "src" in parts else parts[:2]) or "."


def code_lines(file):
    return [line for line in file["lines"] if not line.get("gcovr/noncode") and not line.get("gcovr/excluded")]


def branches(lines):
    return [branch for line in lines for branch in line["branches"] if not branch.get("throw")]


def print_totals(files):
    rows = collections.defaultdict(lambda: [0, 0, 0, 0])
    for file in files:
        lines = code_lines(file)
        taken = branches(lines)
        figures = (len(lines), sum(line["count"] > 0 for line in lines),
                   len(taken), sum(branch["count"] > 0 for branch in taken))
        for row in (rows[component(file["file"])], rows["all"]):
            for column, figure in enumerate(figures):
                row[column] += figure
    whole = rows.pop("all")
    print(COLUMNS.format("component", "lines", "run", "%", "branch.", "run", "%"))
    for name, row in [*sorted(rows.items()), ("all", whole)]:
        shares = [f"{100 * run / count:.1f}" if count else "" for count, run in (row[:2], row[2:])]
        print(COLUMNS.format(name, row[0], row[1], shares[0], row[2], row[3], shares[1]))


def places(file):
    """Rows of lines with code that did not run: their numbers and texts."""
    texts = (SOURCE / file["file"]).read_text().splitlines()
    row = []
    for line in code_lines(file) + [None]:
        if line and line["count"] == 0:
            row.append((line["line_number"], texts[line["line_number"] - 1]))
        elif row:
            yield row
            row = []


def explains(entry, file, place):
    if not any(file == name or name.endswith("/") and file.startswith(name) for name in entry["files"]):
        return False
    return "texts" not in entry or bool(texts_in(entry, place))


def texts_in(entry, place):
    return [text for text in entry.get("texts", []) if any(text in line for _, line in place)]


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    files = measured(build)
    print_totals(files)
    listed = tomllib.loads((SOURCE / "tools" / "uncovered.toml").read_text())
    entries = [dict(place, because=listed["reasons"][place["because"]]) for place in listed["place"]]
    explained, used, open_places = collections.Counter(), collections.defaultdict(set), []
    for file in files:
        for place in places(file):
            number = next((n for n, entry in enumerate(entries) if explains(entry, file["file"], place)), None)
            if number is None:
                open_places.append((file["file"], place))
            else:
                used[number].update(texts_in(entries[number], place))
                explained[entries[number]["because"]] += len(place)
    print("\nnot run, and why:")
    for because, count in explained.most_common():
        print(f"{count:>5} lines: {because}")
    for file, place in open_places:
        print(f"{file}:{place[0][0]}: {len(place)} lines without a reason: {place[0][1].strip()}")
    print(f"{sum(explained.values())} lines with a reason, {sum(len(place) for _, place in open_places)} without")
    for number, entry in enumerate(entries):
        idle = set(entry.get("texts", [])) - used[number] if number in used else ["all of it"]
        for text in sorted(idle):
            print(f"tools/uncovered.toml: explains nothing: {text} ({entry['because']})", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
