"""A worker's connections for http(s):// inputs and outputs: one event loop
in a thread of its own per worker process, and on it one kpz.remote.Reader
(one pool of kept-alive connections) per Settings, shared by the worker's
task threads and kept from batch to batch."""

import asyncio
import atexit
import concurrent.futures
import threading
from typing import Any, Awaitable, Callable, Dict, Optional, TypeVar

from kpz import remote

T = TypeVar("T")

_lock = threading.Lock()
_loop: Optional[asyncio.AbstractEventLoop] = None
_readers: Dict[remote.Settings, remote.Reader] = {}
# Stores already resolved (the run's check of its s3:// names made them),
# handed to the Reader of their Settings when it is made.
_stores: Dict[remote.Settings, Any] = {}


def _the_loop() -> asyncio.AbstractEventLoop:
    global _loop
    with _lock:
        if _loop is None:
            loop = asyncio.new_event_loop()
            threading.Thread(target=loop.run_forever, name="kpz-remote", daemon=True).start()
            _loop = loop
            atexit.register(_close)
        return _loop


def _close() -> None:
    """Closes the connection pools as the worker process ends (aiohttp
    complains of sessions left open)."""

    async def close_all() -> None:
        for reader in list(_readers.values()):
            await reader.__aexit__(None, None, None)
        _readers.clear()

    if _loop is not None and _loop.is_running():
        try:
            asyncio.run_coroutine_threadsafe(close_all(), _loop).result(timeout=10)
        except (concurrent.futures.TimeoutError, RuntimeError):
            pass  # the process ends all the same
        _loop.call_soon_threadsafe(_loop.stop)


async def _reader(settings: remote.Settings) -> remote.Reader:
    reader = _readers.get(settings)  # only the loop's thread touches _readers
    if reader is None:
        with _lock:
            store = _stores.pop(settings, None)
        reader = remote.Reader(settings, store=store)
        await reader.__aenter__()
        _readers[settings] = reader
    return reader


def use_store(settings: remote.Settings, store: Any) -> None:
    """Lets the Reader of `settings`, when this process makes it, use
    `store` (a kpz._s3.Store made from settings.s3) instead of resolving
    the store and its credentials a second time."""
    if store is None or settings in _readers:
        return
    with _lock:
        _stores[settings] = store


def submit(settings: remote.Settings,
           work: Callable[[remote.Reader], Awaitable[T]]) -> "concurrent.futures.Future[T]":
    """Starts `work(reader)` on the worker's loop with the Reader of
    `settings`; never call its result() from the loop's own thread."""

    async def call() -> Any:
        return await work(await _reader(settings))

    return asyncio.run_coroutine_threadsafe(call(), _the_loop())


def run(settings: remote.Settings, work: Callable[[remote.Reader], Awaitable[T]]) -> T:
    """submit(), waited for (from a task's thread)."""
    return submit(settings, work).result()
