"""Checks that a library exports these symbols and no others.

usage: check_exports.py TOOL LIBRARY SYMBOL...

TOOL is nm, or objdump for a library of Windows.
"""

import subprocess
import sys


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported_functions(tool, library):
    """Names of exported functions, and those of exports that are none."""
    if library.endswith(".dll"):
        table = run(tool, "-p", library).partition("[Ordinal/Name Pointer] Table\n")[2].partition("\n\n")[0]
        return {line.split()[-1] for line in table.splitlines()}, set()
    kinds = {line.split()[-1]: line.split()[-2] for line in run(tool, "-D", "--defined-only", library).splitlines()}
    functions = {name for name, kind in kinds.items() if kind == "T"}
    return functions, kinds.keys() - functions


def main():
    tool, library, *expected = sys.argv[1:]
    functions, others = exported_functions(tool, library)
    problems = [f"{name}: not exported" for name in expected if name not in functions | others]
    problems += [f"{name}: exported" for name in functions | others if name not in expected]
    problems += [f"{name}: not a function" for name in others if name in expected]
    for problem in sorted(problems):
        print(f"{library}: {problem}", file=sys.stderr)
    sys.exit(1 if problems else 0)


main()
