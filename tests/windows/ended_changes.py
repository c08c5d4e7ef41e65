"""kxvfs for Windows, under Wine, is ended at random moments of its changes to an archive.

usage: ended_changes.py killed|interrupted ENDINGS WINE-COMMAND KXVFS CTRL_C

After each ending the archive must be the one before the change or the one after it, whole, as soon as one other
command has looked at it; and no stray file is left beside the archive or in the folder for temporary files, where an
interrupted command has cleaned up by itself. Only what finds the change under way counts. KX_SEED repeats a run.
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
CLEANING_SECONDS = 20


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

    def prepare(self):
        """A Wine prefix of its own, so that nobody else uses its folder for temporary files."""
        self.prefix.mkdir()
        for command in (["wineserver", "-p"], [*self.wine, "wineboot"]):
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

    def strays(self):
        return [path for path in [*self.folder.iterdir(), *self.temporary.rglob("*")] if path != self.file]


def kill(situation, arguments, moments):
    """Runs a change and kills it. Whether it was under way."""
    process = situation.start(arguments)
    started = time.monotonic()
    try:
        status = process.wait(timeout=moments.choose())
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        moments.hit(situation.strays())
        return process.wait() == -signal.SIGKILL
    if status != 0:
        situation.fail(f"{arguments} ended with {status}")
    moments.came_too_late(time.monotonic() - started)
    return False


def interrupt(situation, arguments, moments):
    """Runs a change and sends it Ctrl-C. Whether it was under way; everything is to be clean then. Wine ends a program
    that is just starting with status 0, or does not tell it."""
    moments.delay = moments.generator.uniform(0.5, 1) * moments.duration
    process = situation.start(arguments, [situation.ctrl_c, str(int(1000 * moments.delay))])
    status = process.wait()
    if status not in (0, INTERRUPTED):
        situation.fail(f"{arguments} ended with {status}")
    if status == 0:
        lasted = (situation.root / "output").read_text()
        if lasted:
            moments.came_too_late(int(lasted) / 1000)
        return False
    moments.hit(situation.strays())
    end = time.monotonic() + CLEANING_SECONDS
    while situation.strays() and time.monotonic() < end:
        time.sleep(0.05)
    if situation.strays():
        situation.fail(f"not cleaned up after Ctrl-C: {[str(path) for path in situation.strays()]}")
    return True


def end_one(situation, end, readings, changes, moments, before):
    """Makes the next change and ends it. Whether it was under way, and the entries afterwards."""
    arguments, wanted = changes.next(before)
    was_under_way = end(situation, arguments, moments)
    where = f"after {arguments[0]} ({moments.delay:.3f} s)"
    if situation.start(["ls", f"{situation.typed}/"]).wait() != 0:
        situation.fail(f"{where}: ls failed")
    after = readings.contents(situation.file)
    if not kill_anytime.same(after, wanted) and after != before:
        sys.exit(f"{where}: the archive is neither the old nor the new one")
    if situation.strays():
        sys.exit(f"{where}: left behind: {[str(path) for path in situation.strays()]}")
    return was_under_way, after


def run(situation, end, endings, generator):
    kill_anytime.make_archive(situation.file, generator, MEGABYTES)
    for name in ("first", "second"):
        started = time.monotonic()
        if situation.start(["mkdir", f"{situation.typed}/{name}"]).wait() != 0:
            situation.fail("mkdir failed")
    moments = kill_anytime.Moments(generator, time.monotonic() - started)
    readings = kill_anytime.Readings()
    before = readings.contents(situation.file)
    changes = kill_anytime.Changes(situation, generator)
    counts = {"old": 0, "new": 0, "too late": 0}
    while counts["old"] + counts["new"] < endings:
        was_under_way, after = end_one(situation, end, readings, changes, moments, before)
        changes.made += after != before
        counts["too late" if not was_under_way else "old" if after == before else "new"] += 1
        before = after
        if counts["too late"] > 8 * endings:
            sys.exit("hardly any ending finds a change under way: they prove nothing")
    print(f"{endings} endings, after which the archive was the old one {counts['old']} times and the new one "
          f"{counts['new']} times; {counts['too late']} more came too late or too soon; {moments.interrupted_saves} "
          f"found the save itself under way; {changes.made} changes were made")
    if not changes.made:
        sys.exit("no change was ever made: the endings prove nothing")


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
