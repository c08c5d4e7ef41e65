"""`kxvfs mount` beside another program that mounts ZIP archives, in the same run and on the same files.

usage: mount.py KXVFS [PEER] [ROUNDS]

PEER mounts with `PEER ARCHIVE DIR` and saves when `fusermount -u DIR` has it end (default: fuse-zip). Each task runs
ROUNDS times (default 3) with each program, in turns; the table shows the best time of each in seconds and, in brackets,
how many times as long PEER takes; the standard error output has all times. Where there is /dev/shm, `kxvfs` also runs
with its working files there (PEER has none); the archive is on the same disk for all. Mounting is not timed; unpacking
ends when the archive is written and the program is gone.

tasks
  walk     find -ls over 1,000 folders with 100 files each
  read     reading all of 10,000 files of 4 KiB
  unpack   tar -x of eight copies of this repository's sources, up to the saved archive
"""

import contextlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent


class Ours:
    name = "kxvfs mount"

    def __init__(self, tool, folder, working_files=None):
        self.tool = tool
        state = str(folder / "state")
        self.environment = dict(os.environ, XDG_RUNTIME_DIR=state, XDG_STATE_HOME=state)
        if working_files:
            self.name += ", TMPDIR in memory"
            self.environment["TMPDIR"] = working_files

    def mount(self, archive, place):
        subprocess.run([self.tool, "mount", archive, place], env=self.environment, check=True)

    def unmount(self, place):
        subprocess.run([self.tool, "umount", place], env=self.environment, check=True)


class Peer:
    def __init__(self, program):
        self.program = program
        self.name = pathlib.Path(program).name
        self.process = None

    def mount(self, archive, place):
        # In the foreground, so that its end can be waited for.
        self.process = subprocess.Popen([self.program, "-f", archive, place], stderr=subprocess.DEVNULL)
        for _ in range(2000):
            if os.path.ismount(place):
                return
            time.sleep(0.005)
        sys.exit(f"{self.name} does not mount {archive}")

    def unmount(self, place):
        subprocess.run(["fusermount", "-u", place], check=True)
        if self.process.wait() != 0:
            sys.exit(f"{self.name} failed")


def make_archive(path, folders, files, content):
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for folder in range(folders):
            for file in range(files):
                entry = zipfile.ZipInfo(f"folder-{folder:04}/file-{file:03}.txt", (2024, 5, 31, 14, 7, 22))
                entry.compress_type = zipfile.ZIP_DEFLATED
                # Without a type in its mode, an entry is unreadable to some.
                entry.external_attr = 0o100644 << 16
                archive.writestr(entry, content(folder * files + file))


def timed(command):
    begun = time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return time.monotonic() - begun


def walk(mounter, work, place):
    mounter.mount(work / "walk.zip", place)
    seconds = timed(["find", place, "-ls"])
    mounter.unmount(place)
    return seconds


def read(mounter, work, place):
    mounter.mount(work / "read.zip", place)
    seconds = timed(["find", place, "-type", "f", "-exec", "cat", "{}", "+"])
    mounter.unmount(place)
    return seconds


def unpack(mounter, work, place):
    target = work / "unpack.zip"
    shutil.copy(work / "start.zip", target)
    mounter.mount(target, place)
    begun = time.monotonic()
    subprocess.run(["tar", "-C", place, "--no-same-owner", "-xf", work / "tree.tar"], check=True)
    mounter.unmount(place)
    seconds = time.monotonic() - begun
    subprocess.run(["unzip", "-tqq", target], check=True)
    return seconds


def prepare(work, copies):
    make_archive(work / "walk.zip", 1000, 100, lambda number: b"x")
    make_archive(work / "read.zip", 100, 100, lambda number: (f"line {number}\n" * 600)[:4096].encode())
    make_archive(work / "start.zip", 1, 1, lambda number: b"start")
    tree = work / "tree"
    for copy in range(copies):
        for folder in ("src", "tests", "docs", "fuzz", "examples"):
            shutil.copytree(ROOT / folder, tree / f"copy-{copy}" / folder)
    subprocess.run(["tar", "-C", tree, "-cf", work / "tree.tar", "."], check=True)
    return sum(1 for path in tree.rglob("*") if path.is_file())


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    tool = pathlib.Path(sys.argv[1]).resolve()
    peer = shutil.which(sys.argv[2] if len(sys.argv) > 2 else "fuse-zip")
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 3
    if not os.access("/dev/fuse", os.R_OK | os.W_OK):
        sys.exit("/dev/fuse cannot be used here")
    if not peer:
        sys.exit("the program to compare with is not installed")
    with contextlib.ExitStack() as folders:
        work = pathlib.Path(folders.enter_context(tempfile.TemporaryDirectory(prefix="mount-benchmark-")))
        place = work / "mnt"
        place.mkdir()
        unpacked = prepare(work, 8)
        mounters = [Ours(tool, work)]
        if os.path.isdir("/dev/shm"):
            mounters.append(Ours(tool, work, folders.enter_context(tempfile.TemporaryDirectory(dir="/dev/shm"))))
        mounters.append(Peer(peer))
        tasks = [("walk 100,000 entries", walk), ("read 10,000 files", read), (f"unpack {unpacked:,} files", unpack)]
        print("| task | " + " | ".join(mounter.name for mounter in mounters) + " |")
        print("|---|" + "---|" * len(mounters))
        for title, task in tasks:
            times = [[] for _ in mounters]
            for _ in range(rounds):
                for mounter, taken in zip(mounters, times):
                    taken.append(task(mounter, work, place))
                    print(f"{title}: {mounter.name} {taken[-1]:.2f} s", file=sys.stderr)
            best = [min(taken) for taken in times]
            cells = [f"{seconds:.2f} s ({best[-1] / seconds:.1f})" for seconds in best[:-1]]
            print(f"| {title} | " + " | ".join(cells) + f" | {best[-1]:.2f} s |", flush=True)


main()
