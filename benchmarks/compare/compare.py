"""Runs the comparison: every workload by every participant, in alternating order, every result checked.

    compare.py --kxvfs build/release/bin/kxvfs --tools build/release/benchmarks --work /var/tmp/kx --out docs

writes `performance-table.md` and `performance.svg` into the folder of --out. The first round of each workload warms
up and is checked to the last byte; the others are measured, with the page cache warm.
"""

import argparse
import dataclasses
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys
import time

import report
import workloads
from contest import Contest, WrongResult
from peers import Peers


@dataclasses.dataclass
class Measured:
    seconds: float
    processor: float
    peak: int


class Failed(Exception):
    pass


class Runner:
    def __init__(self, tools, work):
        self.measure, self.work = str(tools / "measure"), work

    def run(self, run, check=None):
        """Runs the command and returns what it cost; `check` is given what it prints."""
        return self._mounted(run, check) if run.mounted else self._measured(run.words, run.folder, check)

    def _measured(self, words, folder, check):
        result = self.work / "measured"
        result.unlink(missing_ok=True)
        out = subprocess.PIPE if check else subprocess.DEVNULL
        with open(self.work / "errors", "w+b") as errors:
            process = subprocess.Popen([self.measure, str(result), *words], cwd=folder, stdout=out, stderr=errors,
                                       stdin=subprocess.DEVNULL)
            if check:
                check(iter(lambda: process.stdout.read(1 << 20), b""))
                process.stdout.close()
            process.wait()
            errors.seek(0)
            message = errors.read(300).decode(errors="replace").strip()
        if not result.exists():
            raise Failed(message or "did not run")
        seconds, user, system, peak, status = result.read_text().split()
        if int(status) != 0:
            raise Failed(f"exit status {status}: {message}")
        return Measured(float(seconds), float(user) + float(system), int(peak))

    def _mounted(self, run, check):
        """Mounts, works, unmounts, and waits until the file system has ended, which is when it has saved."""
        result = self.work / "mounted"
        result.unlink(missing_ok=True)
        mountpoint = run.folder
        start = time.monotonic()
        daemon = subprocess.Popen([self.measure, str(result), *run.mounted[:1], "-f", *run.mounted[1:]],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            while not os.path.ismount(mountpoint):
                if daemon.poll() is not None or time.monotonic() - start > 60:
                    raise Failed("cannot be mounted")
                time.sleep(0.002)
            work = self._measured(run.words, mountpoint, check)
        finally:
            subprocess.run(["fusermount", "-u", "-z", str(mountpoint)], stderr=subprocess.DEVNULL)
            daemon.wait(600)
        _, user, system, peak, _ = result.read_text().split()
        return Measured(time.monotonic() - start, work.processor + float(user) + float(system), int(peak))


def measure_workload(workload, runner, rounds, log):
    """The measurements of each participant, or why there are none."""
    results = {name: [] for name in workload.participants}
    failures = {}
    for number in range(rounds + 1):
        names = [name for name in results if name not in failures]
        for name in names[number % len(names):] + names[:number % len(names)]:
            if name in workload.once and number > 0:
                continue
            workload.prepare()
            try:
                check = workload.other_checks.get(name, workload.check_output)
                measured = runner.run(workload.participants[name], check if number == 0 else None)
                if workload.check_archive and number == 0:
                    workload.check_archive(workload.changed)
            except (Failed, WrongResult) as problem:
                if name.startswith("kx"):
                    raise SystemExit(f"{workload.key}: {name}: {problem}") from problem
                failures[name] = str(problem)
                log(f"  {name}: {problem}")
                continue
            if number > 0 or name in workload.once:
                results[name].append(measured)
                log(f"  {name}: {measured.seconds:.3f} s, processor {measured.processor:.3f} s, {measured.peak} KiB")
    return {name: runs for name, runs in results.items() if runs}, failures


def machine():
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    memory = re.search(r"MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text())
    return (f"{os.cpu_count()} × {model.group(1) if model else platform.machine()}, "
            f"{int(memory.group(1)) >> 20} GB of memory, Linux {platform.release()}")


def file_system(folder):
    out = subprocess.run(["stat", "-f", "-c", "%T", str(folder)], capture_output=True, text=True)
    return out.stdout.strip()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kxvfs", type=pathlib.Path, required=True)
    parser.add_argument("--tools", type=pathlib.Path, required=True, help="folder of the drivers")
    parser.add_argument("--work", type=pathlib.Path, required=True, help="folder for data and results")
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--tiny", action="store_true", help="small data, to see that everything works")
    parser.add_argument("--only", help="workloads to run, separated by commas")
    parser.add_argument("--without", default="", help="participants to leave out, or WORKLOAD:PARTICIPANT for those "
                        "of one workload, separated by commas")
    options = parser.parse_args()
    work = options.work.resolve() / ("tiny" if options.tiny else "full")
    scratch = work / "scratch"
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir(parents=True)
    os.environ["TMPDIR"] = str(scratch)

    peers = Peers(options.kxvfs.resolve(), options.tools.resolve(), scratch)
    absent = [f"{name} does not take part: {reason}" for name, reason in peers.absent.items()]
    print("".join(line + "\n" for line in absent), end="", flush=True)

    def make_own(source, archive):
        subprocess.run([peers.kxvfs, "create", str(archive)], check=True)
        subprocess.run([peers.kxvfs, "cp", "-r", "-T", str(source), f"{archive}/"], check=True)

    data = workloads.Data(work / "data", workloads.TINY if options.tiny else workloads.FULL, make_own)
    runner = Runner(options.tools.resolve(), scratch)
    wanted = set(options.only.split(",")) if options.only else None
    without = set(filter(None, options.without.split(",")))
    absent += [f"{name} was left out" for name in sorted(without)]
    about = [f"Machine: {machine()}; data on {file_system(work)}. Measured rounds: {options.rounds}.", *peers.versions(),
             *absent]
    table = []
    options.out.mkdir(parents=True, exist_ok=True)
    for workload in Contest(data, peers, scratch).workloads():
        if wanted and workload.key not in wanted:
            continue
        print(workload.title, flush=True)
        workload.participants = {name: run for name, run in workload.participants.items()
                                 if not without & {name, f"{workload.key}:{name}"}}
        results, failures = measure_workload(workload, runner, options.rounds,
                                             lambda text: print(text, file=sys.stderr, flush=True))
        table.append(report.Row(workload.key, workload.title, {
            name: report.Figures(*(statistics.median(values), min(values), max(values),
                                   statistics.median(run.processor for run in runs), max(run.peak for run in runs)))
            for name, runs in results.items() if (values := [run.seconds for run in runs])}, failures))
        (options.out / "performance-table.md").write_text(
            report.markdown(table, about, None if options.tiny else data.scale))
        (options.out / "performance.svg").write_text(report.svg(table))
    print(f"wrote {options.out}/performance-table.md and performance.svg")


if __name__ == "__main__":
    main()
