"""The comparison's actions (see driver.h) over Python's zipfile."""

import pathlib
import shutil
import sys
import zipfile


def paths(folder):
    return pathlib.Path(folder + "-paths.txt").read_text().splitlines()


def add(archive, name, file):
    with zipfile.ZipFile(archive, "a", zipfile.ZIP_DEFLATED) as out:
        out.write(file, name)


def main(action, archive, *arguments):
    if action == "add":
        add(archive, *arguments)
        return
    if action == "fill":
        with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as out:
            for name in paths(arguments[0]):
                out.write(f"{arguments[0]}/{name}", name)
        return
    if action == "commits":
        for name in paths(arguments[0])[:int(arguments[1])]:
            add(archive, name, f"{arguments[0]}/{name}")
        return
    with zipfile.ZipFile(archive) as opened:
        if action == "list":
            print("\n".join(opened.namelist()))
            return
        names = {"read": lambda: pathlib.Path(arguments[0]).read_text().splitlines(),
                 "readall": opened.namelist,
                 "cat": lambda: arguments}[action]()
        for name in names:
            with opened.open(name) as entry:
                shutil.copyfileobj(entry, sys.stdout.buffer, 1 << 18)


main(*sys.argv[1:])
