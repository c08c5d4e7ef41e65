"""kxvfs for Windows, under Wine, is ended at any moment of its changes to an archive.

usage: ended_changes.py killed|interrupted ENDINGS WINE-COMMAND KXVFS CTRL_C

After each ending the archive must be the one before the change or the one after it, whole, as soon as one other
command has looked at it; and no stray file is left beside the archive or in the folder for temporary files, where an
interrupted command has cleaned up by itself. Only what finds the change under way counts. KX_SEED repeats a run.
The moments are found by what can be seen of a change, so that a slow machine meets the same ones as a fast one: any
moment of the time that a change takes; once the save has begun; once the new archive is in place.
"""

import os
import pathlib
import random
import shlex
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "endurance"))
import kill_anytime  # noqa: E402

MEGABYTES = 6
INTERRUPTED = 0xC000013A & 0xFF
CLEANING_SECONDS = 120
LOOK_SECONDS = 0.002
ATTEMPTS = 10


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


class Situation:
    """The folder of the archive and how the tool is run; what kill_anytime asks of one."""

    def __init__(self, root, wine, tool, ctrl_c):
        self.root, self.wine, self.tool, self.ctrl_c = root, wine, windows_path(tool), windows_path(ctrl_c)
        self.folder, self.prefix = root / "folder", root / "prefix"
        self.folder.mkdir()
        self.environment = dict(os.environ, WINEPREFIX=str(self.prefix), KX_WINEPREFIX=str(self.prefix))
        self.prepare()
        self.file = self.folder / "plans-名.zip"
        self.typed = windows_path(self.file)
        self.ending = root / "ending"

    def prepare(self):
        """A Wine prefix of its own, so that nobody else uses its folder for temporary files."""
        self.prefix.mkdir()
        # The server stays for a while without a program, which spares each of them its start.
        for command in (["wineserver", "-p60"], [*self.wine, "wineboot"]):
            subprocess.run(command, env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, check=True)
        self.temporary = next(path for path in self.prefix.glob("drive_c/users/*/Temp") if "Public" not in path.parts)
        for path in self.temporary.iterdir():
            sys.exit(f"{path} stands in a new folder for temporary files")

    def end(self):
        subprocess.run(["wineserver", "-k"], env=self.environment, check=False)

    def start(self, arguments, before=()):
        words = [windows_path(word) if str(word).startswith("/") else str(word) for word in arguments]
        # Files, since Wine's server may keep a killed process's end of a pipe for a while.
        with open(self.root / "output", "wb") as output, open(self.root / "errors", "wb") as errors:
            return subprocess.Popen([*self.wine, *before, self.tool, *words], env=self.environment,
                                    stdin=subprocess.DEVNULL, stdout=output, stderr=errors, start_new_session=True)

    def fail(self, what):
        sys.exit(f"{what}: {(self.root / 'errors').read_text(errors='replace')}")

    def is_saving(self):
        return any("kxvfs-" in path.name for path in self.folder.iterdir())

    def stamp(self):
        """Another one once another archive is in place; none while there is none."""
        try:
            status = self.file.stat()
        except FileNotFoundError:
            return None
        return status.st_ino, status.st_size, status.st_mtime_ns

    def left(self):
        """What stands beside the archive and in the temporary folder; folders may go while they are looked into."""
        temporary = [pathlib.Path(folder, name) for folder, folders, files in os.walk(self.temporary)
                     for name in folders + files]
        return [path for path in [*self.folder.iterdir(), *temporary] if path != self.file]

    def strays(self):
        """An empty folder is none: one that was killed as it made it cannot be told from one that is just starting."""
        return [path for path in self.left() if not path.is_dir() or next(os.scandir(path), None)]


class Moments:
    """When the changes are ended. How long they take, and their saves, is learnt from those that came to their end."""

    def __init__(self, situation, generator, earliest):
        self.situation, self.generator, self.earliest = situation, generator, earliest
        self.duration, self.saving = 0.0, 0.0

    def choose(self, kind):
        self.kind, self.begun, self.save_begun = kind, time.monotonic(), None
        self.stamp = self.situation.stamp()
        if kind == "saving":
            self.delay = self.generator.uniform(0, self.saving)
        else:
            self.delay = self.generator.uniform(self.earliest, 1) * self.duration

    def is_due(self):
        elapsed = time.monotonic() - self.begun
        if self.save_begun is None and self.situation.is_saving():
            self.save_begun = elapsed
        if self.kind == "any":
            return elapsed >= self.delay
        if self.kind == "saving":
            return self.save_begun is not None and elapsed >= self.save_begun + self.delay
        return self.kind == "saved" and self.situation.stamp() not in (self.stamp, None)

    def came_to_its_end(self):
        self.duration = time.monotonic() - self.begun
        if self.save_begun is not None:
            # The second half is spent on the end of the program.
            self.saving = (self.duration - self.save_begun) / 2

    def wait(self, process):
        """Whether the moment came before the end of the process."""
        while process.poll() is None:
            if self.is_due():
                return True
            time.sleep(LOOK_SECONDS)
        self.came_to_its_end()
        return False


def kill(situation, arguments, moments):
    """Runs a change and kills it. Whether it was under way."""
    process = situation.start(arguments)
    if moments.wait(process):
        os.killpg(process.pid, signal.SIGKILL)
    status = process.wait()
    if status not in (0, -signal.SIGKILL):
        situation.fail(f"{arguments} ended with {status}")
    return status == -signal.SIGKILL


def interrupt(situation, arguments, moments):
    """Runs a change and sends it Ctrl-C. Whether it was under way; everything is to be clean then. A program that is just
    starting is ended with status 0 by Wine, or not told."""
    situation.ending.unlink(missing_ok=True)
    process = situation.start(arguments, [situation.ctrl_c, windows_path(situation.ending)])
    if moments.wait(process):
        situation.ending.touch()
    status = process.wait()
    if status not in (0, INTERRUPTED):
        situation.fail(f"{arguments} ended with {status}")
    if status == 0:
        return False
    end = time.monotonic() + CLEANING_SECONDS
    while situation.left() and time.monotonic() < end:
        time.sleep(0.05)
    if situation.left():
        situation.fail(f"not cleaned up after Ctrl-C: {[str(path) for path in situation.left()]}")
    return True


def end_one(situation, end, readings, changes, moments, before):
    """Makes the next change and ends it. Whether it was under way, and the entries afterwards."""
    arguments, wanted = changes.next(before)
    was_under_way = end(situation, arguments, moments)
    where = f"after {arguments[0]} ({moments.kind}, {moments.delay:.3f} s)"
    if situation.start(["ls", f"{situation.typed}/"]).wait() != 0:
        situation.fail(f"{where}: ls failed")
    after = readings.contents(situation.file)
    if not kill_anytime.same(after, wanted) and after != before:
        sys.exit(f"{where}: the archive is neither the old nor the new one")
    if situation.strays():
        sys.exit(f"{where}: left behind: {[str(path) for path in situation.strays()]}")
    return was_under_way, after


def next_kind(counts, endings):
    """All kinds in turn; then what leads to the outcome that is missing."""
    ended = counts["old"] + counts["new"]
    if ended < endings:
        return ("any", "saving", "saved")[sum(counts.values()) % 3]
    return "saving" if not counts["old"] else "saved"


def is_enough(counts, endings):
    return counts["old"] + counts["new"] >= endings and counts["old"] and counts["new"]


def run(situation, end, endings, generator):
    kill_anytime.make_archive(situation.file, generator, MEGABYTES)
    # Wine does not tell Ctrl-C to a program that is just starting.
    moments = Moments(situation, generator, 0.4 if end is interrupt else 0)
    for name in ("first", "second"):
        moments.choose("never")
        end(situation, ["mkdir", f"{situation.typed}/{name}"], moments)
    readings = kill_anytime.Readings()
    before = readings.contents(situation.file)
    changes = kill_anytime.Changes(situation, generator)
    counts = {"old": 0, "new": 0, "too late": 0}
    while not is_enough(counts, endings) and sum(counts.values()) < ATTEMPTS * endings:
        moments.choose(next_kind(counts, endings))
        was_under_way, after = end_one(situation, end, readings, changes, moments, before)
        changes.made += after != before
        counts["too late" if not was_under_way else "old" if after == before else "new"] += 1
        before = after
    print(f"{counts['old'] + counts['new']} endings, after which the archive was the old one {counts['old']} times and "
          f"the new one {counts['new']} times; {counts['too late']} more came too late or too soon; {changes.made} "
          f"changes were made; a whole one took {moments.duration:.2f} s")
    if counts["old"] + counts["new"] < endings:
        sys.exit("hardly any ending finds a change under way: they prove nothing")
    if not counts["old"] or not changes.made:
        sys.exit("no ending has left the old archive, or no change was ever made: the endings prove nothing")
    if end is not interrupt and not counts["new"]:
        sys.exit("no ending has found the new archive in place: the endings prove nothing of that moment")


def main():
    end = {"killed": kill, "interrupted": interrupt}[sys.argv[1]]
    endings, wine = int(sys.argv[2]), shlex.split(sys.argv[3])
    seed = int(os.environ.get("KX_SEED", time.time_ns() % 1_000_000))
    print(f"KX_SEED={seed}")
    with tempfile.TemporaryDirectory(prefix="kx-ended-名-") as root:
        situation = Situation(pathlib.Path(root), wine, *sys.argv[4:])
        try:
            run(situation, end, endings, random.Random(seed))
        finally:
            situation.end()


if __name__ == "__main__":
    main()
