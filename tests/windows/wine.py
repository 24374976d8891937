"""Windows programs under Wine, in a prefix of their own."""

from __future__ import annotations

import os
import pathlib
import re
import subprocess
import tempfile
from typing import Dict, List, Tuple

# Seconds that one program may take; the longest waits for a locked plant.
LONGEST_RUN = 60

# Key, name of a value, value. Keys are in lower case, the unnamed value is called @.
Registry = Dict[str, Dict[str, str]]
VALUE = re.compile(r'(@|"(?:[^"\\]|\\.)*")=(.*)')
# What the files write after a backslash: that itself, and the number of what is not ASCII.
ESCAPE = re.compile(r"\\(?:\\|x([0-9a-f]{1,4}))")


def windows_path(path: pathlib.Path) -> str:
    """How Windows programs name a file of this machine."""
    return "Z:" + str(path.resolve()).replace("/", "\\")


class Wine:
    """One Windows, from its installation to its end. It shows nothing and has no Mono and no browser, and its start
    menu does not become that of this machine."""

    def __init__(self) -> None:
        self._folder = tempfile.TemporaryDirectory(prefix="kxdata7-wine-")
        self.folder = pathlib.Path(self._folder.name)  # for the tests' own files
        self.drive = self.folder / "prefix" / "drive_c"
        self._environment = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
        self._environment.update(
            WINEPREFIX=str(self.folder / "prefix"),
            WINEARCH="win64",
            WINEDEBUG="-all",
            LC_ALL="C.UTF-8",  # how programs are given their arguments
            WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=",
        )
        try:
            self.run("wineboot", "--init", timeout=180).check_returncode()
        except BaseException:
            self.close()
            raise

    def run(
        self, *command: str, cwd: pathlib.Path | None = None, timeout: float = LONGEST_RUN
    ) -> subprocess.CompletedProcess[str]:
        """Runs a program to its end. Wine's own messages are on the standard error, too."""
        # Not through pipes, which the services that Wine starts would keep open.
        with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors:
            finished = subprocess.run(
                ["wine", *command],
                cwd=cwd or self.folder,
                env=self._environment,
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=errors,
                timeout=timeout,
            )
            texts: List[str] = []
            for file in (output, errors):
                file.seek(0)
                texts.append(file.read().decode("utf-8", errors="replace").replace("\r\n", "\n"))
        return subprocess.CompletedProcess(command, finished.returncode, *texts)

    def classes(self) -> Tuple[Registry, Registry]:
        """What the registry holds in Software\\Classes: for all users, for this one.

        Read from the files that Wine keeps it in, which are whole when Windows has been shut down.
        """
        self.shut_down()
        return self._classes("system.reg"), self._classes("user.reg")

    def mentions(self, pattern: str) -> List[str]:
        """The keys and values of the registry that the pattern fits."""
        self.shut_down()
        lines = [line for file in ("system.reg", "user.reg") for line in self._lines(file)]
        return [line for line in lines if re.search(pattern, line, re.IGNORECASE)]

    def _lines(self, file: str) -> List[str]:
        text = (self.folder / "prefix" / file).read_text("utf-8", errors="replace")
        text = ESCAPE.sub(lambda escape: chr(int(escape[1], 16)) if escape[1] else escape[0], text)
        return text.replace("\\\n", "").splitlines()

    def _classes(self, file: str) -> Registry:
        keys: Registry = {}
        values: Dict[str, str] = {}
        for line in self._lines(file):
            if line.startswith("["):
                path = line[1 : line.rindex("]")].lower().split("\\\\")
                values = {}
                if path[:2] == ["software", "classes"]:
                    # The files leave out a key that has nothing but keys.
                    for length in range(2, len(path)):
                        keys.setdefault("\\".join(path[2:length]), {})
                    values = keys.setdefault("\\".join(path[2:]), {})
            elif found := VALUE.fullmatch(line):
                values[found[1].strip('"')] = found[2].strip('"').replace("\\\\", "\\")
        return keys

    def shut_down(self) -> None:
        """Ends whatever runs; the next program starts Windows again."""
        for option in ("-k", "-w"):
            subprocess.run(["wineserver", option], env=self._environment, timeout=LONGEST_RUN, check=False)

    def close(self) -> None:
        self.shut_down()
        self._folder.cleanup()
