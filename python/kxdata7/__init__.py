"""The component KXData7 for Python on Linux: the eight methods of its class, by the standard library alone.

    from kxdata7 import Component, DatabaseType, EVENTS, EventStays, Next

    with Component() as mdc:  # as registered; or Component("/usr/local/lib/libKXData7.so")
        mdc.connect("Provider=SQLite;Data Source=plant.db", DatabaseType.SQL_SERVER)
        start = EVENTS["cycle start"]
        # In the demo plant the DNC system's numbers of commands are those of their types.
        mdc.append_dnc(
            dept=10, location=1, group=10, machine=101, command=start.command_type, time_code=start.time_code
        )
        try:
            while mdc.do_next() is Next.TAKEN:
                pass
        except EventStays as reason:
            print("The first event stays in the queue:", reason)
        print(mdc.count(), "events wait.")

The contracts of the methods are in KXData7.h. What a method cannot do is an Error with the component's text.
AsyncComponent is the same for asyncio.
"""

from ._asyncio import AsyncComponent
from ._binding import Error, class_directories
from ._component import Component, DatabaseType, EventStays, Next
from .events import EVENTS, Event, TimeCode

__version__ = "1.0.0"

__all__ = [
    "EVENTS",
    "AsyncComponent",
    "Component",
    "DatabaseType",
    "Error",
    "Event",
    "EventStays",
    "Next",
    "TimeCode",
    "class_directories",
]
