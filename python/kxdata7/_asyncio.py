"""The component for asyncio."""

from __future__ import annotations

import asyncio
import concurrent.futures
import functools
import os
import types
from typing import TYPE_CHECKING, Any, Callable, Coroutine, Optional, Type, TypeVar, Union

from ._component import Component

if TYPE_CHECKING:
    from typing import Concatenate, ParamSpec

    P = ParamSpec("P")
T = TypeVar("T")


def _awaited(
    method: Callable[Concatenate[Component, P], T]
) -> Callable[Concatenate[AsyncComponent, P], Coroutine[Any, Any, T]]:
    """The same method as a coroutine of an AsyncComponent."""

    @functools.wraps(method)
    async def call(self: AsyncComponent, /, *arguments: P.args, **named: P.kwargs) -> T:
        return await self._run(functools.partial(method, self._component, *arguments, **named))

    return call


class AsyncComponent:
    """A Component whose methods are coroutines: its calls run in a thread of its own, in their order.

    A call whose task is cancelled runs to its end all the same; those behind it wait for it.
    """

    def __init__(self, library: Union[str, os.PathLike[str], None] = None) -> None:
        self._component = Component(library)
        self._thread = concurrent.futures.ThreadPoolExecutor(1, "kxdata7")
        self._open = True

    async def _run(self, call: Callable[[], T]) -> T:
        if not self._open:
            raise ValueError("The component is closed")
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

    connect = _awaited(Component.connect)
    is_connected = _awaited(Component.is_connected)
    append = _awaited(Component.append)
    append_dnc = _awaited(Component.append_dnc)
    do_next = _awaited(Component.do_next)
    count = _awaited(Component.count)
    complete_record = _awaited(Component.complete_record)
    no_lock = _awaited(Component.no_lock)
