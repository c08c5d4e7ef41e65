"""Many processes copy a different file each into one archive at the same time.

usage: many_processes.py KXVFS PROCESSES AT_A_TIME
"""

import concurrent.futures
import pathlib
import subprocess
import sys
import tempfile
import zipfile


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
        subprocess.run(["unzip", "-tq", archive], check=True)
        with zipfile.ZipFile(archive) as written:
            names = sorted(written.namelist())
            if names != [source.name for source in sources]:
                sys.exit(f"the archive holds {len(names)} entries instead of {processes}")
            for source in sources:
                if written.read(source.name) != source.read_bytes():
                    sys.exit(f"{source.name} holds something else")
        strays = sorted(entry.name for entry in place.iterdir() if entry not in sources and entry != archive)
        if strays:
            sys.exit(f"left beside the archive: {strays}")
        print(f"{processes} processes, {at_a_time} at a time: every file is in the archive")


main()
