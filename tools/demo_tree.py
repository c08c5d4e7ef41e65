#!/usr/bin/env python3
"""Makes the folder tree that the demo packs: the repository's own documents and sources, and enough variations
of them for several thousand entries.

usage: tools/demo_tree.py REPOSITORY TARGET ENTRIES
"""

import pathlib
import subprocess
import sys


def tracked_files(repository):
    """The files of the repository; of a tree without git, all but builds and hidden ones."""
    git = subprocess.run(["git", "-C", str(repository), "ls-files", "-z"], capture_output=True)
    if git.returncode == 0:
        return [name for name in git.stdout.decode().split("\0") if name and (repository / name).is_file()]
    return [
        str(path.relative_to(repository))
        for path in sorted(repository.rglob("*"))
        if path.is_file() and not any(part.startswith(".") or part == "build" for part in path.parts)
    ]


def main():
    repository, target, entries = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), int(sys.argv[3])
    contents = {name: (repository / name).read_bytes() for name in tracked_files(repository)}
    if not contents:
        sys.exit(f"cannot make the demo's tree: {repository} holds no files")

    made = 0
    variation = 0
    while made < entries:
        top = target / "project" if variation == 0 else target / "variations" / f"{variation:02d}"
        for name, content in contents.items():
            path = top / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content if variation == 0 else b"variation %d\n" % variation + content)
            made += 1
        variation += 1


main()
