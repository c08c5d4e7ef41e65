"""Who is measured, and by which commands. A participant that is not installed does not take part."""

import dataclasses
import os
import pathlib
import shutil
import subprocess
import sys


@dataclasses.dataclass
class Run:
    """One command: its words, where it runs, and the archive that it works on."""
    words: list
    folder: pathlib.Path | None = None
    # An archive that is mounted below `folder` while `words` run.
    mounted: list | None = None


class Peers:
    """The commands of each participant. `tools` holds the drivers, `kxvfs` is the tool to be measured."""

    def __init__(self, kxvfs, tools, work):
        # Name to why it does not take part.
        self.absent = {}
        self.kxvfs = str(kxvfs)
        self.kx_driver = str(tools / "kx_driver")
        self.drivers = {name: str(tools / f"{name}_driver") for name in ("libzip", "minizip")
                        if self._takes_part(name, (tools / f"{name}_driver").exists(), "its driver was not built")}
        here = pathlib.Path(__file__).resolve().parent.parent / "drivers"
        self.drivers["Python zipfile"] = [sys.executable, str(here / "zipfile_driver.py")]
        if java := self._java(here / "ZipfsDriver.java", work):
            self.drivers["JDK zipfs"] = java
        can_mount = shutil.which("fusermount") and os.access("/dev/fuse", os.R_OK | os.W_OK)
        self.mounts = {name: [name] for name in ("fuse-zip", "archivemount")
                       if self._is_installed(name) and self._takes_part(name, can_mount, "nothing can be mounted here")}
        self.tools = {name: shutil.which(name) for name in ("unzip", "zip", "bsdtar", "7z") if self._is_installed(name)}

    def _takes_part(self, name, condition, reason):
        if not condition:
            self.absent[name] = reason
        return condition

    def _is_installed(self, name):
        return self._takes_part(name, shutil.which(name), "not installed")

    def _java(self, source, work):
        if not (shutil.which("java") and shutil.which("javac")):
            self.absent["JDK zipfs"] = "no JDK is installed"
            return None
        classes = work / "classes"
        made = subprocess.run(["javac", "-d", classes, source], capture_output=True, text=True)
        self._takes_part("JDK zipfs", made.returncode == 0, f"its driver cannot be compiled: {made.stderr.strip()}")
        return ["java", "-cp", str(classes), "ZipfsDriver"] if made.returncode == 0 else None

    def versions(self):
        """A line for each participant that says which one it is."""
        commands = {"Info-ZIP unzip": ["unzip", "-v"], "Info-ZIP zip": ["zip", "-v"], "7z": ["7z"],
                    "bsdtar": ["bsdtar", "--version"], "Java": ["java", "-version"],
                    "Python": [sys.executable, "--version"], "fuse-zip": ["fuse-zip", "-V"],
                    "archivemount": ["archivemount", "-V"]}
        for name, command in commands.items():
            if shutil.which(command[0]):
                out = subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL)
                lines = [line for line in (out.stdout + out.stderr).splitlines() if any(c.isdigit() for c in line)]
                # A mount tells of its libraries, too.
                lines.sort(key=lambda line: not line.startswith(command[0]))
                yield f"{name}: {lines[0].strip() if lines else 'version unknown'}"

    def driven(self, action, archive, *arguments, without=()):
        """The same action by every driver."""
        for name, driver in self.drivers.items():
            if name not in without:
                words = driver if isinstance(driver, list) else [driver]
                yield name, Run([*words, action, str(archive), *map(str, arguments)])

    def mounting(self, archive, mountpoint, words, options=(), names=("fuse-zip", "archivemount")):
        for name, command in self.mounts.items():
            if name not in names:
                continue
            yield f"{name} (mount)", Run(words, mountpoint, [*command, *options, str(archive), str(mountpoint)])

    def tool(self, name, *words, folder=None):
        if name in self.tools:
            yield {"unzip": "Info-ZIP", "zip": "Info-ZIP"}.get(name, name), Run([name, *map(str, words)], folder)
