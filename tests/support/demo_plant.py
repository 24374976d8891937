"""A demo plant on SQLite in a folder of its own, made by the tool and read by Python's own sqlite3."""

from __future__ import annotations

import contextlib
import datetime
import os
import pathlib
import sqlite3
import subprocess
import tempfile
from typing import Any, List, Tuple


class DemoPlant:
    def __init__(self) -> None:
        self._folder = tempfile.TemporaryDirectory()
        self.folder = pathlib.Path(self._folder.name)
        self.file = self.folder / "plant.db"
        self.connection_string = f"Provider=SQLite;Data Source={self.file}"
        # Since yesterday: before the morning shift the day at work is that of the night's start.
        start = datetime.date.today() - datetime.timedelta(days=1)
        create = [os.environ["KXDATA7_TOOL"], "create", str(self.file), "--demo", "--start", str(start)]
        subprocess.run(create, check=True, stdout=subprocess.DEVNULL)

    def remove(self) -> None:
        self._folder.cleanup()

    def query(self, statement: str, *parameters: Any) -> List[Tuple[Any, ...]]:
        with contextlib.closing(sqlite3.connect(self.file)) as plant, plant:
            return plant.execute(statement, parameters).fetchall()
