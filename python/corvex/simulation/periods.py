"""Calendar periods: which dates a rebalance rule such as "ME" or "W-FRI" puts together."""

from __future__ import annotations

import re
from collections.abc import Callable

import numpy as np
import pandas as pd

__all__ = ["PeriodRule"]

_NANOS_PER_DAY = 86_400_000_000_000
_MONTHS = ("JAN", "FEB", "MAR", "APR", "MAY", "JUN", "JUL", "AUG", "SEP", "OCT", "NOV", "DEC")
_WEEKDAYS = ("MON", "TUE", "WED", "THU", "FRI", "SAT", "SUN")
_TICKS = {"h": 3_600, "H": 3_600, "min": 60, "T": 60, "s": 1, "S": 1}
# Old and new pandas aliases of one period; that of its first or last (business) day is all one
# here, since the sessions say which of its days counts.
_KINDS = {
    **dict.fromkeys(("D", "B", "C"), "day"),
    "W": "week",
    **dict.fromkeys(("M", "ME", "MS", "BM", "BME", "BMS", "CBME", "CBMS"), "month"),
    **dict.fromkeys(("Q", "QE", "BQ", "BQE"), "quarter"),
    **dict.fromkeys(("QS", "BQS"), "quarter from"),
    **dict.fromkeys(("Y", "YE", "A", "BY", "BYE", "BA"), "year"),
    **dict.fromkeys(("YS", "AS", "BYS", "BAS"), "year from"),
}
_ALIAS = re.compile(r"(\d*)([A-Za-z]+)(?:-([A-Za-z0-9]+))?")
_ACCEPTED = "'D', 'W', 'W-FRI', 'ME' (or 'M'), 'QE' ('Q'), 'YE' ('Y', 'A'), '2W', 'h', '30min'"


class PeriodRule:
    """Numbers dates by their period.

    Parameters
    ----------
    alias : str
        A pandas frequency alias, old or new. Aliases of other calendars, such as "SME" or
        "WOM-3FRI", end a period on each of their dates.
    offset : Timedelta
        Moves the end of every period.
    first, last : Timestamp
        Without zone; the span that will be asked about. A multiple such as "2ME" ends a period
        with the first one of the span, and then with every second.

    Raises
    ------
    ValueError
        When the alias is not known.
    """

    def __init__(
        self, alias: str, offset: pd.Timedelta, first: pd.Timestamp, last: pd.Timestamp
    ) -> None:
        self._offset = offset.as_unit("ns").value
        match = _ALIAS.fullmatch(alias.strip())
        if match is None:
            raise ValueError(f"resample={alias!r} is no frequency; accepted: {_ACCEPTED}")
        multiple, base, anchor = int(match[1] or 1), match[2], match[3]
        if multiple < 1:
            raise ValueError(f"resample={alias!r}: the multiple must be at least 1")
        self.is_intraday = base in _TICKS
        if self.is_intraday and anchor is None:
            length = multiple * _TICKS[base] * 1_000_000_000
            self._number: Callable[[np.ndarray], np.ndarray] = lambda nanos: nanos // length
            return
        single = _numbering(alias, base, anchor, first, last)
        if multiple == 1:
            self._number = single
            return
        origin = single(np.array([first.as_unit("ns").value - self._offset]))[0]
        self._number = lambda nanos: (single(nanos) - origin + multiple - 1) // multiple

    def numbers(self, wall: pd.DatetimeIndex) -> np.ndarray:
        """Return the period number of each local time, int64, rising with time."""
        nanos = wall.as_unit("ns").asi8
        return self._number(nanos - self._offset if self._offset else nanos)


def _numbering(
    alias: str, base: str, anchor: str | None, first: pd.Timestamp, last: pd.Timestamp
) -> Callable[[np.ndarray], np.ndarray]:
    kind = _KINDS.get(base) or (_KINDS.get(base.upper()) if base != "m" else None)
    if kind is None:
        return _by_dates_of(alias, base, anchor, first, last)
    if kind in ("day", "month") and anchor is not None:
        raise ValueError(f"resample={alias!r}: {base!r} takes no anchor; accepted: {_ACCEPTED}")
    if kind == "day":
        return lambda nanos: nanos // _NANOS_PER_DAY
    if kind == "week":
        # Day 0, 1970-01-01, was a Thursday.
        shift = 2 - _anchor(alias, anchor, _WEEKDAYS, "SUN")
        return lambda nanos: (nanos // _NANOS_PER_DAY + shift) // 7
    if kind == "month":
        return _months
    length = 3 if kind.startswith("quarter") else 12
    if kind.endswith("from"):
        past = _anchor(alias, anchor, _MONTHS, "JAN")
    else:
        past = _anchor(alias, anchor, _MONTHS, "DEC") + 1
    return lambda nanos: (_months(nanos) - past % length) // length


def _months(nanos: np.ndarray) -> np.ndarray:
    return nanos.view("datetime64[ns]").astype("datetime64[M]").astype(np.int64)


def _anchor(alias: str, anchor: str | None, names: tuple[str, ...], default: str) -> int:
    name = (anchor or default).upper()
    if name not in names:
        raise ValueError(f"resample={alias!r}: {anchor!r} is none of {', '.join(names)}")
    return names.index(name)


def _by_dates_of(
    alias: str, base: str, anchor: str | None, first: pd.Timestamp, last: pd.Timestamp
) -> Callable[[np.ndarray], np.ndarray]:
    """Periods that end on the dates of another pandas frequency, and start there when it does."""
    try:
        offset = pd.tseries.frequencies.to_offset(base if anchor is None else f"{base}-{anchor}")
    except ValueError:
        offset = None
    if offset is None or isinstance(offset, pd.tseries.offsets.Tick):
        raise ValueError(f"resample={alias!r} is no frequency; accepted: {_ACCEPTED}")
    around = pd.Timedelta(days=800)
    dates = pd.date_range(first.normalize() - around, last.normalize() + around, freq=offset)
    days = dates.as_unit("ns").asi8 // _NANOS_PER_DAY
    side = "right" if type(offset).__name__.endswith("Begin") else "left"
    return lambda nanos: np.searchsorted(days, nanos // _NANOS_PER_DAY, side=side)  # type: ignore[call-overload, no-any-return]
