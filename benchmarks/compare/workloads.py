"""The data that the comparison works on: the same bytes for the same scale, on every machine.

`Data` makes a folder of archives and files once and finds it again later. Every archive of it is written by
Python's zipfile, so it is a foreign one to all who are measured but Python; `own.zip` is made of the same files
by whoever the caller names.
"""

import dataclasses
import json
import pathlib
import random
import shutil
import zipfile
import zlib

STAMP = (2024, 2, 3, 4, 5, 6)
WORDS = ("archive folder entry header offset window deflate stream the of and a central directory is read "
         "with every when byte name that path for written stored closed provider record").split()


@dataclasses.dataclass(frozen=True)
class Scale:
    """How large the workloads are. `FULL` is what docs/performance.md shows, `TINY` what the test runs."""
    folders: int
    files_in_folder: int
    random_reads: int
    mixed_files: int
    mixed_bytes: int
    large_bytes: int
    overwritten_bytes: int
    new_files: int
    new_file_bytes: int
    commits: int


FULL = Scale(1000, 100, 1000, 10_000, 200 << 20, 1 << 30, 100 << 20, 10_000, 10_000, 100)
TINY = Scale(10, 10, 20, 50, 1 << 20, 2 << 20, 1 << 20, 40, 1000, 5)


class Mixed:
    """Bytes that deflate to about half, as in an archive of texts, tables and pictures."""

    def __init__(self, seed):
        self._random = random.Random(seed)
        self._words = " ".join(self._random.choices(WORDS, k=400_000)).encode()[:1 << 21]
        self._numbers = b"".join(b"%07d;%06x\n" % (self._random.randrange(10 ** 7), self._random.randrange(16 ** 6))
                                 for _ in range(140_000))

    def file(self, size):
        """One file: words, numbers, or bytes that do not deflate."""
        kind = self._random.random()
        if kind < 0.2:
            return self._random.randbytes(size)
        return self._pieces(self._words if kind < 0.55 else self._numbers, size)

    def text(self, size):
        return self._pieces(self._words, size)

    def _pieces(self, pool, size):
        parts = []
        while size > 0:
            start = self._random.randrange(len(pool) - 1)
            parts.append(pool[start:start + min(size, 50_000)])
            size -= len(parts[-1])
        return b"".join(parts)

    def size(self, mean):
        return int(self._random.expovariate(1 / mean)) + 1

    def shuffled(self, items, count):
        return self._random.sample(items, count)


def _writer(path):
    return zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED)


def _add(archive, name, data):
    info = zipfile.ZipInfo(name, STAMP)
    info.compress_type = zipfile.ZIP_DEFLATED
    info.external_attr = 0o100644 << 16
    archive.writestr(info, data)


class Data:
    """The folder of the workloads' data, made when it is not there for this scale.

    `make_own(source, archive)` writes the files of the folder `source` into a new archive.
    """

    def __init__(self, folder, scale, make_own):
        self.folder = pathlib.Path(folder)
        self.scale = scale
        self.many = self.folder / "many.zip"
        self.few = self.folder / "few.zip"
        self.mixed = self.folder / "mixed.zip"
        self.own = self.folder / "own.zip"
        self.large = self.folder / "large.zip"
        self.overwritten = self.folder / "overwritten.zip"
        self.overwriting = self.folder / "overwriting.bin"
        self.tree = self.folder / "tree"
        self.new = self.folder / "new"
        self.added = self.folder / "added.bin"
        self.random_names = self.folder / "random.txt"
        self.few_random_names = self.folder / "few-random.txt"
        stamp = self.folder / "made.json"
        wanted = json.dumps(dataclasses.asdict(scale))
        if not stamp.exists() or stamp.read_text() != wanted:
            shutil.rmtree(self.folder, ignore_errors=True)
            self.folder.mkdir(parents=True)
            self._make()
            make_own(self.tree, self.own)
            stamp.write_text(wanted)
        self.mixed_names = zipfile.ZipFile(self.mixed).namelist()
        self.changed_name = self.mixed_names[len(self.mixed_names) // 2]
        self.new_names = self._paths_of(self.new).read_text().splitlines()

    @staticmethod
    def _paths_of(folder):
        return folder.with_name(folder.name + "-paths.txt")

    def _make(self):
        scale = self.scale
        mixed = Mixed(1)
        names = self._make_many(self.many, scale.folders, mixed)
        self.random_names.write_text("".join(n + "\n" for n in mixed.shuffled(names, scale.random_reads)))
        few = self._make_many(self.few, max(1, scale.folders // 100), mixed)
        picks = [few[i % len(few)] for i in range(scale.random_reads)]
        self.few_random_names.write_text("".join(n + "\n" for n in picks))
        self._make_mixed(mixed)
        with _writer(self.large) as archive:
            info = zipfile.ZipInfo("large.bin", STAMP)
            info.compress_type = zipfile.ZIP_DEFLATED
            info.external_attr = 0o100644 << 16
            info.file_size = scale.large_bytes
            with archive.open(info, "w") as out:
                for _ in range(scale.large_bytes >> 20):
                    out.write(mixed.file(1 << 20))
        with _writer(self.overwritten) as archive:
            _add(archive, "big.bin", b"".join(mixed.file(1 << 20) for _ in range(scale.overwritten_bytes >> 20)))
            _add(archive, "small.txt", b"small")
        self.overwriting.write_bytes(
            b"".join(mixed.file(1 << 20) for _ in range(scale.overwritten_bytes >> 20)))
        self.added.write_bytes(mixed.text(20_000))
        names = [f"n{i // 100:03}/file{i:05}.txt" for i in range(scale.new_files)]
        for name in names:
            place = self.new / name
            place.parent.mkdir(parents=True, exist_ok=True)
            place.write_bytes(mixed.text(scale.new_file_bytes))
        self._paths_of(self.new).write_text("".join(name + "\n" for name in names))

    def _make_many(self, path, folders, mixed):
        names = []
        with _writer(path) as archive:
            for folder in range(folders):
                for file in range(self.scale.files_in_folder):
                    names.append(f"folder{folder:04}/some-file-{file:03}.txt")
                    _add(archive, names[-1], mixed.text(40))
        return names

    def _make_mixed(self, mixed):
        scale = self.scale
        mean = scale.mixed_bytes / scale.mixed_files
        with _writer(self.mixed) as archive:
            for i in range(scale.mixed_files):
                data = mixed.file(mixed.size(mean))
                name = f"m{i // 100:03}/item{i:05}.bin"
                _add(archive, name, data)
                place = self.tree / name
                place.parent.mkdir(parents=True, exist_ok=True)
                place.write_bytes(data)


def directory(path):
    """What an archive holds: name to (CRC-32, size), folders left out."""
    with zipfile.ZipFile(path) as archive:
        return {i.filename.lstrip("/"): (i.CRC, i.file_size) for i in archive.infolist() if not i.is_dir()}


def crc_of(path):
    crc = 0
    with open(path, "rb") as file:
        while block := file.read(1 << 20):
            crc = zlib.crc32(block, crc)
    return crc
