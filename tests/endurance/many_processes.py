"""Many processes copy a different file each into one archive at the same time.

usage: many_processes.py KXVFS PROCESSES AT_A_TIME
"""

import concurrent.futures
import pathlib
import subprocess
import sys
import tempfile
import zlib

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support" / "archives"))
import independent_readers  # noqa: E402


def main():
    tool, processes, at_a_time = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    with tempfile.TemporaryDirectory(prefix="many-processes-") as folder:
        place = pathlib.Path(folder)
        archive = place / "shared.zip"
        subprocess.run([tool, "create", archive], check=True)
        sources = []
        for number in range(processes):
            source = place / f"file-{number:03}.txt"
            source.write_text(f"contents of file {number}\n" * (number % 50 + 1))
            sources.append(source)

        def copy(source):
            return subprocess.run([tool, "cp", source, f"{archive}/"], capture_output=True, text=True)

        with concurrent.futures.ThreadPoolExecutor(at_a_time) as pool:
            results = list(pool.map(copy, sources))

        failed = [result for result in results if result.returncode != 0]
        for result in failed[:5]:
            print(f"exit {result.returncode}: {result.stderr.strip()}", file=sys.stderr)
        if failed:
            sys.exit(f"{len(failed)} of {processes} processes failed")
        verdict = independent_readers.verdict_of(str(archive))
        if verdict["problems"]:
            sys.exit("\n".join(verdict["problems"]))
        written = sorted((name, size, crc) for name, size, crc, *_ in verdict["entries"])
        expected = [(source.name, source.stat().st_size, zlib.crc32(source.read_bytes())) for source in sources]
        if written != expected:
            sys.exit(f"the archive holds other entries, {len(written)} instead of {processes}")
        strays = sorted(entry.name for entry in place.iterdir() if entry not in sources and entry != archive)
        if strays:
            sys.exit(f"left beside the archive: {strays}")
        print(f"{processes} processes, {at_a_time} at a time: every file is in the archive")


main()
