"""The workloads: what each participant runs, on what, and how its result is checked."""

import collections
import dataclasses
import os
import pathlib
import shutil
import subprocess
import typing
import zipfile
import zlib

import workloads
from peers import Run


# archivemount leaves no readable ZIP archive when it saves.
WRITING_MOUNTS = ("fuse-zip",)


class WrongResult(Exception):
    pass


def require(condition, what):
    if not condition:
        raise WrongResult(what)


@dataclasses.dataclass
class Workload:
    key: str
    title: str
    # Name of the participant to what it runs; the first is ours.
    participants: dict
    # Called with the bytes that were printed, in pieces, when the result is checked.
    check_output: typing.Callable | None = None
    # The archive that is copied for each run, and the copy; called with the copy afterwards.
    original: pathlib.Path | None = None
    changed: pathlib.Path | None = None
    check_archive: typing.Callable | None = None
    # Who is measured once, since a run takes long.
    once: tuple = ()
    # In place of `check_output` for participants that print in an order of their own.
    other_checks: dict = dataclasses.field(default_factory=dict)

    def prepare(self):
        if self.changed:
            self.changed.unlink(missing_ok=True)
            if self.original:
                shutil.copyfile(self.original, self.changed)


def printed_names(expected):
    wanted = collections.Counter(pathlib.PurePosixPath(name).name for name in expected)

    def check(pieces):
        lines = b"".join(pieces).decode().split("\n")
        seen = collections.Counter(name for line in lines if (name := line.rsplit("/", 1)[-1].split(" ")[-1]) in wanted)
        require(seen == wanted, f"{sum(seen.values())} of {sum(wanted.values())} names were listed")
    return check


def printed_bytes(crc, size):
    def check(pieces):
        seen, count = 0, 0
        for piece in pieces:
            seen, count = zlib.crc32(piece, seen), count + len(piece)
        require((seen, count) == (crc, size), f"{count} bytes with CRC-32 {seen:08x} instead of {size} with {crc:08x}")
    return check


def printed_in_any_order(size):
    def check(pieces):
        count = sum(map(len, pieces))
        require(count == size, f"{count} bytes instead of {size}")
    return check


def crc_of_entries(archive, names):
    crc, size = 0, 0
    with zipfile.ZipFile(archive) as opened:
        for name in names:
            with opened.open(name) as entry:
                while piece := entry.read(1 << 20):
                    crc, size = zlib.crc32(piece, crc), size + len(piece)
    return crc, size


def holds(expected):
    def check(archive):
        try:
            seen = workloads.directory(archive)
        except (OSError, zipfile.BadZipFile) as problem:
            raise WrongResult(str(problem)) from problem
        require(seen == expected, f"{len(seen)} entries instead of {len(expected)}, or other contents")
        with zipfile.ZipFile(archive) as opened:
            require(opened.testzip() is None, "an entry has a wrong CRC-32")
    return check


class Contest:
    """All workloads over the data."""

    def __init__(self, data, peers, work):
        self.data, self.peers, self.work = data, peers, work
        self.mountpoint = work / "mnt"
        self.mountpoint.mkdir(exist_ok=True)
        self.copy = work / "changed.zip"
        self.empty = work / "empty.zip"
        self.empty.write_bytes(b"PK\x05\x06" + bytes(18))

    def workloads(self):
        yield self.listing()
        yield self.opening("open", "open that archive and look at one entry", self.data.many, self.data.random_names)
        yield self.opening("open-few", "open an archive of 1,000 entries and look at one", self.data.few,
                           self.data.few_random_names)
        yield self.random_reads("random", "open it and read 1,000 random entries", self.data.many,
                                self.data.random_names)
        yield self.random_reads("random-few", "the same of an archive of 1,000 entries", self.data.few,
                                self.data.few_random_names)
        yield self.reading_all()
        yield self.large_entry()
        yield from self.changes()
        yield self.foreign_change()
        yield self.overwriting()
        yield self.filling()
        yield self.commits()
        yield self.carrying_over_large()
        yield self.writing_large()

    def kxvfs(self, *words):
        """What makes a working file for each of many entries, with those files on the disk and in memory."""
        runs = {"kxvfs": Run([self.peers.kxvfs, *words])}
        if os.path.ismount("/dev/shm"):
            runs["kxvfs, TMPDIR in memory"] = Run(["env", "TMPDIR=/dev/shm", self.peers.kxvfs, *words])
        return runs

    def listing(self):
        data, peers = self.data, self.peers
        names = zipfile.ZipFile(data.many).namelist()
        runs = {"kxvfs": Run([peers.kxvfs, "ls", "-R", str(data.many)]), **dict(peers.driven("list", data.many)),
                **dict(peers.tool("unzip", "-Z1", data.many)), **dict(peers.tool("bsdtar", "-tf", data.many)),
                **dict(peers.tool("7z", "l", "-ba", data.many)),
                **dict(peers.mounting(data.many, self.mountpoint, ["find", ".", "-type", "f"], ["-o", "ro"]))}
        return Workload("list", f"open and list {len(names):,} entries in {data.scale.folders:,} folders", runs,
                        printed_names(names))

    def opening(self, key, title, archive, list_of_names):
        name = list_of_names.read_text().splitlines()[0]
        one = self.work / f"{key}-name.txt"
        one.write_text(f"{name}\n")
        runs = {"kxvfs": Run([self.peers.kxvfs, "cat", "-a", str(archive), name]),
                **dict(self.peers.driven("read", archive, one))}
        return Workload(key, title, runs, printed_bytes(*crc_of_entries(archive, [name])))

    def random_reads(self, key, title, archive, list_of_names):
        names = list_of_names.read_text().splitlines()
        peers = self.peers
        runs = {"kxvfs": Run([peers.kxvfs, "cat", "-a", str(archive), *names]),
                **dict(peers.driven("read", archive, list_of_names)),
                **dict(peers.mounting(archive, self.mountpoint, ["xargs", "-a", str(list_of_names), "cat"],
                                      ["-o", "ro"]))}
        return Workload(key, title, runs, printed_bytes(*crc_of_entries(archive, names)), once=("minizip",))

    def reading_all(self):
        data, peers = self.data, self.peers
        crc, size = crc_of_entries(data.mixed, data.mixed_names)
        names = self.work / "mixed-names.txt"
        names.write_text("".join(name + "\n" for name in data.mixed_names))
        runs = {**self.kxvfs("cat", "-a", str(data.mixed), *data.mixed_names),
                **dict(peers.driven("readall", data.mixed)), **dict(peers.tool("unzip", "-p", data.mixed)),
                **dict(peers.tool("bsdtar", "-xOf", data.mixed)), **dict(peers.tool("7z", "x", "-so", data.mixed)),
                **dict(peers.mounting(data.mixed, self.mountpoint,
                                      ["xargs", "-a", str(names), "-s", "1000000", "cat"], ["-o", "ro"]))}
        return Workload("readall", f"read all of {len(data.mixed_names):,} entries, {size >> 20} MB of mixed data", runs,
                        printed_bytes(crc, size), other_checks={"JDK zipfs": printed_in_any_order(size)})

    def large_entry(self):
        data, peers = self.data, self.peers
        runs = {"kxvfs": Run([peers.kxvfs, "cat", f"{data.large}/large.bin"]),
                **dict(peers.driven("cat", data.large, "large.bin")),
                **dict(peers.tool("unzip", "-p", data.large, "large.bin")),
                **dict(peers.tool("bsdtar", "-xOf", data.large)), **dict(peers.tool("7z", "x", "-so", data.large)),
                **dict(peers.mounting(data.large, self.mountpoint, ["cat", "large.bin"], ["-o", "ro"]))}
        return Workload("large", f"read one entry of {data.scale.large_bytes >> 20} MB", runs,
                        printed_bytes(*crc_of_entries(data.large, ["large.bin"])))

    def changes(self):
        data, peers, copy = self.data, self.peers, self.copy
        before = workloads.directory(data.own)
        name, size = data.changed_name, data.own.stat().st_size
        added, moved = "m000/added.bin", "m000/moved.bin"
        place = self.work / added
        place.parent.mkdir(exist_ok=True)
        shutil.copyfile(data.added, place)
        new = (workloads.crc_of(data.added), data.added.stat().st_size)
        megabytes = f"{size >> 20} MB archive"
        write = {"kxvfs": Run([peers.kxvfs, "cp", str(data.added), f"{copy}/{added}"]),
                 "kx_driver, not synced": Run([peers.kx_driver, "--no-sync", "add", str(copy), added, str(data.added)]),
                 **dict(peers.driven("add", copy, added, data.added)),
                 **dict(peers.tool("zip", "-q", copy, added, folder=self.work)),
                 **dict(peers.tool("7z", "a", "-bso0", copy, added, folder=self.work)),
                 **dict(peers.mounting(copy, self.mountpoint, ["cp", str(data.added), added],
                                      names=WRITING_MOUNTS))}
        rename = {"kxvfs": Run([peers.kxvfs, "mv", f"{copy}/{name}", f"{copy}/{moved}"]),
                  **dict(peers.driven("rename", copy, name, moved, without=("Python zipfile",))),
                  **dict(peers.tool("7z", "rn", "-bso0", copy, name, moved))}
        delete = {"kxvfs": Run([peers.kxvfs, "rm", f"{copy}/{name}"]),
                  **dict(peers.driven("delete", copy, name, without=("Python zipfile",))),
                  **dict(peers.tool("zip", "-q", "-d", copy, name)),
                  **dict(peers.tool("7z", "d", "-bso0", copy, name))}
        without = {key: value for key, value in before.items() if key != name}
        for key, title, runs, after in (("add", "add one file to the", write, {**before, added: new}),
                                        ("rename", "rename one file in the", rename, {**without, moved: before[name]}),
                                        ("delete", "delete one file of the", delete, without)):
            yield Workload(key, f"{title} {megabytes} that this system wrote", runs, None, data.own, copy, holds(after),
                           once=("minizip",))

    def foreign_change(self):
        data, peers, copy = self.data, self.peers, self.copy
        added = "m000/added.bin"
        after = {**workloads.directory(data.mixed),
                 added: (workloads.crc_of(data.added), data.added.stat().st_size)}
        runs = {"kxvfs": Run([peers.kxvfs, "cp", str(data.added), f"{copy}/{added}"]),
                **{name: run for name, run in peers.driven("add", copy, added, data.added) if name == "minizip"}}
        return Workload("foreign", "the same in the archive of another writer, the first time", runs, None, data.mixed,
                        copy, holds(after))

    def overwriting(self):
        data, peers, copy = self.data, self.peers, self.copy
        place = self.work / "big.bin"
        shutil.copyfile(data.overwriting, place)
        after = {**workloads.directory(data.overwritten),
                 "big.bin": (workloads.crc_of(data.overwriting), data.overwriting.stat().st_size)}
        runs = {"kxvfs": Run([peers.kxvfs, "cp", str(place), f"{copy}/big.bin"]),
                **dict(peers.driven("add", copy, "big.bin", place, without=("Python zipfile",))),
                **dict(peers.tool("zip", "-q", copy, "big.bin", folder=self.work)),
                **dict(peers.mounting(copy, self.mountpoint, ["cp", str(place), "big.bin"],
                                      names=WRITING_MOUNTS))}
        return Workload("overwrite", f"overwrite an entry of {data.scale.overwritten_bytes >> 20} MB", runs, None,
                        data.overwritten, copy, holds(after))

    def filling(self):
        data, peers = self.data, self.peers
        made = self.work / "made.zip"
        files = {name: (workloads.crc_of(data.new / name), (data.new / name).stat().st_size) for name in data.new_names}
        runs = {**self.kxvfs("cp", "-r", "-T", str(data.new), f"{made}/"),
                **{name: run for name, run in peers.driven("fill", made, data.new)},
                **dict(peers.tool("zip", "-q", "-r", made, ".", folder=data.new)),
                **dict(peers.tool("7z", "a", "-bso0", made, ".", folder=data.new)),
                **dict(peers.mounting(made, self.mountpoint, ["cp", "-r", str(data.new) + "/.", "."],
                                      names=WRITING_MOUNTS))}
        return Workload("fill", f"{data.scale.new_files:,} files of {data.scale.new_file_bytes // 1000} KB into an "
                        "empty archive", runs, None, self.empty, made, holds(files))

    def commits(self):
        data, peers, made = self.data, self.peers, self.work / "made.zip"
        count = data.scale.commits
        names = data.new_names[:count]
        files = {name: (workloads.crc_of(data.new / name), (data.new / name).stat().st_size) for name in names}
        driver = [peers.kx_driver, "commits", str(made), str(data.new), str(count)]
        runs = {"kx_driver, not synced": Run([driver[0], "--no-sync", *driver[1:]]),
                "kx_driver, synced": Run(driver),
                **dict(peers.driven("commits", made, data.new, count))}
        if "zip" in peers.tools:
            runs["Info-ZIP"] = Run(["sh", "-c", f"for f in {' '.join(names)}; do zip -q '{made}' $f || exit 1; done"],
                                   data.new)
        return Workload("commits", f"{count} such files, one commit each, in one process", runs, None, None, made,
                        holds(files))

    def carrying_over_large(self):
        data, peers, copy = self.data, self.peers, self.copy
        own = self.work / "own-large.zip"
        if not own.exists():
            shutil.copyfile(data.large, own)
            subprocess.run([peers.kxvfs, "cp", str(data.added), f"{own}/small.bin"], check=True)
        after = {**workloads.directory(own), "added.bin": (workloads.crc_of(data.added), data.added.stat().st_size)}
        runs = {"kxvfs": Run([peers.kxvfs, "cp", str(data.added), f"{copy}/added.bin"]),
                **{name: run for name, run in peers.driven("add", copy, "added.bin", data.added) if name == "libzip"}}
        return Workload("carry-large", f"add one file beside an entry of {data.scale.large_bytes >> 20} MB", runs, None,
                        own, copy, holds(after))

    def writing_large(self):
        data, peers, made = self.data, self.peers, self.work / "made.zip"
        with zipfile.ZipFile(data.large) as archive:
            large = pathlib.Path(archive.extract("large.bin", self.work))
        runs = {"kxvfs": Run([peers.kxvfs, "cp", str(large), f"{made}/large.bin"]),
                **dict(peers.tool("zip", "-q", made, "large.bin", folder=self.work))}
        return Workload("write-large", f"a file of {data.scale.large_bytes >> 20} MB into an empty archive", runs, None,
                        self.empty, made, holds(workloads.directory(data.large)), once=tuple(runs))
