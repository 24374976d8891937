"""An object of the component."""

from __future__ import annotations

import ctypes
import enum
import os
import threading
import types
import weakref
from typing import Any, Callable, Optional, Tuple, Type, Union

from ._binding import VT_BSTR, Error, Library, Variant, method, registered_library
from .events import TimeCode


class DatabaseType(enum.IntEnum):
    """The dialect of the component's statements."""

    ORACLE = 0
    ACCESS = 1
    SQL_SERVER = 2


class Next(enum.Enum):
    """What became of the queue's first event; EventStays when it could not be applied.

    It is neither true nor false: compare it by `is`.
    """

    TAKEN = "applied and taken off the queue"
    # While count() is not 0: the first event was applied but its row could not be deleted, so that the next
    # call applies it again; or it was queued since.
    NONE_TAKEN = "nothing waits"

    def __bool__(self) -> bool:
        raise TypeError("do_next() has more than two outcomes: compare it with a member of Next")


class EventStays(Error):
    """The first event could not be applied, for this reason, and stays the first in the queue."""


class Component:
    """An object of the component, not yet connected.

    Threads may share it: calls go one after the other. The rest of the program runs meanwhile. The library stays
    loaded.
    """

    def __init__(self, library: Union[str, os.PathLike[str], None] = None) -> None:
        """Loads `library`, a bare file name as the dynamic linker finds it, or what is registered."""
        self._library = Library(registered_library() if library is None else os.fspath(library))
        # Of this object's own thread, so that a signal's handler is refused by the component and waits for nothing.
        self._lock = threading.RLock()
        this = self._library.create_object()
        self._close = weakref.finalize(self, method(this, 2))
        number, text, flag = ctypes.c_int32, ctypes.c_void_p, ctypes.POINTER(ctypes.c_int16)
        error = ctypes.POINTER(text)
        event = (*(number,) * 5, text, number, error, flag)
        # The places in the object's table of functions.
        self._is_connected = self._bind(this, 7, flag)
        self._connect = self._bind(this, 8, text, number, error, flag)
        self._append = self._bind(this, 9, *event)
        self._append_dnc = self._bind(this, 10, *event)
        self._do_next = self._bind(this, 11, error, flag)
        self._count = self._bind(this, 12, ctypes.POINTER(number))
        self._complete = self._bind(this, 13, number)
        self._no_lock = self._bind(this, 14, ctypes.POINTER(Variant))

    def close(self) -> None:
        """Releases the object, and with it its connection, when the call under way has ended."""
        with self._lock:
            self._close()

    def __enter__(self) -> Component:
        return self

    def __exit__(
        self,
        exception_type: Optional[Type[BaseException]],
        exception: Optional[BaseException],
        traceback: Optional[types.TracebackType],
    ) -> None:
        self.close()

    def connect(self, connection_string: str, database_type: DatabaseType) -> None:
        """Closes the connection in use and opens another."""
        number = _number("database_type", database_type)
        with self._library.text(_text("connection_string", connection_string)) as connection:
            error = self._error_unless(self._connect, connection, number)
        if error is not None:
            raise Error(error or "The database cannot be connected.")

    def is_connected(self) -> bool:
        """Whether the connection is open and the plant database answers."""
        flag = ctypes.c_int16()
        self._is_connected(flag)
        return flag.value != 0

    def append(
        self,
        *,
        dept: int,
        location: int,
        group: int,
        machine: int,
        command: int,
        param: str = "",
        time_code: TimeCode = TimeCode.START,
    ) -> None:
        """Queues an event by the plant's internal ids. Command -1 asks for a refresh of the machine."""
        where = dict(dept=dept, location=location, group=group, machine=machine, command=command)
        self._append_by(self._append, where, param, time_code)

    def append_dnc(
        self,
        *,
        dept: int,
        location: int,
        group: int,
        machine: int,
        command: int,
        param: str = "",
        time_code: TimeCode = TimeCode.START,
    ) -> None:
        """The same by the numbers of the DNC system; an unknown number counts as -1."""
        where = dict(dept=dept, location=location, group=group, machine=machine, command=command)
        self._append_by(self._append_dnc, where, param, time_code)

    def do_next(self) -> Next:
        """Works the oldest event into the plant's records. One process at a time may do this on a plant."""
        error = self._error_unless(self._do_next)
        if error:
            raise EventStays(error)
        return Next.TAKEN if error is None else Next.NONE_TAKEN

    def count(self) -> int:
        """How many events wait."""
        count = ctypes.c_int32()
        self._count(count)
        return count.value

    def complete_record(self, record_id: int) -> None:
        """Marks a closed machine data record complete when it is consistent."""
        self._complete(_number("record_id", record_id))

    def no_lock(self) -> Optional[str]:
        """The hint for unlocked reads, often empty; None when the dialect is unknown."""
        variant = Variant()
        try:
            self._no_lock(variant)
            return self._library.text_of(variant.bstr) if variant.vt == VT_BSTR else None
        finally:
            self._library.variant_clear(variant)

    def _append_by(
        self, append: Callable[..., None], where: dict[str, int], param: str, time_code: TimeCode
    ) -> None:
        numbers: Tuple[int, ...] = tuple(_number(name, value) for name, value in where.items())
        if "'" in _text("param", param) or "\0" in param:
            # It goes between quotes in a statement as it is.
            raise ValueError("param must hold neither an apostrophe nor a NUL")
        with self._library.text(param) as text:
            error = self._error_unless(append, *numbers, text, _number("time_code", time_code))
        if error is not None:
            raise Error(error or "The database did not take the event.")

    def _error_unless(self, call: Callable[..., None], *arguments: Any) -> Optional[str]:
        """Calls a method that ends with an error text and a result. None for True, the text for False."""
        flag = ctypes.c_int16()
        with self._library.text() as error:
            call(*arguments, error, flag)
            return None if flag.value else self._library.text_of(error.value)

    def _bind(self, this: ctypes.c_void_p, slot: int, *argument_types: Any) -> Callable[..., None]:
        """The object's method in `slot`. It must not keep `self` alive."""
        function, check = method(this, slot, *argument_types), self._library.check
        close, lock = self._close, self._lock

        def call(*arguments: Any) -> None:
            with lock:
                if not close.alive:
                    raise ValueError("The component is closed")
                check(function(*arguments))

        return call


def _number(name: str, value: object) -> int:
    """ctypes cuts off what does not fit."""
    if not isinstance(value, int) or isinstance(value, bool):
        raise TypeError(f"{name} must be a whole number, not {value!r}")
    if not -(2**31) <= value < 2**31:
        raise OverflowError(f"{name} must fit in 32 bits, as {value} does not")
    return value


def _text(name: str, value: object) -> str:
    if not isinstance(value, str):
        raise TypeError(f"{name} must be a text, not {value!r}")
    return value
