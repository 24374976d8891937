"""The processor that works a plant off: alone, as events come, and ending in order. On real plants, by the tool."""

from __future__ import annotations

import datetime
import os
import pathlib
import re
import signal
import socket
import sqlite3
import subprocess
import tempfile
import time
import unittest
import unittest.mock
from typing import Callable, List, Optional

TOOL = os.environ["KXDATA7_TOOL"]
SERVER = os.environ["KXDATA7_RUN_SERVER"]
os.environ.update(TZ="UTC", PGTZ="UTC")

# A Monday that is over: its shifts are known, and there are few to catch up with.
TODAY = datetime.datetime.now(datetime.timezone.utc).date()
MONDAY = TODAY - datetime.timedelta(days=TODAY.weekday() + (7 if TODAY.weekday() < 2 else 0))
DAY = str(MONDAY)
NEXT_DAY = str(MONDAY + datetime.timedelta(days=1))


def wait_until(condition: Callable[[], bool], what: str, seconds: float = 60) -> None:
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"{what} did not come within {seconds} s")
        time.sleep(0.01)


class Cases:
    """What holds on every plant; this one is on SQLite."""

    def setUp(self) -> None:
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        self.plant = self.new_plant()
        self.tool("create", self.plant, "--demo", "--start", DAY)

    def new_plant(self) -> str:
        return str(self.folder / "plant.db")

    def query(self, statement: str) -> List[List[str]]:
        plant = sqlite3.connect(self.plant, timeout=20, isolation_level=None)
        try:
            return [[str(field) for field in row] for row in plant.execute(statement)]
        finally:
            plant.close()

    def number(self, statement: str) -> int:
        return int(self.query(statement)[0][0])

    def waiting(self) -> int:
        return self.number("select count(*) from T_SFC_MDC_LOG")

    def start(self, *arguments: str) -> subprocess.Popen[str]:
        process = subprocess.Popen(
            [TOOL, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8", cwd=self.folder
        )
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def tool(self, *arguments: str) -> str:
        process = self.start(*arguments)
        output, errors = process.communicate()
        self.assertEqual((process.returncode, errors), (0, ""), arguments)
        return output

    def follow(self, *arguments: str) -> subprocess.Popen[str]:
        """Starts a processor that stays, and waits until it holds the plant."""
        process = self.start("process", self.plant, "--follow", *arguments)
        assert process.stdout
        self.assertIn("Works the plant off.", process.stdout.readline())
        return process

    def end(self, process: subprocess.Popen[str], sent: Optional[int] = signal.SIGTERM) -> str:
        if sent is not None:
            process.send_signal(sent)
        output, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 0, errors)
        self.assertIn("Stopped; ", output)
        return errors

    def import_lines(self, lines: List[str]) -> None:
        (self.folder / "day.csv").write_text("time,event,param\n" + "".join(line + "\n" for line in lines))
        self.tool("import", self.plant, "day.csv", "--machine", "1")

    def import_counts(self, count: int) -> None:
        self.import_lines([f"{DAY} 07:{i // 60:02}:{i % 60:02},good,1" for i in range(count)])

    def test_two_processors_work_each_event_once(self) -> None:
        cycles = 60
        self.import_lines(
            [f"{DAY} 07:{i:02}:{s},cycle {e}" for i in range(cycles) for s, e in (("00", "start"), ("30", "end"))]
        )
        alias = self.folder / "alias.db"
        alias.symlink_to("plant.db")
        again = "./alias.db" if self.plant.endswith(".db") else self.plant
        runs = [self.start("process", plant, "--all") for plant in (self.plant, again)]
        errors = [run.communicate()[1] for run in runs]
        self.assertEqual(sorted(run.returncode for run in runs), [0, 1], errors)
        self.assertRegex(
            "".join(errors),
            r"^kxdata7: the plant is being worked off by process \d+ on \S+ since 20..-..-.. ..:..:.., "
            r"and only one process at a time may do that\n$",
        )
        sums = "select sum(FINISHED_CYCLES), sum(UNFINISHED_CYCLES) from T_SFC_MACHINE_DATA"
        self.assertEqual(self.query(sums), [[str(cycles), "0"]])

    def test_ends_in_order_on_a_signal_and_counts_nothing_twice(self) -> None:
        self.import_counts(300)
        for how in (("--all",), ("--follow",)) * 4:
            before = self.waiting()
            process = self.start("process", self.plant, *how)
            wait_until(lambda: self.waiting() < before, "the first event")
            process.send_signal(signal.SIGINT if before % 2 else signal.SIGTERM)
            errors = process.communicate(timeout=60)[1]
            self.assertEqual(process.returncode, 1 if how == ("--all",) and self.waiting() else 0, errors)
            counted = self.number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA")
            # What waits includes the closing of shifts that have passed since.
            left = self.number("select count(*) from T_SFC_MDC_LOG where COMMAND_ID is not null")
            self.assertEqual(counted + left, 300)

    def test_takes_over_from_a_processor_that_was_killed(self) -> None:
        first = self.follow()
        first.kill()
        first.wait()
        second = self.follow()
        self.tool("append", self.plant, "--machine", "1", "--event", "good")
        wait_until(lambda: self.waiting() == 0, "the event")
        self.end(second)

    def test_closes_the_shifts_of_idle_machines(self) -> None:
        process = self.follow()
        open_since = "select min(START_TIME) from T_SFC_MACHINE_DATA where STOP_TIME is null"
        wait_until(lambda: self.query(open_since)[0][0] > NEXT_DAY and self.waiting() == 0, "the last shift")
        self.end(process)
        # The first Monday of the demo's three shifts, and the record before them.
        starts = (
            "select START_TIME from T_SFC_MACHINE_DATA where MACHINE_ID = 2 and "
            f"START_TIME between '{DAY}' and '{NEXT_DAY}' order by 1"
        )
        self.assertEqual([row[0][11:] for row in self.query(starts)], ["00:00:00", "06:00:00", "14:00:00", "22:00:00"])
        machines = "select count(*), count(distinct MACHINE_ID) from T_SFC_MACHINE_DATA where STOP_TIME is null"
        self.assertEqual(self.query(machines), [["4", "4"]])

    def test_keeps_an_event_that_fails_and_goes_on_when_it_is_mended(self) -> None:
        self.import_counts(3)
        self.query("update T_SFC_MDC_LOG set PARAM1 = '70000' where MDC_LOG_ID = 2")
        process = self.follow()
        setting = "select SETTING_VALUE from T_SFC_SETTING where SETTING_NAME = 'processor_error'"
        wait_until(lambda: len(self.query(setting)) == 1, "the error")
        self.assertRegex(self.query(setting)[0][0], r"^2\t20..-..-.. ..:..:..\tOverflow$")
        self.query("update T_SFC_MDC_LOG set PARAM1 = '2' where MDC_LOG_ID = 2")
        process.send_signal(signal.SIGHUP)
        counts = "select count(*) from T_SFC_MDC_LOG where COMMAND_ID is not null"
        wait_until(lambda: self.number(counts) == 0, "the rest")
        wait_until(lambda: self.query(setting) == [], "the end of the error")
        errors = self.end(process)
        self.assertRegex(errors, rf"^kxdata7: ..:..:.. row 2 \(good, machine 1, {DAY} 07:00:01\): Overflow\n$")
        self.assertEqual(self.number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), 4)

    def test_applies_an_event_once_whose_row_stays(self) -> None:
        self.import_counts(2)
        self.keep_rows(True)
        process = self.follow()
        good = "select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"
        wait_until(lambda: self.number(good) == 1, "the first count")
        self.keep_rows(False)
        counts = "select count(*) from T_SFC_MDC_LOG where COMMAND_ID is not null"
        wait_until(lambda: self.number(counts) == 0, "the rest")
        self.assertIn("was applied, but its row could not be deleted", self.end(process))
        self.assertEqual(self.number(good), 2)

    def keep_rows(self, keep: bool) -> None:
        self.query(
            "create trigger KEEP before delete on T_SFC_MDC_LOG begin select raise(abort, 'kept'); end"
            if keep
            else "drop trigger KEEP"
        )


class SqliteTest(Cases, unittest.TestCase):
    def test_stops_when_the_file_is_replaced_or_deleted(self) -> None:
        for change in (lambda: os.replace(self.folder / "other.db", self.plant), lambda: os.remove(self.plant)):
            self.tool("create", "other.db", "--demo")
            process = self.follow()
            change()
            errors = process.communicate(timeout=60)[1]
            self.assertEqual(process.returncode, 1)
            self.assertIn("the plant's file was replaced or deleted", errors)

    def test_tells_the_service_manager(self) -> None:
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(manager.close)
        manager.bind(str(self.folder / "notify"))
        manager.settimeout(60)
        environment = {"NOTIFY_SOCKET": str(self.folder / "notify"), "WATCHDOG_USEC": "400000"}
        with unittest.mock.patch.dict(os.environ, environment):
            process = self.follow()
        told = [manager.recv(1000).decode() for _ in range(8)]
        self.assertEqual(told[0], "READY=1")
        self.assertGreaterEqual(told.count("WATCHDOG=1"), 3)
        self.assertTrue(any(re.match(r"STATUS=[\d,]+ applied, \d+ wait", text) for text in told), told)
        self.end(process)
        while told[-1] != "STOPPING=1":
            told.append(manager.recv(1000).decode())


class PostgresTest(Cases, unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls.server = subprocess.Popen([SERVER], stdin=subprocess.PIPE, stdout=subprocess.PIPE, encoding="utf-8")
        assert cls.server.stdout
        cls.connection_string = cls.server.stdout.readline().strip()
        match = re.search(r"Port=(\d+)", cls.connection_string)
        assert match
        cls.port = match[1]

    @classmethod
    def tearDownClass(cls) -> None:
        cls.server.communicate()

    def new_plant(self) -> str:
        self.database = "postgres"
        name = self._testMethodName.lower()[:60]
        self.query(f"create database {name}")
        self.database = name
        return self.connection_string.replace("Database=postgres", f"Database={name}")

    def query(self, statement: str) -> List[List[str]]:
        link = ["-h", "127.0.0.1", "-p", self.port, "-U", "plant", "-d", self.database]
        run = subprocess.run(
            ["psql", "-XAqt", "-v", "ON_ERROR_STOP=1", *link, "-c", statement], capture_output=True, encoding="utf-8"
        )
        self.assertEqual(run.returncode, 0, run.stderr)
        return [line.split("|") for line in run.stdout.splitlines()]

    def keep_rows(self, keep: bool) -> None:
        if keep:
            self.query("create function KEEP() returns trigger language plpgsql as 'begin raise ''kept''; end'")
            self.query("create trigger KEEP before delete on T_SFC_MDC_LOG for each row execute function KEEP()")
        else:
            self.query("drop trigger KEEP on T_SFC_MDC_LOG")

    def test_reaches_the_plant_again_after_its_links_were_lost(self) -> None:
        process = self.follow()
        counts = "select count(*) from T_SFC_MDC_LOG where COMMAND_ID is not null"
        for links in ("application_name like 'process %'", "pid <> pg_backend_pid()"):
            self.query(
                f"select pg_terminate_backend(pid) from pg_stat_activity where {links} and datname = '{self.database}'"
            )
            self.tool("append", self.plant, "--machine", "1", "--event", "good")
            wait_until(lambda: self.number(counts) == 0, "the event")
        errors = self.end(process)
        self.assertEqual(errors.count("the plant is out of reach, and is tried again: "), 2, errors)
        self.assertEqual(self.number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), 2)


if __name__ == "__main__":
    unittest.main()
