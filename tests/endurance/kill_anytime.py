"""A loop of changes to an archive of 60 MB is killed (SIGKILL) at random moments.

usage: kill_anytime.py KXVFS plain|hard-linked|symlinked|unwritable|full-disk KILLS

After each kill the archive must be the one before the change or the one after it, whole, as soon as one other
command has looked at it; its owner, mode, links and extended attributes are what they were; and that command
leaves no stray file. What a change that failed by itself has kept, and named in its message, is no stray: it is
taken away as a user would. Only a kill that finds the change under way counts. KX_SEED repeats a run.
"""

import hashlib
import os
import pathlib
import pwd
import random
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import zipfile
import zlib

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support" / "archives"))
import independent_readers  # noqa: E402

ARCHIVE_MEGABYTES = 60
SKIPPED = 77


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


class Situation:
    """The folder of the archive, what the tool runs as, and what must not change."""

    def __init__(self, kind, tool):
        self.kind = kind
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="kill-anytime-"))
        self.root.chmod(0o755)
        self.user = {}
        self.mounted = False
        self.tool = pathlib.Path(tool).resolve()
        self.folder = self.root / "folder"
        self.folder.mkdir()
        self.state = self.make_private("state")
        self.temporary = self.make_private("tmp")
        if kind == "full-disk":
            # Room for the archive and its copy, but not for much more.
            command = ["mount", "-t", "tmpfs", "-o", f"size={ARCHIVE_MEGABYTES * 2 + 6}m", "none", self.folder]
            if subprocess.run(command, capture_output=True).returncode != 0:
                self.remove()
                skip("a small file system cannot be mounted here")
            self.mounted = True
        self.file = self.folder / "plans.zip"
        self.typed = self.file

    def make_private(self, name):
        path = self.root / name
        path.mkdir()
        return path

    def arrange(self):
        os.chmod(self.file, 0o640)
        if self.kind == "hard-linked":
            os.link(self.file, self.root / "other-name.zip")
        if self.kind == "symlinked":
            self.typed = self.root / "link.zip"
            self.typed.symlink_to("folder/plans.zip")
        if self.kind == "unwritable":
            self.make_unwritable()
        if self.kind == "full-disk":
            self.fill_disk(64 * 1024)
        try:
            os.setxattr(self.file, "user.project", b"plans")
        except OSError:
            print("extended attributes cannot be set here; they are not compared")

    def fill_disk(self, room):
        """Leaves so many bytes on the small file system."""
        ballast = self.folder / "ballast"
        ballast.unlink(missing_ok=True)
        fill = shutil.disk_usage(self.folder).free - room
        if fill > 0:
            with open(ballast, "wb") as file:
                os.posix_fallocate(file.fileno(), 0, fill)

    def make_unwritable(self):
        if os.getuid() == 0:
            # Nothing is unwritable to root, so the tool runs as somebody else, who owns the archive.
            nobody = pwd.getpwnam("nobody")
            self.user = {"user": nobody.pw_uid, "group": nobody.pw_gid, "extra_groups": []}
            for path in (self.file, self.state, self.temporary):
                os.chown(path, nobody.pw_uid, nobody.pw_gid)
        self.folder.chmod(0o555)
        if subprocess.run([self.tool, "--version"], capture_output=True, **self.user).returncode != 0:
            skip("the tool cannot be run by the user nobody here")
        if subprocess.run(["touch", self.folder / "probe"], capture_output=True, **self.user).returncode == 0:
            sys.exit("the folder of the archive is writable after all")

    def environment(self):
        return dict(os.environ, XDG_STATE_HOME=str(self.state), TMPDIR=str(self.temporary), HOME=str(self.state),
                    TZ="America/St_Johns")

    def start(self, *arguments):
        return subprocess.Popen([self.tool, *map(str, arguments)], env=self.environment(),
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                start_new_session=True, **self.user)

    def identity(self):
        status = os.stat(self.file)
        attributes = {name: os.getxattr(self.file, name) for name in os.listxattr(self.file)}
        link = os.readlink(self.typed) if self.kind == "symlinked" else None
        same_inode = None
        if self.kind == "hard-linked":
            same_inode = status.st_ino == os.stat(self.root / "other-name.zip").st_ino
        return (status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode), status.st_nlink, attributes, link,
                same_inode)

    def strays(self):
        expected = {"plans.zip", "ballast"}
        found = [path for path in self.folder.iterdir() if path.name not in expected]
        for place in (self.state, self.temporary):
            found += [path for path in place.rglob("*") if not path.is_dir()]
        return found

    def take_away_kept(self, message, killed):
        """A save that failed on the full disk keeps its archive, which must be whole, and says where. One that was
        killed may have had no time to say it."""
        for folder in {path.parent for path in self.temporary.glob("*/kept-*")}:
            kept = list(folder.glob("kept-*"))
            if len(kept) != 1 or self.kind != "full-disk":
                sys.exit(f"kept for no reason: {folder}: {message}")
            if not killed and f"is kept as {kept[0]}" not in message:
                sys.exit(f"{kept[0]} was kept without a word: {message}")
            problems = independent_readers.verdict_of(str(kept[0]))["problems"]
            if problems:
                sys.exit(f"the kept archive {kept[0]} is damaged: {problems}")
            shutil.rmtree(folder)

    def remove(self):
        if self.mounted:
            subprocess.run(["umount", "-l", self.folder], check=False)
        else:
            self.folder.chmod(0o755)
        shutil.rmtree(self.root, ignore_errors=True)


def make_archive(path, generator, megabytes=ARCHIVE_MEGABYTES):
    with zipfile.ZipFile(path, "w", zipfile.ZIP_STORED) as archive:
        for number in range(megabytes):
            stamp = (2021, 1 + number % 12, 1 + number % 28, number % 24, number, 2 * (number % 30))
            archive.writestr(zipfile.ZipInfo(f"data/block-{number:02}.bin", stamp), generator.randbytes(1 << 20))
        archive.writestr(zipfile.ZipInfo("note.txt", (2020, 2, 29, 23, 59, 58)), "before\n")


class Readings:
    """What independent readers see in the archive. One that was seen before is known by its bytes."""

    def __init__(self):
        self.known = {}

    def contents(self, path):
        """Name to checksum and time of every entry; the end of the test when any reader complains."""
        with open(path, "rb") as archive:
            digest = hashlib.file_digest(archive, "blake2b").digest()
        if digest not in self.known:
            verdict = independent_readers.verdict_of(str(path))
            if verdict["problems"]:
                sys.exit(f"the archive is damaged: {verdict['problems']}")
            self.known[digest] = {name: (crc, tuple(date)) for name, _, crc, date, *_ in verdict["entries"]}
        return self.known[digest]


class Changes:
    """Changes of every kind, and what each makes of the entries. None stands for a time of its own."""

    def __init__(self, situation, generator):
        self.typed = situation.typed
        self.note = situation.root / "note.txt"
        self.generator = generator
        self.made = 0

    def next(self, before):
        """The arguments of the tool, and the entries afterwards."""
        possible = [self.copy]
        if "added.txt" in before:
            possible.append(self.remove)
        if "folder/" not in before:
            possible.append(self.make_folder)
        else:
            possible.append(self.remove_folder)
            if "folder/note.txt" in before:
                possible.append(self.move_out)
            elif "note.txt" in before:
                possible.append(self.move_in)
        after = dict(before)
        return self.generator.choice(possible)(after), after

    def copy(self, entries):
        self.note.write_text(f"change {self.made}\n" * 100)
        self.note.chmod(0o644)
        entries["added.txt"] = (zlib.crc32(self.note.read_bytes()), None)
        return ["cp", self.note, f"{self.typed}/added.txt"]

    def remove(self, entries):
        del entries["added.txt"]
        return ["rm", f"{self.typed}/added.txt"]

    def make_folder(self, entries):
        entries["folder/"] = (0, None)
        return ["mkdir", f"{self.typed}/folder"]

    def move_in(self, entries):
        entries["folder/note.txt"] = entries.pop("note.txt")
        return ["mv", f"{self.typed}/note.txt", f"{self.typed}/folder/note.txt"]

    def move_out(self, entries):
        entries["note.txt"] = entries.pop("folder/note.txt")
        return ["mv", f"{self.typed}/folder/note.txt", f"{self.typed}/note.txt"]

    def remove_folder(self, entries):
        for name in ("folder/", "folder/note.txt"):
            entries.pop(name, None)
        return ["rm", "-r", f"{self.typed}/folder"]


def same(found, wanted):
    return found.keys() == wanted.keys() and all(
        found[name][0] == crc and date in (None, found[name][1]) for name, (crc, date) in wanted.items())


class Moments:
    """When the kills come: half of them at any moment of the time that a change takes, which is learnt on the way,
    half of them towards its end, where the archive is saved."""

    def __init__(self, generator, duration):
        self.generator = generator
        self.duration = max(duration, 0.05)
        self.tenths = [0] * 10
        self.interrupted_saves = 0

    def choose(self):
        begin = self.generator.choice((0, 0.6 * self.duration))
        self.delay = self.generator.uniform(begin, self.duration)
        return self.delay

    def came_too_late(self, lasted):
        self.duration = 0.8 * self.duration + 0.2 * lasted

    def hit(self, strays):
        self.tenths[min(9, int(10 * self.delay / self.duration))] += 1
        self.interrupted_saves += any("kxvfs-" in path.name for path in strays)
        self.duration *= 1.01


def finish(process):
    """Waits for a command; what it printed as messages."""
    return process.communicate()[1].decode()


def kill_one(situation, readings, changes, moments, before, unchanged):
    """Starts the next change and kills it. Whether it was killed, and the entries afterwards."""
    if situation.kind == "full-disk":
        # Full from the beginning, full in the middle of the save, or just not full.
        size = situation.file.stat().st_size
        situation.fill_disk(moments.generator.choice((64 << 10, moments.generator.randrange(size), size + (1 << 20))))
    arguments, wanted = changes.next(before)
    process = situation.start(*arguments)
    started = time.monotonic()
    try:
        _, errors = process.communicate(timeout=moments.choose())
        killed = False
        moments.came_too_late(time.monotonic() - started)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        _, errors = process.communicate()
        killed = process.returncode == -signal.SIGKILL
        moments.hit(situation.strays())
    situation.take_away_kept(errors.decode(), killed)
    where = f"after {arguments[0]} was {'killed' if killed else 'done'} ({moments.delay:.3f} s)"
    # One other command looks at the archive; whatever has to be recovered is recovered by it.
    look = situation.start("ls", f"{situation.typed}/")
    errors = finish(look)
    if look.returncode != 0:
        sys.exit(f"{where}: ls failed: {errors}")
    after = readings.contents(situation.file)
    if not same(after, wanted) and after != before:
        sys.exit(f"{where}: the archive is neither the old nor the new one")
    if situation.identity() != unchanged:
        sys.exit(f"{where}: {situation.identity()} instead of {unchanged}")
    strays = situation.strays()
    if strays:
        sys.exit(f"{where}: left behind: {[str(path) for path in strays]}")
    return killed, after


def run(situation, kills, generator):
    make_archive(situation.file, generator)
    situation.arrange()
    unchanged = situation.identity()
    # A first change makes the archive one of the tool's own; it may fail where the disk is full.
    for name in ("first", "second"):
        started = time.monotonic()
        situation.take_away_kept(finish(situation.start("mkdir", f"{situation.typed}/{name}")), False)
    moments = Moments(generator, time.monotonic() - started)
    readings = Readings()
    before = readings.contents(situation.file)
    changes = Changes(situation, generator)
    counts = {"old": 0, "new": 0, "too late": 0}
    while counts["old"] + counts["new"] < kills:
        killed, after = kill_one(situation, readings, changes, moments, before, unchanged)
        changes.made += after != before
        counts["too late" if not killed else "old" if after == before else "new"] += 1
        before = after
        if counts["too late"] > 2 * kills:
            sys.exit("hardly any kill finds a change under way: they prove nothing")
    print(f"{situation.kind}: {kills} kills, after which the archive was the old one {counts['old']} times and the "
          f"new one {counts['new']} times; {counts['too late']} more came too late")
    print(f"kills by tenths of a change's time: {moments.tenths}; {moments.interrupted_saves} interrupted the save "
          f"itself; {changes.made} changes were made, {len(readings.known)} different archives read")
    if not changes.made:
        sys.exit("no change was ever made: the kills prove nothing")


def main():
    tool, kind, kills = sys.argv[1], sys.argv[2], int(sys.argv[3])
    seed = int(os.environ.get("KX_SEED", time.time_ns() % 1_000_000))
    print(f"KX_SEED={seed}")
    situation = Situation(kind, tool)
    try:
        run(situation, kills, random.Random(seed))
    finally:
        situation.remove()


if __name__ == "__main__":
    main()
