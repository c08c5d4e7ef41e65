"""Copying everything out of an archive that is not in the page cache.

usage: cold_copy.py KXVFS [ROUNDS]

Two archives hold the same 10,000 files of 4 to 12 KiB in 100 folders: one in the order of the folders' listings, the
other in a random order. Before each copy the archive is dropped from the page cache. A tool that jumps about in the
second archive is slower there; one that reads in the archive's own order is not. `unzip` reads in the archive's order;
`kxvfs cat` of all files by name shows what jumping costs. What is copied, and working files, go to memory (/dev/shm), so
that nothing but reading the archive touches the medium. The table shows the median of ROUNDS (default 5) in seconds;
every file that was copied is compared.
"""

import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import zipfile

FILES = 10_000


def contents():
    source = random.Random(1)
    return {
        f"{i % 100:02d}/{i // 100:03d}.bin": source.randbytes(source.randrange(4096, 12288)) for i in range(FILES)
    }


def make(archive, files, names):
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as out:
        for name in names:
            out.writestr(name, files[name])


def drop(archive):
    descriptor = os.open(archive, os.O_RDONLY)
    os.fsync(descriptor)
    os.posix_fadvise(descriptor, 0, 0, os.POSIX_FADV_DONTNEED)
    os.close(descriptor)


def timed(command, archive, **options):
    drop(archive)
    started = time.monotonic()
    subprocess.run(command, check=True, **options)
    return time.monotonic() - started


def compared(folder, files):
    for name, content in files.items():
        if (folder / name).read_bytes() != content:
            sys.exit(f"{folder / name} differs")


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    tool = str(pathlib.Path(sys.argv[1]).resolve())
    rounds = int(sys.argv[2]) if len(sys.argv) == 3 else 5
    files = contents()
    listed = sorted(files)
    mixed = random.Random(2).sample(listed, len(listed))
    with tempfile.TemporaryDirectory() as name, tempfile.TemporaryDirectory(dir="/dev/shm") as memory:
        work = pathlib.Path(name)
        os.environ["TMPDIR"] = memory
        archives = {"in the order of the listing": work / "listed.zip", "in a random order": work / "mixed.zip"}
        make(work / "listed.zip", files, listed)
        make(work / "mixed.zip", files, mixed)
        out = pathlib.Path(memory) / "out"
        columns = {
            "kxvfs cp -r": lambda archive: [tool, "cp", "-r", str(archive) + "/", str(out)],
            "unzip": lambda archive: ["unzip", "-q", "-d", str(out), str(archive)],
            "kxvfs cat, by name": lambda archive: [tool, "cat", "-a", str(archive), *listed],
        }
        copying = ("kxvfs cp -r", "unzip")
        times = {row: {column: [] for column in columns} for row in archives}
        for _ in range(rounds):
            for row, archive in archives.items():
                for column, command in columns.items():
                    times[row][column].append(timed(command(archive), archive, stdout=subprocess.DEVNULL))
                    if column in copying:
                        compared(out, files)
                        shutil.rmtree(out)
        print("| archive | " + " | ".join(columns) + " |")
        print("|---|" + "---|" * len(columns))
        for row in archives:
            cells = (f"{statistics.median(seconds):.2f}" for seconds in times[row].values())
            print(f"| {row} | " + " | ".join(cells) + " |")


if __name__ == "__main__":
    main()
