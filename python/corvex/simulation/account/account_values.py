"""Values of an account's terms on the sessions and assets of a run: each holds from its date on."""

from __future__ import annotations

import numbers
from typing import Any, Literal

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.simulation.account.account_dates import rows_as_of
from corvex.simulation.notices import date_text, warn
from corvex.simulation.read.clock import Clock, dated_table
from corvex.simulation.read.columns import match_columns

__all__ = ["ValueReader", "as_floats"]

_Floats = npt.NDArray[np.float64]
_Bools = npt.NDArray[np.bool_]
#: What values may go by, beside a number.
type _Forms = Literal["date", "asset", "both"]

_ACCEPTED = {
    "date": "a number or a Series by date",
    "asset": "a number or a Series by asset label",
    "both": "a number, a Series by date or by asset label, or a table of both",
}
_FRACTION = "a fraction from 0 to below 1 (0.001 is 0.1 %)"
_HIGH = 1.0  # a yearly rate above it is hardly meant


class ValueReader:
    """Brings values to tables of 1 or all sessions x 1 or all assets.

    Parameters
    ----------
    labels : Index
        Asset labels of the run.
    held : bool array of shape (assets,)
        Which of them are ever held: others need no value.
    first : int
        The session with which the run begins.
    """

    def __init__(self, clock: Clock, labels: pd.Index, held: _Bools, first: int) -> None:
        self._clock = clock
        self._labels = labels
        self._held = held
        self._first = first

    def cash_rate(self, name: str, given: Any, *, least: float | None = None) -> _Floats | None:
        """Read a yearly rate of the cash, which is of no asset."""
        table = self._rate(name, given, "date")
        if table is not None and least is not None:
            self._refuse(name, table, table < least, f"a number from {least:g} on")
        return table

    def rate(self, name: str, given: Any) -> _Floats | None:
        """Read a yearly rate; where it is missing it counts as zero."""
        return self._rate(name, given, "both")

    def borrow_rate(self, given: Any) -> _Floats | None:
        """Read a yearly rate whose missing values mean something."""
        table = self._table("borrow_rate", given, "both", carried=False)
        if table is not None:
            _warn_of_high("borrow_rate", table, " a year")
        return table

    def part(self, name: str, given: Any) -> _Floats | None:
        """Read fractions from 0 to 1; where one is missing it counts as zero."""
        table = self._table(name, given, "both")
        if table is None:
            return None
        self._refuse(name, table, (table < 0.0) | (table > 1.0), "a number from 0 to 1")
        return self._or_zero(name, table)

    def ratio(self, name: str, given: Any) -> _Floats | None:
        """Read fractions from 0 to below 1; missing are those that the run's own stand in for."""
        table = self._fractions(name, given)
        if table is not None:
            self._refuse(name, table, table < 0.0, _FRACTION)
            if np.isnan(table).any():
                self._tell_missing(name, table, "that of the run counts")
        return table

    def price_limit(self, given: Any) -> _Floats | None:
        """Read fractions of prices; where one is missing there is no limit."""
        table = self._fractions("price_limit", given)
        if table is not None:
            self._refuse("price_limit", table, table <= 0.0, "above 0; missing is no limit")
        return table

    def lot_size(self, given: Any) -> _Floats | None:
        if given is None:
            return None
        table = self._table("lot_size", given, "asset", zero_is_none=False)
        assert table is not None
        self._need("lot_size", table)
        self._refuse("lot_size", table, table <= 0.0, "a number above 0")
        return table if table.size == 1 else np.nan_to_num(table)

    def band(self, given: Any) -> _Floats | None:
        if given is None:
            return None
        table = self._table("band", given, "both", zero_is_none=False)
        assert table is not None
        self._refuse("band", table, table < 0.0, "a number from 0 on")
        _warn_of_high("band", table, " of the equity, or of a target")
        return self._or_zero("band", table)

    def of_assets(self, values: _Floats, columns: npt.NDArray[np.int64] | None) -> _Floats:
        """Bring the columns of a table to the assets; what is not there is missing."""
        if columns is None:
            return values
        return np.where(columns >= 0, values[:, np.maximum(columns, 0)], np.nan)

    def columns(self, name: str, columns: pd.Index) -> npt.NDArray[np.int64] | None:
        """Find the column of each asset, -1 where there is none; None for those of the assets."""
        if len(columns) == 0:
            raise ValueError(f"{name} is empty")
        if not columns.is_unique:
            raise ValueError(f"{name} has {columns[columns.duplicated()][0]!r} more than once")
        found = match_columns(self._labels, columns)
        if found is not None and (found < 0).all():
            warn(f"{name} names none of the assets: its first is {columns[0]!r}")
        return found

    def _rate(self, name: str, given: Any, forms: _Forms) -> _Floats | None:
        table = self._table(name, given, forms)
        if table is None:
            return None
        _warn_of_high(name, table, " a year")
        return self._or_zero(name, table)

    def _fractions(self, name: str, given: Any) -> _Floats | None:
        if given is None:
            return None
        table = self._table(name, given, "both", zero_is_none=False)
        assert table is not None
        if isinstance(given, pd.Series) and not _has_dates(given.index):
            self._need(name, table, given)
        self._refuse(name, table, table >= 1.0, _FRACTION)
        return table

    def _or_zero(self, name: str, table: _Floats) -> _Floats:
        if not np.isnan(table).any():
            return table
        self._tell_missing(name, table, "it counts as 0")
        return np.nan_to_num(table)

    def _tell_missing(self, name: str, table: _Floats, instead: str) -> None:
        """Tell of what is missing of an asset that is held."""
        missing = np.isnan(table)
        of_all = table.shape[1] == 1
        told = missing if of_all else missing & self._held
        if len(table) > 1:
            told = told[self._first :]
        if not told.any():
            return
        asset = int(np.argmax(told.any(axis=0)))
        whose = "" if of_all else f" of {self._labels[asset]!r}"
        since, until = "", ""
        if not told[:, asset].all():
            when = date_text(self._clock.index[self._first])
            since, until = f" at first (on {when})", " until it is there"
        warn(f"{name}{whose} is missing{since}; {instead}{until}")

    def _table(
        self,
        name: str,
        given: Any,
        forms: _Forms,
        *,
        zero_is_none: bool = True,
        carried: bool = True,
    ) -> _Floats | None:
        """Bring values to (1 or sessions) x (1 or assets); None for the number 0.

        What is missing after a value was there is that value, where it is carried on.
        """
        if isinstance(given, numbers.Real) and not isinstance(given, bool | np.bool_):
            if zero_is_none and given == 0.0:
                return None
            if not np.isfinite(float(given)):
                raise ValueError(f"{name} must be finite, got {given!r}")
            return np.array([[float(given)]])
        if not isinstance(given, pd.Series | pd.DataFrame):
            raise ValueError(f"{name} must be {_ACCEPTED[forms]}, got {_shown(given)}")
        if given.empty:
            raise ValueError(f"{name} is empty")
        by_date = isinstance(given, pd.DataFrame) or _has_dates(given.index)
        by_asset = not by_date or (isinstance(given, pd.DataFrame) and forms != "date")
        if (by_date and forms == "asset") or (forms == "date" and not _goes_by_date(given)):
            raise ValueError(f"{name} must be {_ACCEPTED[forms]}, got {_form(given)}")
        if isinstance(given, pd.Series):
            labels = given.index
            given = given.to_frame(name) if by_date else given
        else:
            labels = given.columns
        if by_date:
            given = dated_table(given, name)
        values = _finite(name, given)
        if by_asset:
            values = self.of_assets(values, self.columns(name, labels))
        if by_date:
            if carried and np.isnan(values).any():
                values = pd.DataFrame(values).ffill().to_numpy()
            rows = rows_as_of(self._clock, pd.DatetimeIndex(given.index), name)
            values = np.where(rows[:, None] >= 0, values[np.maximum(rows, 0)], np.nan)
        return np.ascontiguousarray(values)

    def _need(self, name: str, table: _Floats, given: Any = None) -> None:
        """Refuse values by asset that leave one out; a missing one that is named may be meant."""
        missing = np.isnan(table[0]) & (self._held | (table.shape[1] == 1))
        if isinstance(given, pd.Series) and table.shape[1] == len(self._labels):
            columns = self.columns(name, given.index)
            missing &= False if columns is None else columns < 0
        if missing.any():
            raise ValueError(f"{name} has no value for {self._labels[int(np.argmax(missing))]!r}")

    def _refuse(self, name: str, table: _Floats, bad: _Bools, accepted: str) -> None:
        if not bad.any():
            return
        bad = bad & ~np.isnan(table) & (np.ones(1, bool) if table.shape[1] == 1 else self._held)
        if not bad.any():
            return
        row, asset = (int(found[0]) for found in np.nonzero(bad))
        whose = f" of {self._labels[asset]!r}" if table.shape[1] > 1 else ""
        raise ValueError(f"{name}{whose} must be {accepted}, got {table[row, asset]:g}")


def _finite(name: str, given: pd.DataFrame | pd.Series) -> _Floats:
    """A Series is a row."""
    values = np.atleast_2d(as_floats(name, given))
    if np.isinf(values).any():
        raise ValueError(f"{name} holds infinite values")
    return values


def as_floats(name: str, table: pd.DataFrame | pd.Series) -> _Floats:
    """Return a table or a Series as numbers.

    Raises
    ------
    ValueError
        When it holds something else.
    """
    try:
        return table.to_numpy(dtype=np.float64, na_value=np.nan)
    except (TypeError, ValueError) as error:
        raise ValueError(f"{name} must hold numbers: {error}") from None


def _has_dates(index: pd.Index) -> bool:
    return isinstance(index, pd.DatetimeIndex | pd.PeriodIndex)


def _goes_by_date(given: pd.Series | pd.DataFrame) -> bool:
    """Whether there is one value a date."""
    return _has_dates(given.index) and (isinstance(given, pd.Series) or given.shape[1] == 1)


def _form(given: pd.Series | pd.DataFrame) -> str:
    if isinstance(given, pd.DataFrame):
        return f"a table with the column {given.columns[0]!r}"
    if _has_dates(given.index):
        return "a Series by date"
    return f"a Series with the label {given.index[0]!r}"


def _shown(given: Any) -> str:
    return repr(given) if isinstance(given, str | bool | None) else type(given).__name__


def _warn_of_high(name: str, table: _Floats, of_what: str) -> None:
    highest = float(np.fmax.reduce(np.abs(table), axis=None, initial=0.0))
    if highest > _HIGH:
        warn(
            f"{name} is as high as {highest:g} ({highest:.0%}{of_what}); rates are fractions "
            "(0.05 is 5 %)"
        )
