"""How libKXData7.so is found and called: its functions, its objects' tables, its texts."""

from __future__ import annotations

import contextlib
import ctypes
import functools
import os
import pathlib
import uuid
from typing import Any, Callable, Iterator, List, Optional


class Error(Exception):
    """A call failed. `hresult` is 0 when the call took place and its result was False."""

    def __init__(self, text: str, hresult: int = 0) -> None:
        super().__init__(text)
        self.hresult = hresult & 0xFFFFFFFF


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


def registered_library() -> str:
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

VT_BSTR = 8


class Variant(ctypes.Structure):
    vt: int
    bstr: Optional[int]
    _fields_ = [
        ("vt", ctypes.c_uint16),
        ("reserved", ctypes.c_uint16 * 3),
        ("bstr", ctypes.c_void_p),
        ("rest", ctypes.c_void_p),
    ]


class Library:
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
        self.variant_clear = function("VariantClear", ctypes.c_int32, ctypes.POINTER(Variant))

    def create_object(self) -> ctypes.c_void_p:
        """A new object. The caller owns the reference."""
        factory, created = ctypes.c_void_p(), ctypes.c_void_p()
        self.check(self._get_class_object(_CLASS_ID.bytes_le, _CLASS_FACTORY_ID.bytes_le, factory))
        with _released(factory):
            create = method(factory, 3, ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p))
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
            method(info, 5, ctypes.POINTER(ctypes.c_void_p))(description)
            return self.text_of(description.value)


def method(this: ctypes.c_void_p, slot: int, *argument_types: Any) -> Callable[..., int]:
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
        method(this, 2)()
