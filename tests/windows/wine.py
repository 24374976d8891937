"""Windows programs under Wine, in a prefix of their own."""

from __future__ import annotations

import os
import pathlib
import subprocess
import tempfile
from typing import Dict

# Seconds that one program may take; the longest waits for a locked plant.
LONGEST_RUN = 60

Registry = Dict[str, Dict[str, str]]  # key, name of a value, value; keys in lower case, the unnamed value is @


def windows_path(path: pathlib.Path) -> str:
    """How Windows programs name a file of this machine."""
    return "Z:" + str(path.resolve()).replace("/", "\\")


class Wine:
    """One Windows, from its installation to its end. It shows nothing and has no Mono and no browser."""

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
            WINEDLLOVERRIDES="mscoree=;mshtml=",
        )
        try:
            self.run("wineboot", "--init", timeout=180).check_returncode()
        except BaseException:
            self.close()
            raise

    def run(
        self, *command: str, cwd: pathlib.Path | None = None, timeout: int = LONGEST_RUN
    ) -> subprocess.CompletedProcess[str]:
        """Runs a program to its end; its standard error is part of its output."""
        return subprocess.run(
            ["wine", *command],
            cwd=cwd or self.folder,
            env=self._environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            errors="replace",
            timeout=timeout,
        )

    def registry(self) -> Registry:
        """What the registry holds of programs: of all users' and of this one's."""
        keys: Registry = {}
        values: Dict[str, str] = {}
        file = self.folder / "registry.reg"
        for root in ("HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER"):
            self.run("regedit", "/E", windows_path(file), root + "\\Software").check_returncode()
            for line in file.read_text("utf-16").replace("\\\n", "").splitlines():
                if line.startswith("["):
                    values = keys.setdefault(line.strip("[]").lower(), {})
                elif "=" in line:
                    name, value = line.split("=", 1)
                    values[name.strip('"')] = value.strip('"').replace("\\\\", "\\")
            file.unlink()
        return keys

    def close(self) -> None:
        subprocess.run(["wineserver", "-k"], env=self._environment, timeout=LONGEST_RUN, check=False)
        subprocess.run(["wineserver", "-w"], env=self._environment, timeout=LONGEST_RUN, check=False)
        self._folder.cleanup()
