"""The C++ example as a user runs it: its executable, on a demo plant."""

from __future__ import annotations

import os
import subprocess
import unittest

from demo_plant import DemoPlant

LIBRARY = os.environ["KXDATA7_LIBRARY"]


class MonitorTest(unittest.TestCase):
    def setUp(self) -> None:
        self.plant = DemoPlant()
        self.addCleanup(self.plant.remove)

    def expect(self, status: int, output: str, errors: str, *arguments: str) -> None:
        """Runs the monitor, with its own place for registered classes."""
        run = subprocess.run(
            [os.environ["KXDATA7_MONITOR"], *arguments],
            env={**os.environ, "KXDATA7_CLASSES": str(self.plant.folder)},
            capture_output=True,
            encoding="utf-8",
        )
        self.assertEqual((run.returncode, run.stdout, run.stderr), (status, output, errors))

    def test_reports_and_works_off(self) -> None:
        queued = "Queued: cycle start.\nQueued: cycle end.\nQueued: one good part.\n"
        applied = queued + "3 events waited, 3 were applied.\n"
        self.expect(0, applied, "", self.plant.connection_string, LIBRARY)
        (self.plant.folder / "{6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}").write_text(f"Library={LIBRARY}\n")
        self.expect(0, applied, "", self.plant.connection_string)
        self.assertEqual(
            self.plant.query(
                "select MACHINE_ID, sum(FINISHED_CYCLES), sum(UNFINISHED_CYCLES), sum(GOOD_COUNT) "
                "from T_SFC_MACHINE_DATA group by 1"
            ),
            [(1, 2, 0, 2), (2, 0, 0, 0), (3, 0, 0, 0), (4, 0, 0, 0)],
        )

        # First in the queue: a scrap count beyond 16 bits, then an event that cannot be taken off.
        self.plant.query(
            "insert into T_SFC_MDC_LOG (COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, "
            "COMMAND_TIME_CODE, TIME_STAMP, PARAM1) "
            "select COMMAND_ID, 1, 1, 1, 1, 0, datetime('now', 'localtime'), '-32768' "
            "from T_SFC_COMMAND where COMMAND_TYPE_CODE = 14"
        )
        stays = queued + "4 events waited, 0 were applied.\n"
        error = "monitor: The first event stays: Overflow\n"
        self.expect(1, stays, error, self.plant.connection_string, LIBRARY)
        self.plant.query("update T_SFC_MDC_LOG set PARAM1 = '1'")
        self.plant.query(
            "create trigger KEEP before delete on T_SFC_MDC_LOG begin select raise(abort, 'kept'); end"
        )
        stays = queued + "7 events waited, 0 were applied.\n"
        error = "monitor: The first event stays although applied.\n"
        self.expect(1, stays, error, self.plant.connection_string, LIBRARY)

    def test_says_what_is_wrong(self) -> None:
        self.expect(2, "", "Usage: monitor CONNECTION_STRING [COMPONENT]\n")
        error = f"monitor: The class KXData7.CKXData7Obj is not registered in {self.plant.folder}\n"
        self.expect(1, "", error, self.plant.connection_string)
        error = 'monitor: cannot open "/nowhere/ä.db": unable to open database file\n'
        self.expect(1, "", error, "Provider=SQLite;Data Source=/nowhere/ä.db", LIBRARY)


if __name__ == "__main__":
    unittest.main()
