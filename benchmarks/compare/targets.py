"""What the comparison is to show: our time as a multiple of another's in the same run, and our peak memory."""

import dataclasses
import typing


@dataclasses.dataclass
class Target:
    text: str
    # What has to be at most `limit`, computed from the medians and peaks by workload and participant; KeyError
    # where one of them did not take part.
    value: typing.Callable
    limit: float
    unit: str


class Results:
    """The figures of a run. `measure` is what times are compared by: the median of the clock, or the processor time,
    which other work on the machine disturbs less."""

    def __init__(self, rows, measure):
        self.rows = {row.key: row.figures for row in rows}
        self.measure = measure

    def time(self, key, name):
        return getattr(self.rows[key][name], self.measure)

    def ratio(self, key, other, ours="kxvfs"):
        return self.time(key, ours) / self.time(key, other)

    def ratio_to_fastest(self, key, chosen, ours="kxvfs"):
        """As ratio, to the fastest of the participants whose name fits."""
        others = [self.time(key, name) for name in self.rows[key] if chosen(name)]
        if not others:
            raise KeyError(key)
        return self.time(key, ours) / min(others)

    def peak(self, key, ours="kxvfs"):
        return self.rows[key][ours].peak



def is_mount(name):
    return name.endswith("(mount)")


def targets(scale):
    entries = scale.folders * scale.files_in_folder

    def per_entry(results):
        # What the process needs without the archive is that of the small one.
        return (results.peak("list") - results.peak("open-few")) * 1024 / entries

    def reading_growth(results):
        # Opening takes its own time, which listing shows; what is left is that of the reads.
        many = results.time("random", "kxvfs") - results.time("open", "kxvfs")
        few = results.time("random-few", "kxvfs") - results.time("open-few", "kxvfs")
        return many / few

    of_libzip = [
        ("list", "open and list the many entries", 1.3),
        ("random", "1,000 random reads in the archive of many entries", 2),
        ("readall", "read all of the mixed data", 2),
        ("large", "read the large entry", 1.3),
        ("add", "add a file to the archive that this system wrote", 1.5),
        ("rename", "rename a file in it", 1.5),
        ("delete", "delete a file of it", 1.5),
    ]
    for key, text, limit in of_libzip:
        yield Target(text, lambda results, key=key: results.ratio(key, "libzip"), limit, "× libzip")
    yield Target("peak memory of listing the many entries", per_entry, 1024, "bytes an entry")
    yield Target("a read among many entries, compared with one among few", reading_growth, 1.2, "×")
    yield Target("read all of the mixed data", lambda results: results.ratio("readall", "Info-ZIP"), 1, "× Info-ZIP")
    yield Target("read all of the mixed data", lambda results: results.ratio_to_fastest("readall", is_mount), 1,
                 "× the fastest mount")
    yield Target("change the archive of another writer for the first time",
                 lambda results: results.ratio("foreign", "minizip"), 1.1, "× plain minizip")
    yield Target("overwrite the large entry", lambda results: results.ratio("overwrite", "Info-ZIP"), 1.1,
                 "× Info-ZIP")
    yield Target("many files into an empty archive", lambda results: results.ratio("fill", "Info-ZIP"), 1.15,
                 "× Info-ZIP")
    yield Target("commits in one process, not synced",
                 lambda results: results.ratio("commits", "JDK zipfs", "kx_driver, not synced"), 1, "× JDK zipfs")
    for key, text in (("large", "reading the large entry"), ("overwrite", "overwriting a large entry"),
                      ("write-large", "writing the large entry"),
                      ("carry-large", "carrying the large entry over")):
        yield Target(f"peak memory of {text}", lambda results, key=key: results.peak(key) / 1024, 64, "MB")


def shown(target, results):
    try:
        value = target.value(results)
    except KeyError:
        return "not measured", None
    return f"{value:,.0f}" if value >= 100 else f"{value:.2f}", value <= target.limit


def markdown(scale, rows):
    by_clock, by_processor = Results(rows, "median"), Results(rows, "processor")
    lines = ["", "### Targets", "", "| what | at most | measured | by processor time | |", "|---|---|---|---|---|"]
    for target in targets(scale):
        value, met = shown(target, by_clock)
        other = shown(target, by_processor)[0] if target.unit.startswith("×") and met is not None else ""
        verdict = {True: "met", False: "**missed**", None: ""}[met]
        lines.append(f"| {target.text} | {target.limit:,g} {target.unit} | {value} | {other} | {verdict} |")
    return lines
