#!/usr/bin/env python3
"""What `unzip -t`, Python's zipfile and bsdtar say of archives, and of the archives that lie inside them.

usage: independent_readers.py [--json | --not-inside] ARCHIVE...

Prints what is wrong with each, nothing when all is well, and exits with 1 if anything is; with --not-inside only
what is wrong with the archive itself. With --json prints an array with the verdict_of each instead and exits with 0.
"""

import collections
import json
import os
import shutil
import subprocess
import sys
import tempfile
import zipfile
import zlib

# Names and times must not depend on where the test runs.
ENVIRONMENT = dict(os.environ, LC_ALL="C.UTF-8", TZ="UTC", UNZIP="", ZIPINFO="")
BLOCK = 1 << 20
UTF8_FLAG = 0x800
# The signatures of a local file header and of an end record: what the first bytes of an archive are.
ARCHIVE_BEGINS = (b"PK\x03\x04", b"PK\x05\x06")


def run(*command):
    """Exit status, standard output and standard error."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, env=ENVIRONMENT)
    return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")


def verdict(program):
    return {"present": shutil.which(program) is not None, "accepted": False, "output": "", "names": []}


def ask_unzip(archive):
    result = verdict("unzip")
    if not result["present"]:
        return result
    status, output, errors = run("unzip", "-t", archive)
    # Exit status 1 of an archive without entries is only a remark.
    empty = status == 1 and "zipfile is empty" in output + errors
    result["accepted"] = status == 0 or empty
    if not result["accepted"]:
        result["output"] = output + errors
    if not empty:
        result["names"] = run("unzip", "-Z1", archive)[1].splitlines()
    return result


def ask_bsdtar(archive):
    result = verdict("bsdtar")
    if not result["present"]:
        return result
    listed, names, errors = run("bsdtar", "-tf", archive)
    # The shell keeps the data, which may be gigabytes, out of the pipe. With a passphrase nobody is asked for one.
    read, _, complaints_of_reading = run(
        "sh", "-c", 'exec bsdtar --passphrase none -xOf "$1" >/dev/null', "sh", archive
    )
    result["names"] = names.splitlines()
    result["accepted"] = listed == 0 and read == 0
    result["output"] = errors + complaints_of_reading
    return result


def stored_name(info):
    """The name as it is stored, which without the UTF-8 flag zipfile takes for code page 437."""
    if info.flag_bits & UTF8_FLAG:
        return info.orig_filename
    return info.orig_filename.encode("cp437").decode("utf-8", errors="backslashreplace")


def ask_python(archive, entries, inner):
    """Reads all entries to their ends; puts those that are archives themselves into files of the folder `inner`."""
    result = verdict("python3")
    try:
        with zipfile.ZipFile(archive) as opened:
            for info in opened.infolist():
                crc = size = 0
                copy = None
                with opened.open(info) as stream:
                    while block := stream.read(BLOCK):
                        if size == 0 and block.startswith(ARCHIVE_BEGINS):
                            copy = open(os.path.join(inner, str(len(entries))), "wb")
                        crc = zlib.crc32(block, crc)
                        size += len(block)
                        if copy:
                            copy.write(block)
                if copy:
                    copy.close()
                if size != info.file_size:
                    raise zipfile.BadZipFile(f"{info.filename!r}: {size} bytes read, {info.file_size} promised")
                entries.append([stored_name(info), size, crc, info.date_time, info.compress_type, info.flag_bits])
                result["names"].append(entries[-1][0])
        result["accepted"] = True
    except (zipfile.BadZipFile, zlib.error, NotImplementedError, RuntimeError, EOFError, OSError, ValueError) as error:
        result["output"] = f"{type(error).__name__}: {error}"
    return result


def plain(names):
    """Those names that every program prints the same way, with how often each is there."""
    return collections.Counter(name for name in names if name.isascii() and name.isprintable() and "\\" not in name)


def complaints(result, look_inside):
    """What is wrong with the archive, one sentence a line."""
    entries = result["entries"]
    for program in ("unzip", "python3", "bsdtar"):
        said = result[program]
        if not said["present"]:
            yield f"{program} is not installed"
        elif not said["accepted"]:
            yield f"{program} does not accept the archive: {said['output'].strip()}"
        elif len(said["names"]) != len(entries):
            yield f"{program} sees {len(said['names'])} entries instead of {len(entries)}"
        elif plain(entry[0] for entry in entries) - plain(said["names"]):
            yield f"{program} sees other names: {said['names']}"
    for name, size, *_ in entries:
        if name.endswith("/") and size:
            yield f"the folder {name} has {size} bytes"
    for place, inside in result["inside"].items() if look_inside else ():
        for problem in inside["problems"]:
            yield f"in {place}: {problem}"


def verdict_of(archive, look_inside=True):
    """All that there is to say of one archive: a verdict of each program with `present`, `accepted`, `output` and
    `names`; `entries`, each with name, size, CRC-32 of the bytes that were read, date, method and flags; `inside`,
    the same of every entry that is an archive, by its name; `problems`, empty when all is well (without look_inside
    those of the archives inside do not count).
    """
    result = {"unzip": ask_unzip(archive), "entries": [], "inside": {}}
    with tempfile.TemporaryDirectory(prefix="independent-readers-") as inner:
        result["python3"] = ask_python(archive, result["entries"], inner)
        for name in os.listdir(inner):
            result["inside"][result["entries"][int(name)][0]] = verdict_of(os.path.join(inner, name))
    result["bsdtar"] = ask_bsdtar(archive)
    result["problems"] = list(complaints(result, look_inside))
    return result


def main():
    arguments = sys.argv[1:]
    if arguments[:1] == ["--json"]:
        json.dump([verdict_of(archive) for archive in arguments[1:]], sys.stdout)
        return
    look_inside = arguments[:1] != ["--not-inside"]
    failed = False
    for archive in arguments if look_inside else arguments[1:]:
        for problem in verdict_of(archive, look_inside)["problems"]:
            failed = True
            print(f"{archive}: {problem}")
    sys.exit(failed)


if __name__ == "__main__":
    main()
