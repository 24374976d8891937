"""A machine monitor: it reports a cycle and a good part of the demo plant's first lathe and works off what waits.

    kxdata7 create plant.db --demo
    monitor.py "Provider=SQLite;Data Source=plant.db"
"""

from __future__ import annotations

import sys

from kxdata7 import Component, DatabaseType, Error, Next, TimeCode

# Of command types, and so the numbers of the demo plant's commands in the DNC system.
CYCLE, GOOD_PARTS = 9, 13


def report(component: Component, what: str, command: int, time_code: TimeCode, param: str = "") -> None:
    component.append_dnc(
        dept=10, location=1, group=10, machine=101, command=command, param=param, time_code=time_code
    )
    print(f"Queued: {what}.")


def work_off(component: Component) -> None:
    """Applies the events that wait, one by one."""
    waiting = component.count()
    applied = 0
    while applied < waiting and component.do_next() is Next.TAKEN:
        applied += 1
    print(f"{waiting} events waited, {applied} were applied.")


def main() -> int:
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        with Component() as component:
            component.connect(sys.argv[1], DatabaseType.SQL_SERVER)
            report(component, "cycle start", CYCLE, TimeCode.START)
            report(component, "cycle end", CYCLE, TimeCode.END)
            report(component, "one good part", GOOD_PARTS, TimeCode.START, "1")
            work_off(component)
    except Error as error:
        print("monitor:", error, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
