"""Sessions of exchanges kept between processes.

Opening a calendar of `exchange_calendars` takes longer than a backtest. Its sessions depend on the
versions of that package and of pandas alone, so that a process which has not loaded the package
reads what an earlier one has worked out. Where the package is loaded, the user may have registered
calendars of his own: then it is asked.
"""

from __future__ import annotations

import contextlib
import importlib.util
import os
import sys
import zlib
from pathlib import Path
from typing import NamedTuple

import numpy as np
import pandas as pd

__all__ = ["StoredSessions", "load", "may_load", "save"]

_PACKAGE = "exchange_calendars"


class StoredSessions(NamedTuple):
    """The sessions of an exchange, without any that a user has taken out."""

    first: pd.Timestamp
    last: pd.Timestamp
    sessions: pd.DatetimeIndex
    opens: pd.DatetimeIndex
    closes: pd.DatetimeIndex
    tz: str


def may_load() -> bool:
    """Tell whether nothing in this process can have changed what the package knows."""
    return _PACKAGE not in sys.modules


def load(code: str, span: tuple[pd.Timestamp, pd.Timestamp]) -> StoredSessions | None:
    """Return what an earlier process has worked out for a span; None where nothing is sound."""
    try:
        head, _, body = _file(code, span).read_bytes().partition(b"\n")
        tz, checksum = head.decode("ascii").split(" ")
        if int(checksum) != zlib.crc32(body):
            return None
        numbers = np.frombuffer(body, "<i8")
        first, last = (pd.Timestamp(int(nanos)) for nanos in numbers[:2])
        sessions, opens, closes = (_dates(row) for row in numbers[2:].reshape(3, -1))
        zone_opens, zone_closes = (x.tz_localize("UTC").tz_convert(tz) for x in (opens, closes))
    except (OSError, ValueError, KeyError, TypeError):
        return None
    if not (sessions.is_monotonic_increasing and sessions.is_unique and (opens < closes).all()):
        return None
    return StoredSessions(first, last, sessions, zone_opens, zone_closes, tz)


def save(code: str, span: tuple[pd.Timestamp, pd.Timestamp], found: StoredSessions) -> None:
    """Keep the sessions of a span; where they cannot be written, the next process asks again."""
    from corvex.files import atomic_open

    stamps = [
        index.tz_localize(None) if index.tz is None else index.tz_convert("UTC").tz_localize(None)
        for index in (found.sessions, found.opens, found.closes)
    ]
    bounds = pd.DatetimeIndex([found.first, found.last])
    with contextlib.suppress(OSError), atomic_open(_file(code, span)) as file:
        body = np.concatenate([_nanos(index) for index in (bounds, *stamps)]).tobytes()
        file.write(f"{found.tz} {zlib.crc32(body)}\n".encode("ascii") + body)


def _file(code: str, span: tuple[pd.Timestamp, pd.Timestamp]) -> Path:
    from corvex.utils import get_tmp_dir

    years = f"{span[0].year}-{span[1].year}"
    safe = "".join(c if c.isalnum() else "_" for c in code)
    return Path(get_tmp_dir()) / f"sessions-{safe}-{years}-{_version()}-{pd.__version__}.bin"


def _version() -> str:
    """Return the package's version without loading what reads the descriptions of packages."""
    spec = importlib.util.find_spec(_PACKAGE)
    if spec is not None and spec.origin is not None:
        around, begin, end = Path(spec.origin).parent.parent, f"{_PACKAGE}-", ".dist-info"
        found = [x for x in os.listdir(around) if x.startswith(begin) and x.endswith(end)]
        if len(found) == 1:
            return found[0].removeprefix(begin).removesuffix(end)
    from importlib import metadata

    return metadata.version(_PACKAGE)


def _nanos(index: pd.DatetimeIndex) -> np.ndarray:
    return index.as_unit("ns").asi8.astype("<i8")


def _dates(nanos: np.ndarray) -> pd.DatetimeIndex:
    return pd.DatetimeIndex(nanos.astype("int64").view("datetime64[ns]"))
