"""The component KXData7 for Python on Linux: the eight methods of its class, by the standard library alone.

    from kxdata7 import Component, DatabaseType, EventStays, Next, TimeCode

    with Component() as mdc:  # as registered; or Component("/usr/local/lib/libKXData7.so")
        mdc.connect("Provider=SQLite;Data Source=plant.db", DatabaseType.SQL_SERVER)
        mdc.append_dnc(dept=10, location=1, group=10, machine=101, command=9, time_code=TimeCode.START)
        try:
            while mdc.do_next() is Next.TAKEN:
                pass
        except EventStays as reason:
            print("The first event stays in the queue:", reason)
        print(mdc.count(), "events wait.")

The contracts of the methods are in KXData7.h. What a method cannot do is an Error with the component's text.
"""

from __future__ import annotations

import contextlib
import ctypes
import enum
import functools
import os
import pathlib
import types
import uuid
import weakref
from typing import Any, Callable, Iterator, List, Optional, Type, Union

__version__ = "1.0.0"

__all__ = ["Component", "DatabaseType", "Error", "EventStays", "Next", "TimeCode", "class_directories"]


class DatabaseType(enum.IntEnum):
    """The dialect of the component's statements."""

    ORACLE = 0
    ACCESS = 1
    SQL_SERVER = 2


class TimeCode(enum.IntEnum):
    """What an event tells of its command."""

    START = 0
    END = 1
    BOTH = 2  # custom commands


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


class Error(Exception):
    """A call failed. `hresult` is 0 when the call took place and its result was False."""

    def __init__(self, text: str, hresult: int = 0) -> None:
        super().__init__(text)
        self.hresult = hresult & 0xFFFFFFFF


class EventStays(Error):
    """The first event could not be applied, for this reason, and stays the first in the queue."""


class Component:
    """An object of the component, not yet connected.

    It serves one caller at a time, from any thread; other threads run meanwhile. The library stays loaded.
    """

    def __init__(self, library: Union[str, os.PathLike[str], None] = None) -> None:
        """Loads `library`, a bare file name as the dynamic linker finds it, or what is registered."""
        self._library = _Library(_registered_library() if library is None else os.fspath(library))
        this = self._library.create_object()
        self._close = weakref.finalize(self, _method(this, 2))
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
        self._no_lock = self._bind(this, 14, ctypes.POINTER(_Variant))

    def close(self) -> None:
        """Releases the object, and with it its connection. No call may be under way in another thread."""
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
        with self._library.text(connection_string) as connection:
            error = self._error_unless(self._connect, connection, _int32(database_type))
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
        self._append_by(self._append, (dept, location, group, machine, command), param, time_code)

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
        self._append_by(self._append_dnc, (dept, location, group, machine, command), param, time_code)

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
        self._complete(_int32(record_id))

    def no_lock(self) -> Optional[str]:
        """The hint for unlocked reads, often empty; None when the dialect is unknown."""
        variant = _Variant()
        try:
            self._no_lock(variant)
            return self._library.text_of(variant.bstr) if variant.vt == _VT_BSTR else None
        finally:
            self._library.variant_clear(variant)

    def _append_by(
        self, append: Callable[..., None], numbers: tuple[int, ...], param: str, time_code: int
    ) -> None:
        if "'" in param or "\0" in param:
            # It goes between quotes in a statement as it is.
            raise ValueError("A parameter must hold neither an apostrophe nor a NUL")
        with self._library.text(param) as text:
            error = self._error_unless(append, *map(_int32, numbers), text, _int32(time_code))
        if error is not None:
            raise Error(error or "The database did not take the event.")

    def _error_unless(self, method: Callable[..., None], *arguments: Any) -> Optional[str]:
        """Calls a method that ends with an error text and a result. None for True, the text for False."""
        flag = ctypes.c_int16()
        with self._library.text() as error:
            method(*arguments, error, flag)
            return None if flag.value else self._library.text_of(error.value)

    def _bind(self, this: ctypes.c_void_p, slot: int, *argument_types: Any) -> Callable[..., None]:
        """The object's method in `slot`. It must not keep `self` alive."""
        method, check, close = _method(this, slot, *argument_types), self._library.check, self._close

        def call(*arguments: Any) -> None:
            if not close.alive:
                raise ValueError("The component is closed")
            check(method(*arguments))

        return call


def class_directories() -> List[pathlib.Path]:
    """Where classes are registered, the most important place first: as ClassDirectories() in KXData7.h."""
    own = os.environ.get("KXDATA7_CLASSES", "")
    if own:
        return [pathlib.Path(own)]
    result = []
    if os.geteuid() != 0:
        data_home = pathlib.Path(os.environ.get("XDG_DATA_HOME", ""))
        home = pathlib.Path(os.environ.get("HOME", ""))
        if data_home.is_absolute():
            result.append(data_home / "com-classes")
        elif home.is_absolute():
            result.append(home / ".local/share/com-classes")
    result += map(pathlib.Path, ("/usr/local/share/com-classes", "/usr/share/com-classes"))
    return result


def _registered_library() -> str:
    directories = class_directories()
    for directory in directories:
        try:
            lines = (directory / f"{{{_CLASS_ID}}}".upper()).read_bytes().split(b"\n")
        except OSError:
            continue
        for line in lines:
            if line.startswith(b"Library="):
                return os.fsdecode(line[len(b"Library=") :])
    searched = ", ".join(map(str, directories))
    raise Error(f"The class KXData7.CKXData7Obj is not registered in {searched}")


_CLASS_ID = uuid.UUID("6d3dc26e-fe47-4582-bd90-5e241a8dbc8b")
_INTERFACE_ID = uuid.UUID("ccb76fb7-fdfa-4d13-b7dc-5809191a4643")
_CLASS_FACTORY_ID = uuid.UUID("00000001-0000-0000-c000-000000000046")

_VT_BSTR = 8


class _Variant(ctypes.Structure):
    vt: int
    bstr: Optional[int]
    _fields_ = [
        ("vt", ctypes.c_uint16),
        ("reserved", ctypes.c_uint16 * 3),
        ("bstr", ctypes.c_void_p),
        ("rest", ctypes.c_void_p),
    ]


class _Library:
    """What libKXData7.so exports."""

    def __init__(self, path: str) -> None:
        try:
            library = ctypes.CDLL(path)
        except OSError as error:
            raise Error(f"Cannot load the component: {error}") from error
        pointer, pointer_out = ctypes.c_void_p, ctypes.POINTER(ctypes.c_void_p)

        def function(name: str, result: Any, *argument_types: Any) -> Callable[..., Any]:
            try:
                found = library[name]
            except AttributeError as error:
                raise Error(f"Not the component: {error}") from error
            found.restype, found.argtypes = result, argument_types
            return found

        self._get_class_object = function(
            "DllGetClassObject", ctypes.c_int32, ctypes.c_char_p, ctypes.c_char_p, pointer_out
        )
        self._get_error_info = function("GetErrorInfo", ctypes.c_int32, ctypes.c_uint32, pointer_out)
        self._alloc = function("SysAllocStringLen", pointer, ctypes.c_char_p, ctypes.c_uint32)
        self._free = function("SysFreeString", None, pointer)
        self._length = function("SysStringLen", ctypes.c_uint32, pointer)
        self.variant_clear = function("VariantClear", ctypes.c_int32, ctypes.POINTER(_Variant))

    def create_object(self) -> ctypes.c_void_p:
        """A new object. The caller owns the reference."""
        factory, created = ctypes.c_void_p(), ctypes.c_void_p()
        self.check(self._get_class_object(_CLASS_ID.bytes_le, _CLASS_FACTORY_ID.bytes_le, factory))
        with _released(factory):
            create = _method(factory, 3, ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p))
            self.check(create(None, _INTERFACE_ID.bytes_le, created))
        return created

    @contextlib.contextmanager
    def text(self, value: str = "") -> Iterator[ctypes.c_void_p]:
        """A BSTR of the block, null for an empty text. What is there at the end of the block is freed."""
        bstr = ctypes.c_void_p()
        try:
            if value:
                units = value.encode("utf-16-le", "surrogatepass")
                bstr.value = self._alloc(units, len(units) // 2)
                if bstr.value is None:
                    raise MemoryError
            yield bstr
        finally:
            self._free(bstr)

    def text_of(self, bstr: Optional[int]) -> str:
        if bstr is None:
            return ""
        return ctypes.string_at(bstr, 2 * self._length(bstr)).decode("utf-16-le", "surrogatepass")

    def check(self, hresult: int) -> None:
        """Raises the reason when the thread's last call failed."""
        if hresult < 0:
            text = self._take_error_text()
            raise Error(text or f"The component answered 0x{hresult & 0xFFFFFFFF:08X}", hresult)

    def _take_error_text(self) -> str:
        info = ctypes.c_void_p()
        if self._get_error_info(0, info) != 0:
            return ""
        with _released(info), self.text() as description:
            _method(info, 5, ctypes.POINTER(ctypes.c_void_p))(description)
            return self.text_of(description.value)


def _method(this: ctypes.c_void_p, slot: int, *argument_types: Any) -> Callable[..., int]:
    """The function in `slot` of an object's table, which is called without Python's lock."""
    table = ctypes.cast(this, ctypes.POINTER(ctypes.POINTER(ctypes.c_void_p))).contents
    prototype = ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.c_void_p, *argument_types)
    address = table[slot]
    assert address is not None
    return functools.partial(prototype(address), this)


@contextlib.contextmanager
def _released(this: ctypes.c_void_p) -> Iterator[None]:
    """Releases a reference at the end of the block."""
    try:
        yield
    finally:
        _method(this, 2)()


def _int32(value: int) -> int:
    """ctypes cuts off what does not fit."""
    if not -(2**31) <= value < 2**31:
        raise OverflowError(f"{value} does not fit in 32 bits")
    return value
