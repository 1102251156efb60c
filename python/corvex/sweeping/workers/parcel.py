"""How strategies, prices and tables travel to other processes."""

from __future__ import annotations

import contextlib
import functools
import mmap
import os
import pickle
import site
import struct
import sys
import sysconfig
import threading
import types
import uuid
from collections.abc import Iterable, Iterator
from pathlib import Path
from typing import Any

__all__ = ["Parcel", "dumps", "open_file", "open_parcel"]

_ALIGNED = 64
_COUNT = struct.Struct("<q")
_REGISTERING = threading.Lock()


class Parcel:
    """A value that any number of processes receive, its arrays apart from the rest.

    Parameters
    ----------
    value : object
        What travels.
    holders : iterable
        Functions and objects in it whose modules another process may not be able to import.

    Attributes
    ----------
    token : str
        Tells it from all others.
    """

    def __init__(self, value: Any, holders: Iterable[Any]) -> None:
        buffers: list[pickle.PickleBuffer] = []
        head = dumps(value, holders, buffers)
        self._frames = [memoryview(head), *(buffer.raw() for buffer in buffers)]
        self.token = uuid.uuid4().hex

    def _pieces(self) -> Iterator[bytes | memoryview]:
        sizes = [frame.nbytes for frame in self._frames]
        table = b"".join(_COUNT.pack(size) for size in (len(sizes), *sizes))
        yield table + bytes(_padding(len(table)))
        for frame in self._frames:
            yield frame
            yield bytes(_padding(frame.nbytes))

    def write(self, path: Path) -> None:
        """Write it to a file, which processes of this machine map into their memory."""
        with path.open("xb") as file:
            for piece in self._pieces():
                file.write(piece)

    def whole(self) -> bytes:
        """Return it as one text of bytes, for those who do not see the file."""
        return b"".join(self._pieces())


def open_file(path: str) -> Any:
    """Return the value of a parcel in a file; its arrays are those of the file until changed."""
    with open(path, "rb") as file:
        # A private mapping: who writes into a table gets pages of its own.
        mapped = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_COPY)
    return _opened(memoryview(mapped))


def open_parcel(whole: bytes) -> Any:
    """Return the value of a parcel that came as bytes."""
    return _opened(memoryview(bytearray(whole)))


def _opened(data: memoryview) -> Any:
    (count,) = _COUNT.unpack_from(data)
    sizes = [_COUNT.unpack_from(data, (place + 1) * _COUNT.size)[0] for place in range(count)]
    at = (count + 1) * _COUNT.size
    frames = []
    for size in sizes:
        at += _padding(at)
        frames.append(data[at : at + size])
        at += size
    return pickle.loads(frames[0], buffers=frames[1:])


def _padding(size: int) -> int:
    return -size % _ALIGNED


def dumps(
    value: Any, holders: Iterable[Any], buffers: list[pickle.PickleBuffer] | None = None
) -> bytes:
    """Write a value as bytes that a process without the user's own modules can read.

    What stands in ``__main__``, in a notebook or in a module beside it travels whole; installed
    packages are imported where the value is read.

    Parameters
    ----------
    value : object
        What is written.
    holders : iterable
        Functions and objects in it that may come from modules of the user's own.
    buffers : list, optional
        Receives the arrays; None leaves them among the bytes.
    """
    import cloudpickle

    def write() -> bytes:
        if buffers is None:
            return bytes(cloudpickle.dumps(value, protocol=5))
        buffers.clear()
        return bytes(cloudpickle.dumps(value, protocol=5, buffer_callback=buffers.append))

    modules = {id(one): one for holder in holders for one in _own_modules(holder)}.values()
    if not modules:
        return write()
    try:
        with _carried_whole(modules):
            return write()
    except Exception:  # a module may hold what cannot travel, such as a lock; then by its name
        return write()


@contextlib.contextmanager
def _carried_whole(modules: Iterable[types.ModuleType]) -> Iterator[None]:
    import cloudpickle

    with _REGISTERING:
        known = cloudpickle.list_registry_pickle_by_value()
        added = [module for module in modules if module.__name__ not in known]
        for module in added:
            cloudpickle.register_pickle_by_value(module)
        try:
            yield
        finally:
            for module in added:
                cloudpickle.unregister_pickle_by_value(module)


def _own_modules(holder: Any) -> list[types.ModuleType]:
    """The modules of a function or an object, as far as they are no installed packages."""
    if isinstance(holder, functools.partial):
        parts = (holder.func, *holder.args, *holder.keywords.values())
        return [module for part in parts for module in _own_modules(part)]
    if isinstance(holder, types.MethodType):
        return _own_modules(holder.__self__)
    named = holder if isinstance(holder, types.FunctionType | type) else type(holder)
    kinds = named.__mro__ if isinstance(named, type) else (named,)
    found = [sys.modules.get(kind.__module__) for kind in kinds]
    return [module for module in found if module is not None and not _is_installed(module)]


def _is_installed(module: types.ModuleType) -> bool:
    file = getattr(module, "__file__", None)
    root = module.__name__.partition(".")[0]
    if file is None or root in ("corvex", "__main__"):  # the pickler itself sees to the latter
        return True
    return any(_lies_in(file, folder) for folder in _installed_folders())


def _lies_in(file: str, folder: str) -> bool:
    return os.path.abspath(file).startswith(os.path.abspath(folder) + os.sep)


@functools.cache
def _installed_folders() -> tuple[str, ...]:
    names = ("stdlib", "platstdlib", "purelib", "platlib")
    folders = {sysconfig.get_path(name) for name in names} | set(site.getsitepackages())
    return (*folders, site.getusersitepackages())
