"""The component for asyncio."""

from __future__ import annotations

import asyncio
import concurrent.futures
import functools
import os
import types
from typing import Any, Callable, Optional, Type, TypeVar, Union

from ._component import Component, DatabaseType, Next
from .events import TimeCode

T = TypeVar("T")


class AsyncComponent:
    """A Component whose methods are coroutines: its calls run in a thread of its own, in their order.

    A call whose task is cancelled runs to its end all the same; those behind it wait for it.
    """

    def __init__(self, library: Union[str, os.PathLike[str], None] = None) -> None:
        self._component = Component(library)
        self._thread = concurrent.futures.ThreadPoolExecutor(1, "kxdata7")
        self._open = True

    async def _call(self, method: Callable[..., T], *arguments: Any, **named: Any) -> T:
        if not self._open:
            raise ValueError("The component is closed")
        call = functools.partial(method, *arguments, **named)
        return await asyncio.get_running_loop().run_in_executor(self._thread, call)

    async def close(self) -> None:
        """Releases the object when the calls under way have ended."""
        if self._open:
            self._open = False
            await asyncio.get_running_loop().run_in_executor(self._thread, self._component.close)
            self._thread.shutdown(wait=False)

    async def __aenter__(self) -> AsyncComponent:
        return self

    async def __aexit__(
        self,
        exception_type: Optional[Type[BaseException]],
        exception: Optional[BaseException],
        traceback: Optional[types.TracebackType],
    ) -> None:
        await self.close()

    async def connect(self, connection_string: str, database_type: DatabaseType) -> None:
        await self._call(self._component.connect, connection_string, database_type)

    async def is_connected(self) -> bool:
        return await self._call(self._component.is_connected)

    async def append(
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
        where = dict(dept=dept, location=location, group=group, machine=machine, command=command)
        await self._call(self._component.append, **where, param=param, time_code=time_code)

    async def append_dnc(
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
        where = dict(dept=dept, location=location, group=group, machine=machine, command=command)
        await self._call(self._component.append_dnc, **where, param=param, time_code=time_code)

    async def do_next(self) -> Next:
        return await self._call(self._component.do_next)

    async def count(self) -> int:
        return await self._call(self._component.count)

    async def complete_record(self, record_id: int) -> None:
        await self._call(self._component.complete_record, record_id)

    async def no_lock(self) -> Optional[str]:
        return await self._call(self._component.no_lock)
