"""Checks that a library exports these symbols and no others.

usage: check_exports.py NM LIBRARY SYMBOL...
"""

import subprocess
import sys


def main():
    nm, library, *expected = sys.argv[1:]
    listing = subprocess.run([nm, "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
    exported = {line.split()[-1]: line.split()[-2] for line in listing.splitlines()}
    problems = [f"{name}: not exported" for name in expected if name not in exported]
    problems += [f"{name}: exported" for name in exported if name not in expected]
    problems += [f"{name}: not a function" for name, kind in exported.items() if name in expected and kind != "T"]
    for problem in sorted(problems):
        print(f"{library}: {problem}", file=sys.stderr)
    sys.exit(1 if problems else 0)


main()
