"""Every event that the component knows by itself, by its name: the table of kxdata7/events.h."""

from __future__ import annotations

import enum
from typing import Dict, NamedTuple


class TimeCode(enum.IntEnum):
    """What an event tells of its command."""

    START = 0
    END = 1
    BOTH = 2  # custom commands


class Event(NamedTuple):
    name: str
    # Of its command in the plant: COMMAND_TYPE_CODE. 0 stands for the site's own; a refresh has no command.
    command_type: int
    time_code: TimeCode


def _table() -> Dict[str, Event]:
    rows = [("good", 13, TimeCode.START), ("scrap", 14, TimeCode.START), ("refresh", -2, TimeCode.START)]
    pairs = ("logon", "job", "part", "operation", "setup", "cycle", "teardown", "machine downtime", "user downtime")
    for command_type, thing in [*enumerate(pairs, 4), (0, "custom")]:
        rows += [(f"{thing} start", command_type, TimeCode.START), (f"{thing} end", command_type, TimeCode.END)]
    rows.append(("custom", 0, TimeCode.BOTH))
    return {row[0]: Event(*row) for row in rows}


EVENTS = _table()
