"""stress-ng's file-system stressors inside a mounted archive.

usage: stress.py KXVFS SECONDS

Each must succeed, but those that ask for what an archive has no place for. The mount must be alive and right afterwards:
files written before and during the run read back as they were, it unmounts cleanly, and `unzip -t` accepts the archive.
Prints what was run; exits with 77 where it cannot be.
"""

import hashlib
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
# Stressors that work on no folder of a file system, or that take over the machine.
LEFT_OUT = {"binderfs", "bind-mount", "dup", "eventfd", "iomix", "ioprio", "procfs", "sysfs"}
# Stressors of files that stress-ng counts among others.
MORE = ["aio", "aiol", "mmap", "readahead", "revio", "seek", "sendfile"]
NOT_SUPPORTED = 3
# What a mounted archive refuses; stress-ng says so and goes on.
REFUSED = {"link": "hard links", "symlink": "symbolic links", "xattr": "extended attributes"}
LIMITS = ["--hdd-bytes", "16m", "--fallocate-bytes", "16m", "--seek-size", "16m", "--dir-dirs", "256", "--dentries",
          "256", "--sync-file-bytes", "16m", "--mmap-file", "--mmap-bytes", "16m", "--aio-requests", "4"]


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def stressors():
    listed = subprocess.run(["stress-ng", "--class", "filesystem?"], capture_output=True, text=True)
    text = (listed.stdout + listed.stderr).partition("stressors:")[2]
    names = [name for name in re.findall(r"[\w-]+", text) if name not in LEFT_OUT]
    if not names:
        sys.exit("stress-ng names no file-system stressors")
    return names + MORE


def main():
    tool, seconds = sys.argv[1], int(sys.argv[2])
    if not os.access("/dev/fuse", os.R_OK | os.W_OK):
        skip("/dev/fuse cannot be used here")
    if not shutil.which("stress-ng"):
        skip("stress-ng is not installed")
    folder = pathlib.Path(tempfile.mkdtemp(prefix="mount-stress-"))
    environment = dict(os.environ, XDG_RUNTIME_DIR=str(folder / "state"), XDG_STATE_HOME=str(folder / "state"))
    archive, place = folder / "plans.zip", folder / "mnt"
    for path in (place, folder / "state"):
        path.mkdir()

    def run(*command):
        return subprocess.run(command, env=environment, capture_output=True, text=True)

    def must(*command):
        result = run(*command)
        if result.returncode != 0:
            sys.exit(f"{command}: {result.stdout}{result.stderr}")
        return result.stdout

    must(tool, "create", archive)
    must(tool, "mount", archive, place)
    generator = random.Random(1)
    kept = {}
    try:
        (place / "kept").mkdir()
        names = stressors()
        each = max(1, seconds // len(names))
        for number, name in enumerate(names):
            content = generator.randbytes(generator.randrange(1, 100_000))
            kept[f"kept/{number}"] = hashlib.sha256(content).hexdigest()
            (place / f"kept/{number}").write_bytes(content)
            work = place / "work"
            work.mkdir(exist_ok=True)
            result = run("stress-ng", "--temp-path", work, "--timeout", f"{each}s", f"--{name}", "2", *LIMITS, "--verify")
            print(f"{name}: status {result.returncode}", flush=True)
            if not os.path.ismount(place):
                sys.exit(f"the mount died under {name}")
            expected = NOT_SUPPORTED if name in REFUSED else 0
            if result.returncode != expected:
                sys.exit(f"{name} ended with status {result.returncode}: {result.stdout}{result.stderr}")
            for path, digest in kept.items():
                if hashlib.sha256((place / path).read_bytes()).hexdigest() != digest:
                    sys.exit(f"{path} changed under {name}")
            subprocess.run(["rm", "-rf", work], check=False)
        must(tool, "umount", place)
        must("unzip", "-tqq", archive)
    finally:
        if os.path.ismount(place):
            run("umount", "-l", place)
    shutil.rmtree(folder, ignore_errors=True)
    print(f"{len(names)} stressors, {each} seconds each")


main()
