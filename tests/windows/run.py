#!/usr/bin/env python3
"""What can only be seen on Windows, under Wine: registration, scripts, clients of the type library, the packages.

    tests/windows/run.py BUILD_FOLDER LINUX_BUILD_FOLDER

BUILD_FOLDER is one of the preset "windows"; what the tests need is built there first. LINUX_BUILD_FOLDER has
kxdata7 for this machine, against whose plants those of the Windows programs are held, and run_server.
"""

from __future__ import annotations

import contextlib
import csv
import datetime
import pathlib
import re
import shutil
import sqlite3
import subprocess
import sys
import time
import unittest
import zipfile
from typing import Any, Dict, Iterable, List, Tuple

import installer_test
from installer_test import InstallerTest
from registration import PARENTS, PROG_ID, difference, registration
from wine import LONGEST_RUN, Registry, Wine, windows_path

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent

# Set by main().
build: pathlib.Path
linux_build: pathlib.Path
archive: pathlib.Path
wine: Wine


def run_linux_tool(*arguments: str) -> str:
    """What the Linux tool prints."""
    return subprocess.run(
        [linux_build / "kxdata7", *arguments], check=True, stdout=subprocess.PIPE, encoding="utf-8", timeout=LONGEST_RUN
    ).stdout


def library() -> str:
    return windows_path(build / "KXData7.dll")


class WindowsTest(unittest.TestCase):
    maxDiff = None

    def run_program(self, *command: str, expected: str | None = None, cwd: pathlib.Path | None = None) -> str:
        result = wine.run(*command, cwd=cwd)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        if expected is not None:
            self.assertEqual(result.stdout.strip(), expected)
        return result.stdout

    def expect_added(self, before: Tuple[Registry, Registry], for_all: Registry, for_one: Registry) -> None:
        """What is in the registry beside what was there; the rest is as it was."""
        found = wine.classes()
        self.assertEqual(difference(before[0], found[0]), for_all)
        self.assertEqual(difference(before[1], found[1]), for_one)

    def run_script(self, script: pathlib.Path, *arguments: str) -> None:
        """A script or program that says what is wrong, and END."""
        self.run_program("cscript", "//nologo", windows_path(script), *arguments, expected="END")

    def run_tool(self, *arguments: str) -> str:
        return self.run_program(str(build / "kxdata7.exe"), *arguments)


class Registered(WindowsTest):
    """For all users."""

    @classmethod
    def setUpClass(cls) -> None:
        wine.run("regsvr32", "/s", library()).check_returncode()

    @classmethod
    def tearDownClass(cls) -> None:
        wine.run("regsvr32", "/s", "/u", library()).check_returncode()


# ---- Registration ----


class RegistrationTest(WindowsTest):
    def setUp(self) -> None:
        self.before = wine.classes()
        self.assertGreater(len(self.before[0]), 1000)

    def expect(self, for_all: Registry, for_one: Registry) -> None:
        self.expect_added(self.before, for_all, for_one)

    def test_for_all_users(self) -> None:
        self.run_program("regsvr32", "/s", library())
        self.expect(registration(library()), {})
        self.run_program("regsvr32", "/s", "/u", library())
        self.expect({}, {})
        # There is nothing left to take out.
        self.run_program("regsvr32", "/s", "/u", library())
        self.expect({}, {})

    def as_user(self, function: str) -> None:
        self.run_program(str(build / "tests/windows/as_user.exe"), function, library(), expected="")

    def test_for_one_user(self) -> None:
        self.as_user("DllRegisterServer")
        self.expect({}, {**PARENTS, **registration(library())})
        self.as_user("DllUnregisterServer")
        self.expect({}, PARENTS)
        # A user takes out what is his own, an administrator both.
        self.run_program("regsvr32", "/s", library())
        self.as_user("DllRegisterServer")
        self.as_user("DllUnregisterServer")
        self.expect(registration(library()), PARENTS)
        self.as_user("DllRegisterServer")
        self.run_program("regsvr32", "/s", "/u", library())
        self.expect({}, PARENTS)


# ---- Clients ----


def await_quiet_shift() -> None:
    """Waits out a change of shift, which would show in one of two plants alone."""
    now = datetime.datetime.now()
    for hour in (0, 6, 14, 22):
        change = now.replace(hour=hour, minute=0, second=0)
        for day in (change, change + datetime.timedelta(days=1)):
            if 0 < (day - now).total_seconds() < 60:
                time.sleep((day - now).total_seconds() + 1)


Rows = List[Tuple[Any, ...]]


def contents(plant: pathlib.Path) -> Dict[str, Rows]:
    """All rows of a plant. Of times and durations only whether they are there."""
    with contextlib.closing(sqlite3.connect(plant)) as db:
        tables = [name for (name,) in db.execute("select name from sqlite_master where type = 'table'")]
        result: Dict[str, Rows] = {}
        for table in tables:
            if not table.startswith("T_"):
                continue
            types = [row[2] for row in db.execute(f"pragma table_info({table})")]
            vague = [kind in ("DATETIME", "REAL") for kind in types]
            result[table] = [
                tuple(value is not None if is_vague else value for is_vague, value in zip(vague, row))
                for row in db.execute(f"select * from {table} order by 1")
            ]
        return result


# What calls.vbs and calls.js report, as the tool has it.
VBSCRIPT_EVENTS = [
    ("101", "logon start", "Anna Berg"),
    ("101", "job start", "J-1001"),
    ("101", "operation start", "10"),
    ("101", "setup start", ""),
    ("101", "setup end", ""),
    ("101", "cycle start", ""),
    ("101", "cycle end", ""),
    ("101", "good", "5"),
    ("101", "scrap", "2.17"),
    ("101", "machine downtime start", "01"),
    ("101", "machine downtime end", "01"),
    ("101", "custom 100", "Tank 2"),
    ("101", "teardown start", ""),
    ("101", "teardown end", ""),
    ("101", "refresh", ""),
    ("101", "refresh", ""),
    ("101", "job end", ""),
]
JSCRIPT_EVENTS = [
    ("102", "logon start", "Zoë Lindqvist"),
    ("102", "custom 100", "€ 😀"),
    ("102", "refresh", ""),
]


def report(plant: str, events: Iterable[Tuple[str, str, str]]) -> None:
    for machine, event, param in events:
        run_linux_tool("append", plant, "--dnc", "--machine", machine, "--event", event, "--param", param)
    run_linux_tool("process", plant, "--all")


class ScriptTest(Registered):
    """Scripts, on a plant that the Windows tool made, against the Linux tool on one that it made itself."""

    def setUp(self) -> None:
        await_quiet_shift()
        self.plants = [wine.folder / name for name in ("Werk Süd 工場.db", "linux.db")]
        for plant in self.plants:
            plant.unlink(missing_ok=True)
        self.plant, self.linux_plant = self.plants
        self.run_tool("create", self.plant.name, "--demo")
        run_linux_tool("create", str(self.linux_plant), "--demo")
        self.connection_string = f"Provider=SQLite;Data Source={windows_path(self.plant)}"

    def expect_same_plants(self) -> None:
        self.assertEqual(contents(self.plant), contents(self.linux_plant))
        self.assertIn("ok       machines: 4", run_linux_tool("doctor", str(self.plant)))

    def test_vbscript(self) -> None:
        self.run_script(HERE / "calls.vbs", self.connection_string)
        report(str(self.linux_plant), VBSCRIPT_EVENTS)
        self.expect_same_plants()

    def test_jscript(self) -> None:
        for plant in self.plants:
            report(str(plant), [("101", "logon start", "Anna Berg")])
        with contextlib.closing(sqlite3.connect(self.plant)) as db, db:
            # Closed, for the script to complete it.
            closed = db.execute("update T_SFC_MACHINE_DATA set STATUS_CODE = 1 where MACHINE_DATA_ID = 1")
            self.assertEqual(closed.rowcount, 1)
        self.assertNotEqual(contents(self.plant), contents(self.linux_plant))
        self.run_script(HERE / "calls.js", self.connection_string)
        report(str(self.linux_plant), JSCRIPT_EVENTS)
        self.expect_same_plants()

    def test_monitor(self) -> None:
        monitor = ["cscript", "//nologo", windows_path(ROOT / "examples/monitor.vbs")]
        place = ["103", "20", "1", "20"]
        output = self.run_program(*monitor, self.connection_string, *place)
        self.assertIn("Applied 3 events, 0 wait.", output)
        cycle = [("103", "cycle start", ""), ("103", "cycle end", ""), ("103", "good", "1")]
        report(str(self.linux_plant), cycle)
        self.expect_same_plants()

        # An event that no handler takes stays, and the monitor ends.
        with contextlib.closing(sqlite3.connect(self.plant)) as db, db:
            db.execute(
                "insert into T_SFC_MDC_LOG (COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID,"
                " COMMAND_TIME_CODE, TIME_STAMP, PARAM1)"
                " select COMMAND_ID, 1, 1, 1, 1, 0, datetime('now', 'localtime'), '-32768'"
                " from T_SFC_COMMAND where COMMAND_TYPE_CODE = 14"
            )
        failed = wine.run(*monitor, self.connection_string, *place)
        self.assertEqual(failed.returncode, 1, failed.stdout)
        self.assertIn("Applied 0 events, 4 wait.", failed.stdout)
        self.assertRegex(failed.stdout, "The first event stays: .+")
        failed = wine.run(*monitor, "Provider=SQLite;Data Source=nowhere.db")
        self.assertEqual(failed.returncode, 1, failed.stdout)
        self.assertIn('monitor: cannot open "nowhere.db"', failed.stdout)


class EarlyBindingTest(Registered):
    def test_early_binding(self) -> None:
        plant = wine.folder / "early_binding.db"
        self.run_tool("create", plant.name, "--demo")
        self.run_program(str(build / "tests/windows/early_binding.exe"), windows_path(plant), expected="END")


# ---- Plants on a server ----


class ServerTest(Registered):
    """ODBC, through this machine's driver: its connection string is that of a Linux client."""

    server: subprocess.Popen[str]
    plant: str

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        program = linux_build / "tests/run_server"
        cls.server = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, encoding="utf-8")
        assert cls.server.stdout is not None
        cls.plant = cls.server.stdout.readline().strip()

    @classmethod
    def tearDownClass(cls) -> None:
        cls.server.communicate(timeout=LONGEST_RUN)  # it ends with its standard input
        super().tearDownClass()

    def records(self, plant: str) -> List[List[str]]:
        """Without times."""
        header, *lines = run_linux_tool("records", plant, "--csv").splitlines()
        names = header.split(",")
        timeless = [i for i, name in enumerate(names) if not re.search("start|stop|date|_h$|_min$", name)]
        self.assertGreater(len(timeless), 10)
        return [[line.split(",")[i] for i in timeless] for line in lines]

    def test_plant_on_postgresql(self) -> None:
        await_quiet_shift()
        plant = self.plant
        reference = str(wine.folder / "reference.db")
        for made in (plant, reference):
            run_linux_tool("create", made, "--demo")
        self.run_script(HERE / "calls.vbs", plant)
        coolant = ("102", "custom 100", "Öl € 😀")
        event = ["--machine", coolant[0], "--event", coolant[1], "--param", coolant[2]]
        self.run_tool("append", plant, "--dnc", *event)
        self.assertIn(coolant[2], run_linux_tool("queue", plant))
        self.assertIn("Applied 1 of 1 events", self.run_tool("process", plant, "--all"))
        self.assertNotIn("failed", self.run_tool("doctor", plant))
        report(reference, [*VBSCRIPT_EVENTS, coolant])
        self.assertEqual(self.records(plant), self.records(reference))


# ---- The service ----


class ServiceTest(WindowsTest):
    """Wine's service manager does not last from one program to the next: the service itself does not run here."""

    def test_is_installed_and_left_to_the_manager(self) -> None:
        plant, log = windows_path(wine.folder / "Halle Süd" / "plant.db"), windows_path(wine.folder / "hall.log")
        options = ["hall", plant, "--dialect", "0", "--library", library(), "--log", log]
        self.run_tool("service", "install", *options)
        key = r"HKLM\System\CurrentControlSet\Services\hall"
        image = self.run_program("reg", "query", key, "/v", "ImagePath")
        tool = windows_path(build / "kxdata7.exe")
        self.assertRegex(image, re.escape(f'"{tool}" service run "hall" "') + r'.*Halle S.+d\\plant\.db" "--dialect"')
        by_hand = wine.run(str(build / "kxdata7.exe"), "service", "run", *options)
        self.assertEqual((by_hand.returncode, "the service control manager alone" in by_hand.stderr), (1, True), by_hand)
        secret = wine.run(str(build / "kxdata7.exe"), "service", "install", "other", "Driver=x;Pwd=secret")
        self.assertIn("a password must not stand there", secret.stderr)
        self.run_program("reg", "delete", key, "/f")


# ---- The package ----


class PackageTest(WindowsTest):
    def setUp(self) -> None:
        self.folder = wine.drive / "KXData7"
        with zipfile.ZipFile(archive) as package:
            package.extractall(self.folder)
        self.addCleanup(shutil.rmtree, self.folder)

    def test_cpp_example(self) -> None:
        compiler = ["x86_64-w64-mingw32-g++-posix", "-std=c++20", "-static", f"-I{self.folder}"]
        program = self.folder / "monitor.exe"
        source = self.folder / "examples/monitor.cpp"
        libraries = ["-lole32", "-loleaut32", "-luuid", "-ladvapi32"]
        subprocess.run([*compiler, source, "-o", program, *libraries], check=True)
        self.run_program(str(self.folder / "kxdata7.exe"), "create", "plant.db", "--demo", cwd=self.folder)
        plant = "Provider=SQLite;Data Source=plant.db"
        output = self.run_program(str(program), plant, "KXData7.dll", cwd=self.folder)
        self.assertIn("3 events waited, 3 were applied.", output)

    def test_readme(self) -> None:
        # The steps as they stand there.
        before = wine.classes()
        text = (self.folder / "README.txt").read_bytes().decode()
        for file in re.findall(r"(?:examples\\|KXData7\.)[\w.]+\w", text):
            if file != PROG_ID:
                self.assertTrue((self.folder / file.replace("\\", "/")).exists(), file)
        commands = re.findall("^    (.*)\r$", text, re.MULTILINE)
        self.assertGreater(len(commands), 7)
        # One after the other in one command prompt, up to the first that fails.
        prompt = wine.folder / "readme.cmd"
        lines = [f"{command}\r\nif errorlevel 1 exit 1\r\n" for command in commands]
        prompt.write_text("@echo off\r\n" + "".join(lines))
        output = self.run_program("cmd", "/c", windows_path(prompt), cwd=wine.drive)
        for expected in (
            "Successfully registered",
            "The plant is ready",
            "ok       component",
            "Queued: cycle start of machine 101.",
            "Queued: cycle start of machine 102.",
            "Successfully unregistered",
        ):
            self.assertIn(expected, output)
        self.assertNotIn("failed", output)
        self.expect_added(before, {}, {})
        records = run_linux_tool("records", str(self.folder / "plant.db"), "--csv")
        rows = list(csv.DictReader(records.splitlines()))
        for count in ("finished", "good"):
            self.assertEqual(sum(int(row[count]) for row in rows), 2, records)


def prepare() -> None:
    """Builds what the tests need."""
    global archive
    subprocess.run([ROOT / "scripts/bootstrap", "wine", "wine64"], check=True)
    package = subprocess.run(
        [ROOT / "scripts/package", build], check=True, stdout=subprocess.PIPE, encoding="utf-8"
    )
    [name] = re.findall(r"KXData7-[\d.]+-windows\.zip", package.stdout)
    archive = installer_test.archive = build.parent / name
    installer_test.installer = build.parent / name.replace("-windows.zip", ".msi")
    clients = ["cmake", "--build", str(build), "--target", "windows_clients", "--", "--quiet"]
    subprocess.run(clients, check=True, stdout=subprocess.DEVNULL)


def main() -> int:
    global build, linux_build, wine
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    build, linux_build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    try:
        prepare()
    except subprocess.CalledProcessError as error:
        print(error.stdout or "", f"Windows tests failed: {error}", sep="\n")
        return 1
    wine = installer_test.wine = Wine()
    try:
        loader = unittest.defaultTestLoader
        kinds = (RegistrationTest, ScriptTest, EarlyBindingTest, ServerTest, ServiceTest, PackageTest, InstallerTest)
        suite = unittest.TestSuite(loader.loadTestsFromTestCase(kind) for kind in kinds)
        begun = time.monotonic()
        result = unittest.TextTestRunner(sys.stdout, verbosity=2).run(suite)
    finally:
        wine.close()
    if not result.wasSuccessful():
        print("Windows tests failed.")
        return 1
    print(f"Windows tests passed: {result.testsRun} under Wine, in {time.monotonic() - begun:.0f} s.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
