"""The module for Python: each method of the component on a plant, what it says when it fails, what it frees."""

from __future__ import annotations

import asyncio
import contextlib
import ctypes
import gc
import os
import pathlib
import re
import sqlite3
import subprocess
import sys
import threading
import unittest
import unittest.mock
from typing import Any, Callable, Dict, List, Tuple

import kxdata7
from demo_plant import DemoPlant
from kxdata7 import EVENTS, AsyncComponent, Component, DatabaseType, Error, EventStays, Next, TimeCode
from kxdata7._binding import Library, class_directories

LIBRARY = os.environ["KXDATA7_LIBRARY"]

ROOT = pathlib.Path(__file__).resolve().parent.parent

E_FAIL = 0x80004005

# By the DNC numbers of the demo plant.
LATHE_1: Dict[str, Any] = dict(dept=10, location=1, group=10, machine=101)
LATHE_2: Dict[str, Any] = dict(dept=10, location=1, group=10, machine=102)
LOGON, JOB, CYCLE, GOOD, SCRAPPED, COOLANT = 4, 5, 9, 13, 14, 100
REFRESH = -1

# No number fits in 16 bits: the event fails whenever it is tried.
HOPELESS: Dict[str, Any] = dict(**LATHE_1, command=SCRAPPED, param="-32768")


class ClientTest(unittest.TestCase):
    def setUp(self) -> None:
        self.plant = DemoPlant()
        self.addCleanup(self.plant.remove)

    def connected(self) -> Component:
        component = Component(LIBRARY)
        self.addCleanup(component.close)
        component.connect(self.plant.connection_string, DatabaseType.SQL_SERVER)
        return component

    def queue(self) -> List[Any]:
        return self.plant.query("select PARAM1 from T_SFC_MDC_LOG order by MDC_LOG_ID")


class MethodsTest(ClientTest):
    def test_events_become_records(self) -> None:
        component = self.connected()
        [(job_command,)] = self.plant.query("select COMMAND_ID from T_SFC_COMMAND where VELKARIS_ID = ?", JOB)
        component.append_dnc(**LATHE_1, command=LOGON, param="Zoë Lindqvist")
        component.append_dnc(**LATHE_1, command=JOB, param="J-1001")
        component.append_dnc(**LATHE_1, command=CYCLE, time_code=TimeCode.START)
        component.append_dnc(**LATHE_1, command=CYCLE, time_code=TimeCode.END)
        component.append_dnc(**LATHE_1, command=GOOD, param="3")
        component.append_dnc(**LATHE_1, command=SCRAPPED, param="2.17")
        component.append_dnc(**LATHE_1, command=COOLANT, param="Öl €\t😀 \ud800.", time_code=TimeCode.BOTH)
        component.append_dnc(**LATHE_1, command=LOGON, param="Zoë Lindqvist", time_code=TimeCode.END)
        component.append(dept=1, location=1, group=1, machine=2, command=job_command, param="Ж-😀")
        component.append_dnc(**LATHE_2, command=JOB, param="Ж-😀", time_code=TimeCode.END)
        component.append_dnc(**LATHE_1, command=REFRESH)
        component.append_dnc(**LATHE_1, command=REFRESH)  # one waits already
        self.assertEqual(component.count(), 11)

        self.assertEqual([component.do_next() for _ in range(12)], 11 * [Next.TAKEN] + [Next.NONE_TAKEN])
        self.assertEqual(component.count(), 0)
        self.assertEqual(
            self.plant.query(
                "select MACHINE_ID, COMMAND_NAME, PARAM1 "
                "from T_SFC_EVENT join T_SFC_COMMAND using (COMMAND_ID) order by EVENT_ID"
            ),
            [
                (1, "Logon", "Zoë Lindqvist"),
                (1, "Job", "J-1001"),
                (1, "Part", "SHAFT-20"),
                (1, "Cycle", None),
                (1, "Good parts", "3"),
                (1, "Scrapped parts", "2.17"),
                (1, "Coolant refill", "Öl €\t😀 \ufffd."),
                (2, "Job", "Ж-😀"),
            ],
        )
        self.assertEqual(
            self.plant.query(
                "select u.USER_NAME, j.JOB_NUMBER, p.PART_NUMBER, sum(FINISHED_CYCLES), sum(GOOD_COUNT), "
                "sum(SCRAPPED_COUNT) from T_SFC_MACHINE_DATA join T_SFC_USER u using (USER_ID) "
                "join T_SFC_JOB j using (JOB_ID) join T_SFC_PART p using (PART_ID) group by 1, 2, 3"
            ),
            [("Zoë Lindqvist", "J-1001", "SHAFT-20", 1, 3, 2)],
        )

        # The record of the second lathe's unknown job is not consistent until someone says which job it was.
        table = "T_SFC_MACHINE_DATA"
        [(record,)] = self.plant.query(f"select max(MACHINE_DATA_ID) from {table} where JOB_NUMBER = 'Ж-😀'")
        for job_id, status in ((None, 1), (1, 2)):
            self.plant.query(f"update {table} set JOB_ID = ? where MACHINE_DATA_ID = ?", job_id, record)
            component.complete_record(record)
            found = self.plant.query(f"select STATUS_CODE from {table} where MACHINE_DATA_ID = ?", record)
            self.assertEqual(found, [(status,)])

    def test_connection_and_hint(self) -> None:
        with Component(LIBRARY) as component:
            self.assertIs(component.is_connected(), False)
            for database_type, hint in zip(DatabaseType, ("", "", " with (NOLOCK)")):
                component.connect(self.plant.connection_string, database_type)
                self.assertIs(component.is_connected(), True)
                self.assertEqual(component.no_lock(), hint)
            component.connect(self.plant.connection_string, 3)  # type: ignore[arg-type]
            self.assertIsNone(component.no_lock())

    def test_outcomes_of_do_next(self) -> None:
        component = self.connected()
        with self.assertRaisesRegex(TypeError, "compare"):
            while component.do_next():
                pass
        component.append_dnc(**HOPELESS)
        for _ in range(2):
            with self.assertRaises(EventStays) as stays:
                component.do_next()
            self.assertEqual((str(stays.exception), stays.exception.hresult), ("Overflow", 0))
            self.assertEqual(self.queue(), [("-32768",)])
        self.plant.query("delete from T_SFC_MDC_LOG")

        self.plant.query(
            "create trigger KEEP before delete on T_SFC_MDC_LOG begin select raise(abort, 'kept'); end"
        )
        component.append_dnc(**LATHE_1, command=COOLANT, param="twice", time_code=TimeCode.BOTH)
        self.assertIs(component.do_next(), Next.NONE_TAKEN)
        self.assertEqual(component.count(), 1)
        self.assertEqual(self.plant.query("select count(*) from T_SFC_EVENT where PARAM1 = 'twice'"), [(1,)])


class FailuresTest(ClientTest):
    def test_texts_and_results(self) -> None:
        component = Component(LIBRARY)
        with self.assertRaisesRegex(Error, "the object is closed") as unconnected:
            component.append(dept=1, location=1, group=1, machine=1, command=1)
        self.assertEqual(unconnected.exception.hresult, 0)

        with self.assertRaisesRegex(Error, "NUL") as refused:
            component.connect(self.plant.connection_string + "\0.db", DatabaseType.ORACLE)
        self.assertEqual(refused.exception.hresult, 0)
        with self.assertRaisesRegex(Error, 'open "/nowhere/Ж😀\ufffd.db"'):
            component.connect("Provider=SQLite;Data Source=/nowhere/Ж😀\ud800.db", DatabaseType.ORACLE)

        component.connect("Provider=SQLite;Data Source=:memory:", DatabaseType.ORACLE)
        self.assertIs(component.is_connected(), False)
        calls: Dict[str, Callable[[], Any]] = {
            "T_SFC_MDC_LOG": component.count,
            "T_SFC_MACHINE_DATA": lambda: component.complete_record(1),
            "T_SFC_DEPT": lambda: component.append_dnc(**LATHE_1, command=GOOD),
        }
        for table, call in calls.items():
            with self.subTest(table), self.assertRaisesRegex(Error, "no such table: " + table) as failed:
                call()
            self.assertEqual(failed.exception.hresult, E_FAIL)

    def test_what_cannot_be_passed_is_refused(self) -> None:
        component = self.connected()
        for param in ("it's", "a\0b"):
            with self.assertRaisesRegex(ValueError, "apostrophe"):
                component.append_dnc(**LATHE_1, command=COOLANT, param=param)
        for number in (2**31, -(2**31) - 1, 2**32 + 1):
            with self.assertRaisesRegex(OverflowError, str(number)):
                component.append(dept=1, location=1, group=1, machine=number, command=REFRESH)
            with self.assertRaisesRegex(OverflowError, str(number)):
                component.complete_record(number)
        kinds: Dict[str, Dict[str, Any]] = {
            "machine must be a whole number": dict(LATHE_1, machine="101"),
            "dept must be a whole number": dict(LATHE_1, dept=1.0),
            "group must be a whole number": dict(LATHE_1, group=True),
            "time_code must be a whole number": dict(LATHE_1, time_code=None),
            "param must be a text": dict(LATHE_1, param=5),
        }
        for text, arguments in kinds.items():
            with self.assertRaisesRegex(TypeError, text):
                component.append_dnc(command=COOLANT, **arguments)
        with self.assertRaisesRegex(TypeError, "connection_string must be a text"):
            component.connect(self.plant.file, DatabaseType.ORACLE)  # type: ignore[arg-type]
        self.assertEqual(component.count(), 0)
        component.close()
        component.close()
        with self.assertRaisesRegex(ValueError, "closed"):
            component.count()

    def test_wrong_files_are_refused_by_name(self) -> None:
        with self.assertRaisesRegex(Error, "Cannot load .*/nowhere/libKXData7.so"):
            Component(pathlib.Path("/nowhere/libKXData7.so"))
        with self.assertRaisesRegex(Error, "Not the component: .*DllGetClassObject"):
            Component("libc.so.6")


class TextTest(unittest.TestCase):
    def test_texts_come_back_whole(self) -> None:
        library = Library(LIBRARY)
        for text in ("", "Müller €", "a\0b\0", "Ж😀", "\udc00a\ud800"):
            with library.text(text) as bstr:
                self.assertEqual(library.text_of(bstr.value), text)


class ObjectsTest(ClientTest):
    def test_two_objects_are_independent(self) -> None:
        producer, processor = self.connected(), self.connected()
        producer.append_dnc(**LATHE_1, command=GOOD, param="5")
        with self.assertRaises(Error):
            producer.connect("Provider=SQLite;Data Source=/nowhere/plant.db", DatabaseType.ORACLE)
        self.assertIs(producer.is_connected(), False)
        producer.close()
        self.assertIs(processor.do_next(), Next.TAKEN)
        self.assertEqual(self.plant.query("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), [(5,)])

    def test_threads_share_an_object(self) -> None:
        component = self.connected()

        def append() -> None:
            for _ in range(20):
                component.append_dnc(**LATHE_1, command=GOOD, param="1")

        def process() -> None:
            applied = 0
            while applied < 80:
                applied += component.do_next() is Next.TAKEN

        failures: List[Any] = []
        with unittest.mock.patch("threading.excepthook", failures.append):
            threads = [threading.Thread(target=work) for work in [*4 * [append], process]]
            for thread in threads:
                thread.start()
            while any(thread.is_alive() for thread in threads) and not failures:
                self.assertIs(component.is_connected(), True)
        self.assertEqual(failures, [])
        self.assertEqual(self.plant.query("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), [(80,)])

    def test_asyncio(self) -> None:
        async def work() -> None:
            async with AsyncComponent(LIBRARY) as component:
                with contextlib.closing(sqlite3.connect(self.plant.file, isolation_level=None)) as other_writer:
                    await component.connect(self.plant.connection_string, DatabaseType.SQL_SERVER)
                    other_writer.execute("begin immediate")
                    appending = asyncio.create_task(component.append_dnc(**LATHE_1, command=GOOD, param="4"))
                    await asyncio.sleep(0)  # the loop goes on while the append waits for the other writer
                    other_writer.execute("rollback")
                    await appending
                await component.append(dept=1, location=1, group=1, machine=1, command=REFRESH)
                self.assertEqual(await component.count(), 2)
                self.assertEqual([await component.do_next() for _ in range(3)], 2 * [Next.TAKEN] + [Next.NONE_TAKEN])
                await component.append_dnc(**HOPELESS)
                with self.assertRaisesRegex(EventStays, "Overflow"):
                    await component.do_next()
                await component.complete_record(1)
                self.assertEqual((await component.no_lock(), await component.is_connected()), (" with (NOLOCK)", True))
            await component.close()
            with self.assertRaisesRegex(ValueError, "closed"):
                await component.count()

        asyncio.run(work())
        self.assertEqual(self.plant.query("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), [(4,)])

    def test_objects_are_released(self) -> None:
        library = ctypes.CDLL(LIBRARY)
        closed, dropped = Component(LIBRARY), Component(LIBRARY)
        closed.close()
        self.assertEqual(library.DllCanUnloadNow(), 1)
        del dropped
        self.assertEqual(library.DllCanUnloadNow(), 0)


class AgreementTest(ClientTest):
    """With what stands elsewhere."""

    def test_events_are_those_of_the_header(self) -> None:
        header = (ROOT / "include/kxdata7/events.h").read_text()
        types = {name: int(value) for name, value in re.findall(r"(k\w+) =\s+(-?\d+);", header)}
        rows = re.findall(r'\{"([a-z ]+)", command_type::(\w+), (\d),', header)
        self.assertGreater(len(rows), 20)
        self.assertEqual(
            {event.name: (event.command_type, event.time_code) for event in EVENTS.values()},
            {name: (types[command_type], int(time_code)) for name, command_type, time_code in rows},
        )
        self.assertEqual([event.name for event in EVENTS.values()], list(EVENTS))

    def test_version_is_the_tools(self) -> None:
        run = [os.environ["KXDATA7_TOOL"], "--version"]
        self.assertEqual(subprocess.check_output(run, encoding="utf-8").strip(), kxdata7.__version__)

    def test_example(self) -> None:
        (self.plant.folder / "{6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}").write_text(f"Library={LIBRARY}\n")
        run = subprocess.run(
            [sys.executable, ROOT / "examples/monitor.py", self.plant.connection_string],
            env={**os.environ, "KXDATA7_CLASSES": str(self.plant.folder)},
            capture_output=True,
            encoding="utf-8",
        )
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn("3 events waited, 3 were applied.", run.stdout)
        self.assertEqual(self.plant.query("select sum(FINISHED_CYCLES) from T_SFC_MACHINE_DATA"), [(1,)])


class RegistrationTest(ClientTest):
    def test_registered_library_is_found(self) -> None:
        classes = self.plant.folder / "classes"
        with unittest.mock.patch.dict(os.environ, KXDATA7_CLASSES=str(classes)):
            with self.assertRaisesRegex(Error, f"not registered in {classes}$"):
                Component()
            self.assertEqual(ctypes.CDLL(LIBRARY).DllRegisterServer(), 0)
            with Component() as component:
                component.connect(self.plant.connection_string, DatabaseType.ACCESS)
                self.assertIs(component.is_connected(), True)

    def test_places_are_those_of_the_header(self) -> None:
        of_machine = ["/usr/local/share/com-classes", "/usr/share/com-classes"]
        places: List[Tuple[int, Dict[str, str], List[str]]] = [
            (1000, dict(KXDATA7_CLASSES="own", XDG_DATA_HOME="/data", HOME="/a"), ["own"]),
            (1000, dict(XDG_DATA_HOME="/data", HOME="/a"), ["/data/com-classes", *of_machine]),
            (
                1000,
                dict(KXDATA7_CLASSES="", XDG_DATA_HOME="data", HOME="/a"),
                ["/a/.local/share/com-classes", *of_machine],
            ),
            (1000, {}, of_machine),
            (0, dict(XDG_DATA_HOME="/data", HOME="/root"), of_machine),
        ]
        for user, variables, expected in places:
            with self.subTest(user=user, variables=variables):
                with unittest.mock.patch("os.geteuid", lambda: user):
                    with unittest.mock.patch.dict(os.environ, variables, clear=True):
                        self.assertEqual(list(map(str, class_directories())), expected)


class HeapUse(ctypes.Structure):
    _fields_ = [(f"field_{index}", ctypes.c_size_t) for index in range(10)]


def live_bytes() -> int:
    """What the process holds on the C heap, where BSTRs live, by the C library or the address sanitizer."""
    gc.collect()
    process = ctypes.CDLL(None)
    try:
        sanitizer = process["__sanitizer_get_current_allocated_bytes"]
    except AttributeError:
        process.mallinfo2.restype = HeapUse
        use = process.mallinfo2()
        return int(use.field_4 + use.field_7)  # in mappings of their own, and in the heap
    sanitizer.restype = ctypes.c_size_t
    return int(sanitizer())


class LeakTest(ClientTest):
    def test_nothing_leaks(self) -> None:
        component = self.connected()
        tableless = Component(LIBRARY)
        tableless.connect("Provider=SQLite;Data Source=:memory:", DatabaseType.SQL_SERVER)
        hopeless = self.connected()
        hopeless.append_dnc(**HOPELESS)
        component.append_dnc(**LATHE_1, command=REFRESH)

        def fails(call: Callable[[], Any]) -> None:
            with contextlib.suppress(Error, ValueError, OverflowError):
                call()
                self.fail("It must fail")

        memory = "Provider=SQLite;Data Source=:memory:"
        long_text = 1000 * "Ж"
        nowhere = "Provider=SQLite;Data Source=/nowhere/" + long_text
        calls: Dict[str, Callable[[], Any]] = {
            "is_connected": component.is_connected,
            "connect": lambda: tableless.connect(memory, DatabaseType.SQL_SERVER),
            "failing connect": lambda: fails(
                lambda: Component(LIBRARY).connect(nowhere, DatabaseType.ACCESS)
            ),
            "append": lambda: component.append_dnc(**LATHE_1, command=REFRESH, param=long_text),
            "failing append": lambda: fails(
                lambda: tableless.append_dnc(**LATHE_1, command=1, param=long_text)
            ),
            "append of a wrong number": lambda: fails(
                lambda: component.append_dnc(**LATHE_1, command=2**31, param=long_text)
            ),
            "do_next": lambda: fails(hopeless.do_next),
            "failing do_next": lambda: fails(tableless.do_next),
            "count": component.count,
            "failing count": lambda: fails(tableless.count),
            "complete_record": lambda: component.complete_record(1),
            "failing complete_record": lambda: fails(lambda: tableless.complete_record(1)),
            "no_lock": component.no_lock,
        }
        for name, call in calls.items():
            with self.subTest(name):
                for _ in range(200):
                    call()
                before = live_bytes()
                for _ in range(2000):
                    call()
                self.assertLess(live_bytes() - before, 2000 * 8)


if __name__ == "__main__":
    unittest.main()
