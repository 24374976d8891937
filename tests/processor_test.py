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
import sys
import tempfile
import threading
import time
import unittest
import unittest.mock
from typing import Callable, Dict, List, Optional

TOOL = os.environ["KXDATA7_TOOL"]
SERVER = os.environ["KXDATA7_RUN_SERVER"]
LONG_RUN = "KXDATA7_LONG_RUN" in os.environ
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


def clock_put(hours: int, when: float) -> str:
    """A time zone whose clock is put on or back by an hour at a moment."""
    back = hours < 0
    wall = datetime.datetime.fromtimestamp(when + (3600 if back else 0), datetime.timezone.utc)
    # Days of the year without the leap day.
    change = f"J{wall.replace(year=2001).timetuple().tm_yday}/{wall:%H:%M:%S}"
    return "WIN0SUM-1," + (f"J1/0,{change}" if back else f"{change},J365/23")


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

    def refused(self, *arguments: str) -> str:
        """What the tool says when it must fail: one line."""
        process = self.start(*arguments)
        errors = process.communicate(timeout=60)[1]
        self.assertEqual((process.returncode, errors.count("\n")), (1, 1), errors)
        return errors

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

    def import_lines(self, lines: List[str], *arguments: str) -> None:
        (self.folder / "day.csv").write_text("time,event,param\n" + "".join(line + "\n" for line in lines))
        self.tool("import", self.plant, "day.csv", "--machine", "1", *arguments)

    def import_counts(self, count: int, *arguments: str) -> None:
        self.import_lines([f"{DAY} 07:{i // 60:02}:{i % 60:02},good,1" for i in range(count)], *arguments)

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

    def test_goes_on_when_the_clock_is_put_on_or_back(self) -> None:
        for machine, hours in (("1", 1), ("2", -1)):
            change = time.time() + 3
            zone = clock_put(hours, change)
            with unittest.mock.patch.dict(os.environ, TZ=zone, PGTZ=zone):
                process = self.follow()
                self.tool("append", self.plant, "--machine", machine, "--event", "cycle start")
                wait_until(lambda: time.time() > change + 1, "the change")
                self.tool("append", self.plant, "--machine", machine, "--event", "cycle end")
                wait_until(lambda: self.waiting() == 0, "the cycle")
                self.assertEqual(self.end(process), "")
                doctor = self.tool("doctor", self.plant)
            cycle = (
                "select min(CYCLE_TIME), sum(FINISHED_CYCLES), sum(UNFINISHED_CYCLES) from T_SFC_MACHINE_DATA "
                f"where MACHINE_ID = {machine}"
            )
            minutes, *cycles = self.query(cycle)[0]
            self.assertEqual(cycles, ["1", "0"])
            self.assertEqual(hours < 0, "has a negative time" in doctor, doctor)
            self.assertEqual(hours < 0, float(minutes) < -59)

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


    def test_reads_the_plant_file_again_on_a_hangup(self) -> None:
        self.tool("create", "other.db", "--demo", "--start", DAY)
        settings = self.folder / "hall.conf"
        settings.write_text(f"KXDATA7_PLANT={self.plant}\n")
        settings.chmod(0o600)
        process = self.start("--plant-file", "hall.conf", "process", "--follow")
        assert process.stdout
        self.assertIn("Works the plant off.", process.stdout.readline())
        settings.write_text("KXDATA7_PLANT=other.db\n")
        process.send_signal(signal.SIGHUP)
        self.assertIn("Opened the plant again.", process.stdout.readline())
        self.plant = str(self.folder / "other.db")
        self.tool("append", self.plant, "--machine", "1", "--event", "good")
        wait_until(lambda: self.number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA") == 1, "the count")
        self.end(process)

    def test_ends_at_once_on_a_second_signal(self) -> None:
        process = self.follow()
        plant = sqlite3.connect(self.plant, timeout=20, isolation_level=None)
        self.addCleanup(plant.close)
        plant.execute("begin immediate")
        plant.execute("insert into T_SFC_MDC_LOG (MACHINE_ID, TIME_STAMP) values (1, datetime('now'))")
        plant.execute("commit")
        plant.execute("begin immediate")
        if plant.execute("select count(*) from T_SFC_MDC_LOG").fetchone() == (0,):
            self.fail("the event was faster")
        time.sleep(0.2)  # it is at an event now that cannot be worked in, and tries for seconds
        process.send_signal(signal.SIGTERM)
        time.sleep(0.3)  # what comes earlier is the same signal
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=5)
        self.assertEqual(process.returncode, -signal.SIGTERM)

    def hold(self, process: subprocess.Popen[str]) -> None:
        """Stops a processor at a moment at which it does not hold the plant's lock."""

        def is_free() -> bool:
            process.send_signal(signal.SIGSTOP)
            plant = sqlite3.connect(self.plant, timeout=0.5, isolation_level=None)
            try:
                plant.execute("begin immediate")
                return True
            except sqlite3.OperationalError:
                process.send_signal(signal.SIGCONT)
                return False
            finally:
                plant.close()

        wait_until(is_free, "a moment without a lock")

    def test_goes_on_when_a_full_disk_has_room_again(self) -> None:
        if "KXDATA7_OWN_MOUNTS" not in os.environ:
            # A small file system that nobody else sees.
            unshare = ["unshare", "--mount"] + (["--map-root-user"] if os.geteuid() != 0 else [])
            subprocess.run(
                [*unshare, sys.executable, "-B", __file__, self.id().split(".", 1)[1]],
                env={**os.environ, "KXDATA7_OWN_MOUNTS": "1"},
                check=True,
            )
            return
        disk = self.folder / "disk"
        disk.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16m", "none", str(disk)], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", str(disk)], check=True)
        self.plant = str(disk / "plant.db")
        self.tool("create", self.plant, "--demo", "--start", DAY)
        process = self.follow()
        self.tool("append", self.plant, "--machine", "1", "--event", "good")
        wait_until(lambda: self.number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA") == 1, "the first count")
        self.hold(process)
        self.import_counts(300, "--allow-old")
        filler = disk / "filler"
        with self.assertRaises(OSError), filler.open("wb", buffering=0) as file:
            while True:
                file.write(bytes(4096))
        process.send_signal(signal.SIGCONT)
        assert process.stderr
        self.assertIn("database or disk is full; make room on the disk", process.stderr.readline())
        self.assertIn("make room on the disk", self.refused("append", self.plant, "--machine", "1", "--event", "good"))
        filler.unlink()
        wait_until(lambda: self.waiting() == 0, "the rest")
        self.end(process)
        self.assertEqual(self.number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), 301)

    def test_a_day_of_fifty_machines_leaves_memory_and_files_flat(self) -> None:
        for number in range(5, 51):
            self.tool("machine", "add", self.plant, "--name", f"M {number}", "--start", DAY)
        process = self.follow()
        begin_of_day = datetime.datetime.now(datetime.timezone.utc).replace(tzinfo=None, microsecond=0)
        begin_of_day += datetime.timedelta(minutes=1)
        usage = []
        cycles = 720 if LONG_RUN else 12  # of each machine
        for hour in range(24):
            lines = []
            for i in range(cycles * hour // 24, cycles * (hour + 1) // 24):
                begin = begin_of_day + datetime.timedelta(seconds=i * 86400 // cycles)
                for machine in range(1, 51):
                    for event, after in (("cycle start", 0), ("cycle end", 60), ("good", 61)):
                        lines.append(f"{begin + datetime.timedelta(seconds=after)},{event},,{machine}")
            (self.folder / "hour.csv").write_text("time,event,param,machine\n" + "\n".join(lines) + "\n")
            if lines:
                self.tool("import", self.plant, "hour.csv", "--future-limit", "25")
                wait_until(lambda: self.waiting() == 0, "the hour", 600)
                status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
                memory = re.search(r"VmRSS:\s+(\d+)", status)
                assert memory
                usage.append((int(memory[1]), len(os.listdir(f"/proc/{process.pid}/fd"))))
        print(f"{50 * cycles * 3} events; kB and open files: {usage[0]}, {usage[len(usage) // 2]}, {usage[-1]}")
        self.assertEqual(self.end(process), "")
        sums = "select sum(FINISHED_CYCLES), sum(UNFINISHED_CYCLES), sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"
        self.assertEqual(self.query(sums), [[str(50 * cycles), "0", str(50 * cycles)]])
        self.assertEqual({files for _, files in usage}, {usage[0][1]})
        if "ASAN_OPTIONS" not in os.environ:  # a sanitizer keeps what was freed
            self.assertLess(usage[-1][0], usage[len(usage) // 2][0] + 2048)
        self.assertNotIn("failed", self.tool("doctor", self.plant))


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

    def tell_server(self, command: str) -> None:
        assert self.server.stdin and self.server.stdout
        self.server.stdin.write(command + "\n")
        self.server.stdin.flush()
        self.assertEqual(self.server.stdout.readline(), "done\n")

    def test_loses_nothing_while_the_server_is_away(self) -> None:
        process = self.follow()
        answers: Dict[bool, List[str]] = {True: [], False: []}
        ended = threading.Event()

        def produce() -> None:
            while not ended.is_set():
                run = self.start("append", self.plant, "--machine", "1", "--event", "good")
                errors = run.communicate()[1]
                answers[run.returncode == 0].append(errors)

        producers = [threading.Thread(target=produce) for _ in range(2)]
        for producer in producers:
            producer.start()
        try:
            wait_until(lambda: len(answers[True]) >= 10, "the first appends")
            self.tell_server("kill")
            wait_until(lambda: len(answers[False]) >= 10, "appends that fail")
            self.tell_server("start")
            acknowledged = len(answers[True])
            wait_until(lambda: len(answers[True]) >= acknowledged + 10, "appends again")
        finally:
            ended.set()
            for producer in producers:
                producer.join()
        wait_until(lambda: self.waiting() == 0, "the rest")
        self.assertEqual(self.end(process).count("is tried again"), 1)
        counted = self.number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA")
        self.assertTrue(any("Connection refused" in each and "check Server" in each for each in answers[False]))
        refused = [error for error in answers[False] if "connection to server" in error]
        # Those in flight when it went may be queued, and one may have been worked in twice.
        in_flight = len(answers[False]) - len(refused)
        self.assertLessEqual(in_flight, 2, answers[False])
        self.assertLessEqual(len(answers[True]), counted)
        self.assertLessEqual(counted, len(answers[True]) + in_flight + 1)

    def test_says_what_a_standby_may_lack(self) -> None:
        self.import_counts(2)
        self.query("alter system set synchronous_standby_names = 'nobody'")
        self.query("select pg_reload_conf()")
        process = self.start("process", self.plant, "--all")
        try:
            while process.poll() is None:
                self.query("select pg_cancel_backend(pid) from pg_stat_activity where wait_event = 'SyncRep'")
        finally:
            self.query("alter system reset synchronous_standby_names")
            self.query("select pg_reload_conf()")
        output, errors = process.communicate()
        self.assertEqual(process.returncode, 0, errors)
        self.assertIn("Applied 2 of 2 events", output)
        for row, line in enumerate(errors.splitlines(), 1):
            self.assertTrue(line.startswith(f"kxdata7: row {row} was applied: "), line)
            self.assertIn("unknown", line)
        self.assertEqual(errors.count("\n"), 2)

    def test_says_when_the_password_is_wrong(self) -> None:
        self.query("create role clerk login password 'right'")
        rules = self.query("show hba_file")[0][0]
        asked = "values ('host all clerk all scram-sha-256'), ('host all all all trust')"
        self.query(f"copy ({asked}) to '{rules}'")
        self.query("select pg_reload_conf()")
        plant = self.plant.replace("Uid=plant", "Uid=clerk")
        for given in (plant + ";Pwd=wrong", plant):
            process = ["process", given, "--follow"]
            wait_until(lambda: "password" in self.refused("status", given), "the rule")
            expected = "check Uid and Pwd" if given != plant else "the connection string needs Pwd"
            self.assertIn(expected, self.refused(*process))


if __name__ == "__main__":
    unittest.main()
