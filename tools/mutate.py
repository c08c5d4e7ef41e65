#!/usr/bin/env python3
"""Breaks the sources in one place at a time and asks whether the test suite notices.

usage: tools/mutate.py [--list] [--quick] [--jobs N] [--work FOLDER] [NAME...]

The places are listed in tools/mutants.toml: a file, a piece of it that occurs once, what stands there instead,
and how it should be noticed. Nothing is changed in the source tree: the mutants are made in a copy of it under
FOLDER (build/mutants), which has a build folder of its own. Tests work in the folder for temporary files (TMPDIR).

A mutant is caught
- by a test that fails, crashes or does not end in time: first the programs that the list names for it, then those
  of its component; at the end those that are left are tried against all others but the ones named in `left_out` of
  the list (not with --quick), once these have passed without any mutant;
- by clang's thread-safety analysis, where the list says `thread_safety`: the translation unit named there is
  accepted unchanged and refused with the mutant.

NAME is a part of a mutant's name or of its file: `tools/mutate.py fileprovider lock` tries all of the local files
and all that have to do with locks.
Exit status: 0 when all were caught, 1 when one survived, 2 when the list does not fit the sources or these do not
pass unchanged.
"""

import argparse
import contextlib
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import tomllib

SOURCE = pathlib.Path(__file__).resolve().parent.parent
COPIED = ("CMakeLists.txt", "cmake", "src", "tests", "fuzz", "tools")
# A program is given this many times what it takes unchanged, since a mutant that waits for ever is caught by that.
PATIENCE = 5
LEAST_SECONDS = 60
WHOLE_SUITE_SECONDS = 3600
WAITING_PIECE = 0.05


class Misfit(Exception):
    """The list does not fit the sources, or the unchanged sources do not pass."""


def load(wanted):
    listed = tomllib.loads((SOURCE / "tools" / "mutants.toml").read_text())
    mutants = listed["mutant"]
    names = [mutant["name"] for mutant in mutants]
    for mutant in mutants:
        name = mutant["name"]
        if names.count(name) > 1:
            raise Misfit(f"two mutants are named {name!r}")
        if mutant["old"] == mutant["new"]:
            raise Misfit(f"{name!r} changes nothing")
        count = (SOURCE / mutant["file"]).read_text().count(mutant["old"])
        if count != 1:
            raise Misfit(f"{name!r}: its text occurs {count} times in {mutant['file']}")
        suites = [tests for folder, tests in listed["suites"].items() if mutant["file"].startswith(folder)]
        if len(suites) != 1:
            raise Misfit(f"{name!r}: {len(suites)} suites are listed for {mutant['file']}")
        mutant["tests"] = list(dict.fromkeys([*mutant.get("tests", []), *suites[0]]))
    chosen = [mutant for mutant in mutants if not wanted or
              any(part in mutant["name"] or part in mutant["file"] for part in wanted)]
    if not chosen:
        raise Misfit("no mutant has such a name")
    return chosen, listed["left_out"]


def copy_sources(tree):
    """Brings the copy up to date, leaving the times of files that did not change; returns a digest of it."""
    names = {
        str(path.relative_to(SOURCE))
        for part in COPIED
        for path in [SOURCE / part, *(SOURCE / part).rglob("*")]
        if path.is_file() and "__pycache__" not in path.parts
    }
    for name in names:
        source, target = SOURCE / name, tree / name
        if not target.is_file() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, target)
            shutil.copymode(source, target)
    for path in list(tree.rglob("*")):
        if path.is_file() and str(path.relative_to(tree)) not in names:
            path.unlink()
    digest = hashlib.sha256()
    for name in sorted(names - {"tools/mutants.toml"}):
        contents = (tree / name).read_bytes()
        digest.update(f"{name}\0{len(contents)}\0".encode() + contents)
    return digest.hexdigest()


def run(command, log, seconds=None, **options):
    """Whether the command succeeded, within `seconds`; all processes that it has left behind are ended."""
    log.write(f"\n$ {shlex.join(map(str, command))}\n")
    log.flush()
    process = subprocess.Popen(command, stdout=log, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                               start_new_session=True, **options)
    try:
        # In small pieces, so that time in which all of this is stopped does not count.
        left = float("inf") if seconds is None else seconds
        while process.poll() is None and left > 0:
            time.sleep(WAITING_PIECE)
            left -= WAITING_PIECE
        if process.poll() is None:
            log.write(f"\nmutate: not done after {seconds:.0f} s\n")
        return process.poll() == 0
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def program_of(test):
    """`program` or `program:gtest filter`, as the list writes it."""
    return test.partition(":")[0]


class Workshop:
    def __init__(self, work, jobs, left_out):
        self.tree = work / "tree"
        self.build = work / "build"
        self.logs = work / "logs"
        self.record = work / "unchanged.json"
        self.temporary = pathlib.Path(tempfile.mkdtemp(prefix="kx-mutants-"))
        self.jobs = jobs
        self.left_out = left_out
        self.seconds = {}
        shutil.rmtree(self.logs, ignore_errors=True)
        for folder in (self.tree, self.build, self.logs):
            folder.mkdir(parents=True, exist_ok=True)
        # Where tests look for archives of other programs: beside the project's folder.
        shared, link = SOURCE.parent / "shared", work / "shared"
        if shared.is_dir() and not link.exists():
            link.symlink_to(shared)
        self.environment = dict(os.environ, TMPDIR=str(self.temporary), KX_SHARED_CORPUS=str(link / "corpus"))

    def empty_temporary(self):
        shutil.rmtree(self.temporary, ignore_errors=True)
        self.temporary.mkdir(exist_ok=True)

    def compile(self, targets, log):
        return run(["cmake", "--build", self.build, "--parallel", str(self.jobs), "--target", *targets], log)

    def prepare(self, mutants):
        digest = copy_sources(self.tree)
        known = json.loads(self.record.read_text()) if self.record.exists() else {}
        # What passes without a mutant is remembered until a source changes.
        self.seconds = known["seconds"] if known.get("digest") == digest else {}
        tests = sorted({test for mutant in mutants for test in mutant["tests"]})
        with open(self.logs / "unchanged.log", "w") as log:
            configuration = ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DKX_BUILD_EXAMPLES=OFF",
                             "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]
            if shutil.which("ld.gold"):
                configuration.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold")
            if not run(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", *configuration], log):
                raise Misfit(f"the unchanged sources cannot be configured: {log.name}")
            if not self.compile(sorted({program_of(test) for test in tests}), log):
                raise Misfit(f"the unchanged sources do not build: {log.name}")
            for test in [test for test in tests if test not in self.seconds]:
                begin = time.monotonic()
                if not self.passes(test, log):
                    raise Misfit(f"{test} fails without any mutant: {log.name}")
                self.seconds[test] = time.monotonic() - begin
                self.record.write_text(json.dumps({"digest": digest, "seconds": self.seconds}))
            for unit in sorted({mutant["thread_safety"] for mutant in mutants if "thread_safety" in mutant}):
                if not self.is_accepted(unit, log):
                    raise Misfit(f"clang refuses {unit} without any mutant: {log.name}")

    def passes(self, test, log):
        program, _, gtest_filter = test.partition(":")
        self.empty_temporary()
        seconds = max(LEAST_SECONDS, PATIENCE * self.seconds.get(test, WHOLE_SUITE_SECONDS / PATIENCE))
        return run([self.build / "tests" / program, "--gtest_fail_fast", "--gtest_brief=1",
                    f"--gtest_filter={gtest_filter or '*'}"], log, seconds, env=self.environment, cwd=self.build)

    def is_accepted(self, unit, log):
        """Whether clang's thread-safety analysis finds nothing in a translation unit."""
        commands = json.loads((self.build / "compile_commands.json").read_text())
        entry = next(entry for entry in commands if entry["file"] == str(self.tree / unit))
        words = shlex.split(entry["command"])
        flags = [word for word in words if re.match(r"-(D|I|isystem|std=)", word) or word.startswith("/usr/include")]
        return run(["clang++", *flags, "-fsyntax-only", "-Wthread-safety", "-Werror", self.tree / unit], log,
                   cwd=entry["directory"])

    @contextlib.contextmanager
    def broken(self, mutant):
        """The copy of the sources with the mutant in it; what is done to it goes into the log that this gives."""
        file = self.tree / mutant["file"]
        unchanged = file.read_text()
        log_name = re.sub(r"[^A-Za-z0-9]+", "-", mutant["name"]) + ".log"
        with open(self.logs / log_name, "a") as log:
            try:
                file.write_text(unchanged.replace(mutant["old"], mutant["new"]))
                yield log
            finally:
                file.write_text(unchanged)

    def catcher(self, mutant):
        """What of the mutant's own tests notices it; None when nothing does."""
        with self.broken(mutant) as log:
            if "thread_safety" in mutant and not self.is_accepted(mutant["thread_safety"], log):
                return "clang -Wthread-safety"
            for test in mutant["tests"]:
                self.build_with(mutant, program_of(test), log)
                if not self.passes(test, log):
                    return self.failed_test(log.name) or f"{test}, which does not end"
        return None

    def build_with(self, mutant, target, log):
        if not self.compile([target], log):
            raise Misfit(f"{mutant['name']!r} does not compile: {log.name}")

    def require_whole_suite(self):
        """What fails without any mutant catches none."""
        with open(self.logs / "unchanged-suite.log", "w") as log:
            if not self.compile(["all"], log) or not self.whole_suite_passes(log):
                raise Misfit(f"the whole suite does not pass without any mutant: {log.name}")

    def whole_suite_catcher(self, mutant):
        """What of the whole suite notices the mutant; None when nothing does."""
        with self.broken(mutant) as log:
            self.build_with(mutant, "all", log)
            if self.whole_suite_passes(log):
                return None
            return self.failed_test(log.name) or "the whole suite"

    def whole_suite_passes(self, log):
        self.empty_temporary()
        command = ["ctest", "--test-dir", self.build, "--stop-on-failure", "--output-on-failure",
                   "--parallel", str(self.jobs),
                   "--label-exclude", self.left_out["labels"], "--exclude-regex", self.left_out["tests"]]
        return run(command, log, WHOLE_SUITE_SECONDS, env=self.environment)

    @staticmethod
    def failed_test(log_name):
        with open(log_name, errors="replace") as log:
            failed = re.search(r"^\[  FAILED  \] (\S+?)(?:,| \(|$)|"
                               r"Test +#\d+: (\S+) .*\*\*\*(?!Skipped|Not Run)", log.read(), re.M)
        return failed and (failed[1] or failed[2])


def main():
    arguments = argparse.ArgumentParser(description="Breaks the sources in one place at a time.")
    arguments.add_argument("--list", action="store_true", help="check the list and print it")
    arguments.add_argument("--quick", action="store_true", help="do not try the whole suite on those that survive")
    arguments.add_argument("--jobs", type=int, default=os.cpu_count())
    arguments.add_argument("--work", type=pathlib.Path, default=SOURCE / "build" / "mutants")
    arguments.add_argument("names", nargs="*", metavar="NAME")
    options = arguments.parse_args()
    mutants, left_out = load(options.names)
    if options.list:
        for mutant in mutants:
            print(f"{mutant['file']}: {mutant['name']}")
        print(f"{len(mutants)} mutants")
        return 0
    workshop = Workshop(options.work.resolve(), options.jobs, left_out)
    try:
        return try_all(workshop, mutants, options.quick)
    finally:
        shutil.rmtree(workshop.temporary, ignore_errors=True)


def try_all(workshop, mutants, quick):
    workshop.prepare(mutants)
    survivors, misfits, refused = [], [], 0

    def attempt(number, mutant, catcher_of, survival):
        """What has caught the mutant; None when nothing did, or when it does not compile."""
        begin = time.monotonic()
        try:
            catcher = catcher_of(mutant)
        except Misfit as misfit:
            misfits.append(mutant["name"])
            print(f"mutate: {misfit}", file=sys.stderr)
            return None
        if catcher is None:
            survivors.append(mutant)
        verdict = f"caught by {catcher}" if catcher else survival
        print(f"{number} {mutant['name']}: {verdict} ({time.monotonic() - begin:.0f} s)", flush=True)
        return catcher

    for number, mutant in enumerate(mutants, 1):
        survival = "SURVIVED" if quick else "survived its own tests"
        caught_by = attempt(f"{number}/{len(mutants)}", mutant, workshop.catcher, survival)
        refused += caught_by == "clang -Wthread-safety"
    suite_fits = True
    if survivors and not quick:
        try:
            workshop.require_whole_suite()
        except Misfit as misfit:
            suite_fits = False
            print(f"mutate: {misfit}", file=sys.stderr)
        else:
            left, survivors[:] = list(survivors), []
            for mutant in left:
                attempt("whole suite:", mutant, workshop.whole_suite_catcher, "SURVIVED")
    caught = len(mutants) - len(survivors) - len(misfits)
    print(f"{len(mutants)} mutants, {caught} caught ({refused} of them by clang -Wthread-safety), "
          f"{len(survivors)} survived")
    return 2 if misfits or not suite_fits else 1 if survivors else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Misfit as error:
        print(f"mutate: {error}", file=sys.stderr)
        sys.exit(2)
