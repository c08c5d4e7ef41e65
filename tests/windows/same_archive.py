"""Whether kxvfs for Windows, under Wine, and kxvfs for this machine write the same archive, byte for byte.

usage: same_archive.py KXVFS WINDOWS-COMMAND...

Both make an archive by the same commands from the same files. Archives store times in steps of two seconds, so each
command is run by both within one such step; where the machine was too busy for that, both archives are put back and the
command is run again.
"""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import zipfile

NAMES = ["plain.txt", "umlaut-äöü.txt", "日本語.txt", "emoji-😀.txt"]
STEP = 2
ATTEMPTS = 20


class Side:
    """One of the two tools, with a folder of its own."""

    def __init__(self, tool, folder, path_of):
        self.tool, self.folder, self.path_of = tool, folder, path_of
        self.archive, self.kept = folder / "archive-名.zip", folder / "kept"
        for number, name in enumerate(NAMES):
            (folder / name).write_bytes((name * 500).encode() + bytes(range(256)) * number)
        (folder / "empty.txt").write_bytes(b"")
        (folder / "tree" / "Below").mkdir(parents=True)
        for name in ["b.txt", "A.txt", "Z.txt", "ä.txt", "Below/x"]:
            (folder / "tree" / name).write_bytes(name.encode())

    def keep(self):
        if self.archive.exists():
            shutil.copyfile(self.archive, self.kept)

    def put_back(self):
        self.archive.unlink()
        if self.kept.exists():
            shutil.copyfile(self.kept, self.archive)

    def run(self, words, given):
        """In the words, "{}" stands for the folder and "{a}" for the archive."""
        places = {"a": self.path_of(self.archive)}
        line = [word.format(self.path_of(self.folder), **places) for word in words]
        done = subprocess.run([*self.tool, *line], input=given, capture_output=True)
        if done.returncode != 0:
            sys.exit(f"{line} ended with {done.returncode}: {done.stderr.decode(errors='replace')}")


def step():
    return int(time.time()) // STEP


def run_on(sides, words, given=b""):
    for side in sides:
        side.keep()
    for _ in range(ATTEMPTS):
        time.sleep(STEP - time.time() % STEP)
        begin = step()
        for side in sides:
            side.run(words, given)
        if step() == begin:
            return
        for side in sides:
            side.put_back()
    sys.exit(f"the machine is too busy to run {words} twice within {STEP} s")


def work(sides):
    run_on(sides, ["create", "{a}"])
    run_on(sides, ["mkdir", "-p", "{a}/docs/ordner-ß"])
    run_on(sides, ["cp", *["{}/" + name for name in [*NAMES, "empty.txt"]], "{a}/docs/"])
    run_on(sides, ["cp", "-r", "{}/tree", "{a}/"])
    run_on(sides, ["write", "{a}/notes.md"], b"# notes\n" * 100)
    run_on(sides, ["write", "--append", "{a}/notes.md"], b"more\n")
    run_on(sides, ["mv", "{a}/docs/plain.txt", "{a}/docs/ordner-ß/moved.txt"])
    run_on(sides, ["rm", "{a}/docs/empty.txt"])


def main():
    native, windows = sys.argv[1], sys.argv[2:]
    with tempfile.TemporaryDirectory(prefix="kx-same-名-") as first, tempfile.TemporaryDirectory(
        prefix="kx-same-名-"
    ) as second:
        sides = [
            Side([native], pathlib.Path(first), str),
            Side(windows, pathlib.Path(second), lambda path: "Z:" + str(path).replace("/", "\\")),
        ]
        work(sides)
        results = [side.archive.read_bytes() for side in sides]
        for side in sides:
            with zipfile.ZipFile(side.archive) as archive:
                if archive.testzip() is not None:
                    sys.exit(f"{side.archive} holds damaged data")
                # The names are UTF-8 without the flag that says so.
                names = {name.encode("cp437").decode() for name in archive.namelist()}
            if not {"notes.md", "docs/日本語.txt", "docs/emoji-😀.txt", "docs/ordner-ß/moved.txt", "tree/Below/x"} <= names:
                sys.exit(f"{side.archive} holds {sorted(names)}")
    if results[0] != results[1]:
        sys.exit("the two archives differ")
    print(f"{len(results[0])} bytes are equal")


if __name__ == "__main__":
    main()
