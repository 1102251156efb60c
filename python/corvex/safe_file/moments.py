"""Dates, spans of time and their zones as JSON."""

from __future__ import annotations

import datetime as dt
import zoneinfo
from collections.abc import Callable
from typing import Any

import numpy as np
import pandas as pd

__all__ = ["READERS", "moment_record", "pandas_zone", "zone_name", "zone_of"]


def zone_name(zone: Any, path: str) -> str | None:
    """Return the name by which `zone_of` finds a time zone.

    Raises
    ------
    TypeError
        When it has none.
    """
    if zone is None:
        return None
    name = str(getattr(zone, "key", None) or getattr(zone, "zone", None) or zone)
    try:
        zone_of(name)
    except (ValueError, zoneinfo.ZoneInfoNotFoundError):
        raise TypeError(
            f"{path} has the time zone {name}, which a .corvex file cannot keep"
        ) from None
    return name


def zone_of(name: str | None) -> dt.tzinfo | None:
    """Return the zone of a name: IANA's, "UTC", or "UTC+08:00".

    Raises
    ------
    ValueError, zoneinfo.ZoneInfoNotFoundError
        When there is none.
    """
    if name is None:
        return None
    if not isinstance(name, str) or len(name) > 64:
        raise ValueError("no time zone")
    if name == "UTC":
        return dt.UTC
    if name.startswith("UTC"):
        return dt.datetime.strptime(name[3:], "%z").tzinfo
    return zoneinfo.ZoneInfo(name)


def pandas_zone(name: str | None) -> dt.tzinfo | None:
    """Return the zone of a name as this pandas makes it: versions differ in the class of zones.

    Raises
    ------
    ValueError, zoneinfo.ZoneInfoNotFoundError
        When there is none.
    """
    zone = zone_of(name)
    return pd.DatetimeTZDtype("ns", name).tz if isinstance(zone, zoneinfo.ZoneInfo) else zone


def moment_record(value: Any, path: str) -> dict[str, Any] | None:
    """Return the JSON of a date or a span, with its kind under "~"; None for any other value."""
    for kind, tag, write in _WRITERS:
        if isinstance(value, kind):
            record: dict[str, Any] | None = write(value, path)
            return None if record is None else {"~": tag, **record}
    return None


def _timestamp(value: pd.Timestamp, path: str) -> dict[str, Any]:
    whole = int(value.asm8.astype(np.int64))
    return {"v": whole, "unit": value.unit, "zone": zone_name(value.tz, path)}


def _datetime(value: dt.datetime, path: str) -> dict[str, Any]:
    return {"v": value.replace(tzinfo=None).isoformat(), "zone": zone_name(value.tzinfo, path)}


def _offset(value: Any, path: str) -> dict[str, Any] | None:
    del path
    alike = pd.tseries.frequencies.to_offset(value.freqstr) == value
    return {"v": value.freqstr} if alike else None  # those of one's own calendar are not


# A Timestamp is a datetime, and that a date: the order counts.
_WRITERS: tuple[tuple[type, str, Callable[[Any, str], dict[str, Any] | None]], ...] = (
    (pd.Timestamp, "time", _timestamp),
    (pd.Timedelta, "span", lambda v, _: {"v": int(v.asm8.astype(np.int64)), "unit": v.unit}),
    (dt.datetime, "datetime", _datetime),
    (dt.date, "date", lambda v, _: {"v": v.isoformat()}),
    (dt.timedelta, "timedelta", lambda v, _: {"v": [v.days, v.seconds, v.microseconds]}),
    (pd.offsets.BaseOffset, "offset", _offset),
)


def _read_timestamp(record: Any) -> pd.Timestamp:
    moment = pd.Timestamp(np.datetime64(record["v"], record["unit"]))
    zone = pandas_zone(record["zone"])
    return moment if zone is None else moment.tz_localize("UTC").tz_convert(zone)


def _read_datetime(record: Any) -> dt.datetime:
    return dt.datetime.fromisoformat(record["v"]).replace(tzinfo=zone_of(record["zone"]))


#: How the kinds are read back.
READERS: dict[str, Callable[[Any], Any]] = {
    "time": _read_timestamp,
    "span": lambda r: pd.Timedelta(np.timedelta64(r["v"], r["unit"])),
    "datetime": _read_datetime,
    "date": lambda r: dt.date.fromisoformat(r["v"]),
    "timedelta": lambda r: dt.timedelta(*r["v"]),
    "offset": lambda r: pd.tseries.frequencies.to_offset(str(r["v"])[:64]),
}
