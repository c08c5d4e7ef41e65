#!/usr/bin/env python3
"""Runs the example on an archive and compares what it prints.

usage: run_example.py EXAMPLE BUNDLE...
"""

import pathlib
import subprocess
import sys
import tempfile
import zipfile

EXPECTED = """== a.txt
first
== docs
== docs/b.txt
second
"""


def main():
    with tempfile.TemporaryDirectory() as folder:
        archive = pathlib.Path(folder) / "archive.zip"
        with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as out:
            out.writestr("docs/b.txt", "second\n")
            out.writestr("a.txt", "first\n")
        run = subprocess.run([sys.argv[1], archive, *sys.argv[2:]], capture_output=True, text=True)
        if run.returncode != 0 or run.stdout != EXPECTED:
            sys.exit(f"status {run.returncode}\n{run.stdout}{run.stderr}")

        missing = subprocess.run(
            [sys.argv[1], archive.with_name("missing.zip"), *sys.argv[2:]], capture_output=True, text=True
        )
        if missing.returncode != 1 or "missing.zip" not in missing.stderr:
            sys.exit(f"a missing archive: status {missing.returncode}\n{missing.stdout}{missing.stderr}")


main()
