"""The Windows installer under Wine: installed for all users and for one, used, repaired, upgraded and removed.

Wine's "msiexec /f" knows no file and does nothing to a product's code: what it stands for is given by its properties.
So is MSIINSTALLPERUSER, which Wine has not: it takes ALLUSERS away.
"""

from __future__ import annotations

import os
import pathlib
import re
import shutil
import subprocess
import unittest
import zipfile
from typing import List, Tuple

from registration import CLASS, INTERFACE, PARENTS, PROG_ID, TYPE_LIBRARY, difference, registration
from wine import Registry, Wine, windows_path

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
REPAIR = ["REINSTALL=ALL", "REINSTALLMODE=amus"]
REFUSED = 1603 & 0xFF  # what is left of the status behind Wine

# Set by run.py: Windows, the installer, and the archive with the same files.
wine: Wine
installer: pathlib.Path
archive: pathlib.Path


class InstallerTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls) -> None:
        # With the first script Wine changes what it has of its own.
        wine.run("cscript", "//nologo", windows_path(ROOT / "examples/monitor.vbs"))

    def setUp(self) -> None:
        self.before = self.classes()
        self.files_before = self.files()
        self.addCleanup(wine.run, "msiexec", "/x", windows_path(installer), "/qn")
        with zipfile.ZipFile(archive) as package:
            self.content = sorted(name for name in package.namelist() if not name.endswith("/"))

    def msiexec(self, *arguments: str, file: pathlib.Path | None = None, expected: int = 0) -> None:
        # Wine takes what follows an empty property for its value: ALLUSERS= comes last.
        result = wine.run("msiexec", "/qn", "/i", windows_path(file or installer), *arguments)
        self.assertEqual(result.returncode, expected, result.stdout + result.stderr)

    def classes(self) -> Tuple[Registry, Registry]:
        """Without the installer's own books."""
        for_all, for_one = wine.classes()
        return {key: for_all[key] for key in for_all if not key.startswith("installer")}, for_one

    def files(self) -> List[str]:
        """And the folders without one. Windows' own are left out, and the folder for a user's programs."""
        paths = (path for path in wine.drive.rglob("*") if path.is_file() or not any(path.iterdir()))
        names = (path.relative_to(wine.drive).as_posix() for path in paths)
        own = re.compile(r"windows/|users/[^/]*/(AppData/Local/)?(Temp|Programs$)")
        return sorted(name for name in names if not own.match(name))

    def expect(self, folder: pathlib.Path, for_all: bool) -> None:
        """It is installed there, for all users or for one, as nothing else is."""
        links = [f"Programs/KXData7/{name}.lnk" for name in ("Documents", "Read me")]
        added = [name for name in self.files() if name not in self.files_before]
        self.assertEqual(sorted(name.partition("Start Menu/")[2] for name in added if name.endswith(".lnk")), links)
        place = folder.relative_to(wine.drive).as_posix() + "/"
        others = sorted(name.removeprefix(place) for name in added if not name.endswith(".lnk"))
        self.assertEqual(others, self.content)
        rows = registration(windows_path(folder / "KXData7.dll").replace(windows_path(wine.drive), "C:"))
        found = self.classes()
        self.assertEqual(difference(self.before[0], found[0]), rows if for_all else {})
        user = {**PARENTS, **({} if for_all else rows)}
        self.assertEqual({**PARENTS, **difference(self.before[1], found[1])}, user)

    def expect_nothing(self) -> None:
        self.assertEqual(self.files(), self.files_before)
        self.assertEqual(wine.mentions(f"KXData7(?!-wine)|{CLASS}|{INTERFACE}|{TYPE_LIBRARY}"), [])

    def damage(self, folder: pathlib.Path, root: str) -> None:
        """As users and tidy programs do."""
        (folder / "KXData7.dll").unlink()
        (folder / "README.txt").write_text("scribbled")
        shutil.rmtree(folder / "docs")
        for key in (f"CLSID\\{CLASS}", f"TypeLib\\{TYPE_LIBRARY}", PROG_ID):
            wine.run("reg", "delete", f"{root}\\Software\\Classes\\{key}", "/f").check_returncode()

    def test_for_all_users(self) -> None:
        folder = wine.drive / "KX für alle"
        self.msiexec(r"INSTALLFOLDER=C:\KX für alle")
        self.expect(folder, for_all=True)
        plant = wine.folder / "Werk Süd.db"
        wine.run(str(folder / "kxdata7.exe"), "create", windows_path(plant), "--demo").check_returncode()
        script = ["cscript", "//nologo", windows_path(folder / "examples/monitor.vbs")]
        client = wine.run(*script, f"Provider=SQLite;Data Source={windows_path(plant)}")
        self.assertIn("Applied 3 events, 0 wait.", client.stdout, client.stderr)

        # For one user beside it is refused.
        self.msiexec("ALLUSERS=", expected=REFUSED)
        self.expect(folder, for_all=True)
        self.damage(folder, "HKLM")
        self.msiexec(*REPAIR)
        self.assertNotEqual((folder / "README.txt").read_text(), "scribbled")
        self.expect(folder, for_all=True)
        self.msiexec("REMOVE=ALL", "ALLUSERS=")
        self.expect_nothing()
        self.assertTrue(plant.exists())

    def test_for_one_user(self) -> None:
        self.msiexec("ALLUSERS=")
        [library] = wine.drive.glob("users/*/AppData/Local/Programs/KXData7/KXData7.dll")
        self.expect(library.parent, for_all=False)
        # For all users beside it is refused.
        self.msiexec(expected=REFUSED)
        self.expect(library.parent, for_all=False)
        self.damage(library.parent, "HKCU")
        self.msiexec(*REPAIR)
        self.expect(library.parent, for_all=False)
        self.msiexec("REMOVE=ALL")
        self.expect_nothing()

    def test_upgrade(self) -> None:
        # From a version with a file that the later one has no more, to where that one was.
        older = wine.folder / "older.msi"
        with zipfile.ZipFile(archive) as package:
            package.extractall(wine.folder / "older")
        (wine.folder / "older/gone.txt").touch()
        command = [ROOT / "packaging/windows/installer.py", wine.folder / "older", "0.9.0", older]
        subprocess.run(list(map(str, command)), env={**os.environ, "SOURCE_DATE_EPOCH": "0"}, check=True)
        folder = wine.drive / "KX alt"
        self.msiexec(r"INSTALLFOLDER=C:\KX alt", "ALLUSERS=", file=older)
        self.assertTrue((folder / "gone.txt").exists())
        self.msiexec("ALLUSERS=")
        self.expect(folder, for_all=False)
        self.msiexec("ALLUSERS=", file=older, expected=REFUSED)
        self.expect(folder, for_all=False)
        self.msiexec("REMOVE=ALL")
        self.expect_nothing()
