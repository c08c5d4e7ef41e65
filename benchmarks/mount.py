"""`kxvfs mount` beside another program that mounts ZIP archives, in the same run and on the same files.

usage: mount.py KXVFS [PEER] [ROUNDS]

PEER mounts with `PEER ARCHIVE DIR` and saves when `fusermount -u DIR` has it end (default: fuse-zip). Each task runs
ROUNDS times (default 3) with each program, in turns; the table shows the best time of each in seconds, and the standard
error output has all of them. Mounting is not timed; unpacking ends when the archive is written and the program is gone.

tasks
  walk     find -ls over 1,000 folders with 100 files each
  read     reading all of 10,000 files of 4 KiB
  unpack   tar -x of eight copies of this repository's sources, up to the saved archive
"""

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

    def __init__(self, tool, folder):
        self.tool = tool
        state = str(folder / "state")
        self.environment = dict(os.environ, XDG_RUNTIME_DIR=state, XDG_STATE_HOME=state)

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
    with tempfile.TemporaryDirectory(prefix="mount-benchmark-") as folder:
        work = pathlib.Path(folder)
        place = work / "mnt"
        place.mkdir()
        unpacked = prepare(work, 8)
        mounters = [Ours(tool, work), Peer(peer)]
        tasks = [("walk 100,000 entries", walk), ("read 10,000 files", read), (f"unpack {unpacked:,} files", unpack)]
        print(f"| task | {mounters[0].name} | {mounters[1].name} | ratio |\n|---|---|---|---|")
        for title, task in tasks:
            best = [float("inf"), float("inf")]
            for _ in range(rounds):
                for number, mounter in enumerate(mounters):
                    seconds = task(mounter, work, place)
                    best[number] = min(best[number], seconds)
                    print(f"{title}: {mounter.name} {seconds:.2f} s", file=sys.stderr)
            print(f"| {title} | {best[0]:.2f} s | {best[1]:.2f} s | {best[1] / best[0]:.1f} |", flush=True)


main()
