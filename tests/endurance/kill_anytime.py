"""A loop of changes to an archive of 60 MB is killed (SIGKILL) at random moments.

usage: kill_anytime.py KXVFS plain|hard-linked|symlinked|unwritable|full-disk KILLS

After each kill the archive must be the one before the change or the one after it, whole, as soon as one other
command has looked at it; its owner, mode, links and extended attributes are what they were; and that command
leaves no stray file. What a change that failed by itself has kept, and named in its message, is no stray: it is
taken away as a user would. KX_SEED repeats a run.
"""

import os
import pathlib
import pwd
import random
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import zipfile
import zlib

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
        self.user = None
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
            if os.getuid() == 0:
                # Nothing is unwritable to root.
                nobody = pwd.getpwnam("nobody")
                self.user = nobody.pw_uid
                for path in (self.file, self.state, self.temporary):
                    os.chown(path, nobody.pw_uid, nobody.pw_gid)
                probe = subprocess.run([self.tool, "--version"], user=self.user, capture_output=True)
                if probe.returncode != 0:
                    skip("the tool cannot be run by the user nobody here")
            self.folder.chmod(0o555)
        if self.kind == "full-disk":
            room = shutil.disk_usage(self.folder).free
            ballast = self.folder / "ballast"
            ballast.write_bytes(bytes(max(0, room - 64 * 1024)))
        try:
            os.setxattr(self.file, "user.project", b"plans")
        except OSError:
            print("extended attributes cannot be set here; they are not compared")

    def environment(self):
        return dict(os.environ, XDG_STATE_HOME=str(self.state), TMPDIR=str(self.temporary), HOME=str(self.state))

    def start(self, *arguments):
        return subprocess.Popen([self.tool, *map(str, arguments)], env=self.environment(), user=self.user,
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                start_new_session=True)

    def identity(self):
        status = os.stat(self.file)
        attributes = {}
        for name in os.listxattr(self.file):
            attributes[name] = os.getxattr(self.file, name)
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

    def take_away_kept(self, message):
        for kept in re.findall(r"is kept as (.*)", message):
            folder = pathlib.Path(kept).parent
            if folder != self.temporary:
                shutil.rmtree(folder)

    def remove(self):
        if self.mounted:
            subprocess.run(["umount", "-l", self.folder], check=False)
        else:
            self.folder.chmod(0o755)
        shutil.rmtree(self.root, ignore_errors=True)


def make_archive(path, generator):
    with zipfile.ZipFile(path, "w", zipfile.ZIP_STORED) as archive:
        for number in range(ARCHIVE_MEGABYTES):
            archive.writestr(f"data/block-{number:02}.bin", generator.randbytes(1 << 20))
        archive.writestr("note.txt", "before\n")


def contents(path):
    """Name to checksum of every entry, each one read."""
    with zipfile.ZipFile(path) as archive:
        damaged = archive.testzip()
        if damaged:
            sys.exit(f"the archive is damaged: {damaged}")
        return {entry.filename: entry.CRC for entry in archive.infolist()}


def run(situation, kills, generator):
    make_archive(situation.file, generator)
    situation.arrange()
    note = situation.root / "note.txt"
    # A first change makes the archive one of the tool's own; it may fail where the disk is full.
    first = situation.start("mkdir", f"{situation.typed}/first")
    _, errors = first.communicate()
    situation.take_away_kept(errors.decode())
    started = time.monotonic()
    second = situation.start("mkdir", f"{situation.typed}/second")
    _, errors = second.communicate()
    situation.take_away_kept(errors.decode())
    duration = max(time.monotonic() - started, 0.05)
    unchanged = situation.identity()
    before = contents(situation.file)
    outcomes = {"old": 0, "new": 0, "finished": 0}
    for number in range(kills):
        note.write_text(f"change {number}\n")
        note.chmod(0o644)
        target = f"{situation.typed}/changed-{number % 7}.txt"
        process = situation.start("cp", note, target)
        delay = generator.uniform(0, duration)
        started = time.monotonic()
        try:
            _, errors = process.communicate(timeout=delay)
            outcomes["finished"] += 1
            # The next kills come sooner, so that most of them find the change under way.
            duration = 0.9 * duration + 0.1 * (time.monotonic() - started)
            situation.take_away_kept(errors.decode())
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            duration *= 1.02
        # One other command looks at the archive; whatever has to be recovered is recovered by it.
        look = situation.start("ls", f"{situation.typed}/")
        _, errors = look.communicate()
        if look.returncode != 0:
            sys.exit(f"kill {number}: ls failed: {errors.decode()}")
        after = contents(situation.file)
        wanted = dict(before)
        wanted[f"changed-{number % 7}.txt"] = zlib.crc32(note.read_bytes())
        if after == wanted:
            outcomes["new"] += 1
        elif after == before:
            outcomes["old"] += 1
        else:
            sys.exit(f"kill {number}: the archive is neither the old nor the new one")
        if situation.identity() != unchanged:
            sys.exit(f"kill {number}: {situation.identity()} instead of {unchanged}")
        strays = situation.strays()
        if strays:
            sys.exit(f"kill {number}: left behind: {[str(path) for path in strays]}")
        before = after
    print(f"{situation.kind}: {kills} kills, {outcomes['finished']} came too late; afterwards the archive was "
          f"the old one {outcomes['old']} times and the new one {outcomes['new']} times")
    if situation.kind != "full-disk" and not outcomes["new"]:
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


main()
