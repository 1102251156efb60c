"""The user's weights, read and turned into target weights."""

from __future__ import annotations

from typing import Any, cast

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.simulation.notices import date_text
from corvex.simulation.read.clock import dated_table
from corvex.simulation.read.columns import check_labels
from corvex.tables.frames import TableInput, as_table

__all__ = ["Sheet", "WeightTable", "read_weights"]

# Weights rounded to a few digits sum to a little above 1.
_ROUNDING = 0.01


class Sheet:
    """The weights of one run, cut from an array of many whose dates and assets are the same.

    Attributes
    ----------
    values : float64 or bool array of shape (dates, assets)
    index, columns : Index
        Those of all sheets.
    """

    __slots__ = ("columns", "index", "values")

    def __init__(self, values: np.ndarray, index: pd.Index, columns: pd.Index) -> None:
        self.values = values
        self.index = index
        self.columns = columns

    def table(self) -> pd.DataFrame:
        """The same as a table."""
        return pd.DataFrame(self.values, self.index, self.columns, copy=False)


class WeightTable:
    """The weights as the user gave them, and the target weights of any of their rows.

    Attributes
    ----------
    index : DatetimeIndex of length rows
        Rising dates, as given.
    labels : Index of length assets
        The asset labels, as given.
    limit, leverage
        How targets are made of them, see `read_weights`.
    largest_scaled : (float, Timestamp) or None
        The largest absolute sum that was scaled to 1 so far, and its date. Rounding, and rows of
        ones that stand for signals, do not count.
    """

    def __init__(
        self,
        index: pd.DatetimeIndex,
        labels: pd.Index,
        values: np.ndarray,
        *,
        limit: float,
        leverage: bool,
    ) -> None:
        self.index = index
        self.labels = labels
        self._values = values
        self.limit = limit
        self.leverage = leverage
        self.largest_scaled: tuple[float, pd.Timestamp] | None = None

    def between(self, start: int, stop: int) -> WeightTable:
        """The same weights with some of the rows, which are not copied."""
        whole = (start, stop) == (0, len(self.index))
        part = WeightTable(
            self.index if whole else self.index[start:stop],
            self.labels,
            self._values if whole else self._values[start:stop],
            limit=self.limit,
            leverage=self.leverage,
        )
        part.largest_scaled = self.largest_scaled
        return part

    def targets(self, rows: np.ndarray) -> np.ndarray:
        """Return the target weights of some rows.

        Missing weights are 0; signals share a row equally; a row whose absolute sum is above 1 is
        scaled to 1 unless leverage is allowed; at last each weight is cut to the position limit,
        which leaves the rest in cash.

        Parameters
        ----------
        rows : int64 array of shape (n,)
            Positions in `index`.

        Returns
        -------
        float64 array of shape (n, assets)
        """
        return self._read(rows, only_changes=False)[1]

    def _read(self, rows: np.ndarray, *, only_changes: bool) -> tuple[np.ndarray, np.ndarray]:
        """The rows whose targets count, as positions in `rows`, and the targets there."""
        signals = self._values.dtype == np.bool_
        kept, targets, gross = _engine.read_targets(
            self._values,
            rows,
            limit=self.limit,
            # Signals always share what there is.
            leverage=self.leverage and not signals,
            only_changes=only_changes,
        )
        if not (self.leverage or signals) and len(gross):
            least = 1.0 + _ROUNDING if self.largest_scaled is None else self.largest_scaled[0]
            if gross.max() > least:
                self._note_scaling(rows, gross, least)
        return kept, targets

    def _note_scaling(self, rows: np.ndarray, gross: np.ndarray, least: float) -> None:
        doubtful = np.flatnonzero(gross > least)
        weights = np.nan_to_num(self._values[rows[doubtful]], nan=0.0)
        signals = ((weights == 0.0) | (weights == 1.0)).all(axis=1)
        doubtful = doubtful[~signals]
        if len(doubtful):
            at = doubtful[np.argmax(gross[doubtful])]
            self.largest_scaled = float(gross[at]), self.index[rows[at]]

    def changes(self, rows: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
        """Keep the rows whose targets differ from those of the row kept before.

        Before the first row everything is zero, so leading rows without weights are not kept.

        Returns
        -------
        int64 array of shape (kept,) and float64 array of shape (kept, assets)
            Positions in `rows`, and the targets there.
        """
        return self._read(rows, only_changes=True)


def read_weights(
    weights: TableInput | Sheet,
    *,
    limit: float,
    leverage: bool,
    dates: Any = None,
    assets: Any = None,
    like: WeightTable | None = None,
) -> WeightTable:
    """Check the user's weights.

    Parameters
    ----------
    weights : DataFrame, Arrow table, array or Sheet
        Dates x asset labels: numbers, or True and False.
    limit : float
        The largest absolute weight of one asset.
    leverage : bool
        Leave rows alone whose absolute sum is above 1.
    dates, assets : sequences, optional
        Those of an array.
    like : WeightTable, optional
        Weights that were read before. Where they have the same dates and labels, these are not
        looked through again, and both share them.

    Raises
    ------
    ValueError
        Naming the asset and date of what cannot be a weight.
    """
    if like is not None and isinstance(weights, Sheet | pd.DataFrame) and _are_alike(weights, like):
        index, labels = like.index, like.labels
        values = weights.values if isinstance(weights, Sheet) else _values(weights)
    else:
        weights = weights.table() if isinstance(weights, Sheet) else weights
        table = _dated(as_table(weights, "weights", dates=dates, assets=assets))
        index, labels = cast("pd.DatetimeIndex", table.index), table.columns
        if like is not None and table is not weights and _are_alike(table, like):
            index, labels = like.index, like.labels
        values = _values(table)
    # One number tells that all are numbers; only where it is none they are looked through.
    if values.dtype != np.bool_ and not np.isfinite(values.sum()):
        _refuse_infinite(values, index, labels)
        if np.isnan(np.fmax.reduce(values, axis=None)):
            raise ValueError("weights are empty: every value is missing")
    return WeightTable(index, labels, values, limit=limit, leverage=leverage)


def _dated(weights: Any) -> pd.DataFrame:
    if isinstance(weights, pd.Series) and isinstance(weights.name, str):
        weights = weights.to_frame()
    if not isinstance(weights, pd.DataFrame):
        raise ValueError(
            "weights must be a table of dates x asset labels, or an array with dates= and "
            f"assets=, got {type(weights).__name__}"
        )
    if weights.size == 0:
        raise ValueError(f"weights are empty: {len(weights)} dates, {weights.shape[1]} assets")
    check_labels(weights.columns)
    return dated_table(weights, "weights")


def _are_alike(weights: pd.DataFrame | Sheet, like: WeightTable) -> bool:
    pairs = (weights.index, like.index), (weights.columns, like.labels)
    return all(
        one is other or one.is_(other) or (one.dtype == other.dtype and one.equals(other))
        for one, other in pairs
    )


def _values(table: pd.DataFrame) -> np.ndarray:
    """The values as bool or float64, without a copy where they are that."""
    plain = table.to_numpy()
    if plain.dtype in (np.float64, np.bool_):
        return plain
    kinds = {str(label): _kind(table[label]) for label in table.columns}
    signals = [label for label, kind in kinds.items() if kind == "signal"]
    numbers = [label for label, kind in kinds.items() if kind == "number"]
    if signals and numbers:
        raise ValueError(
            f"weights mix True/False (as {signals[0]!r}) and numbers (as {numbers[0]!r}); "
            "give one of them"
        )
    if not signals:
        try:
            return table.to_numpy(dtype=np.float64, na_value=np.nan)
        except (TypeError, ValueError):  # of the missing values of other types
            return np.column_stack([_numbers(table.iloc[:, at]) for at in range(table.shape[1])])
    true = [table[label].eq(True).fillna(False) for label in table.columns]
    return np.column_stack([column.to_numpy(dtype=bool) for column in true])


def _numbers(column: pd.Series) -> np.ndarray:
    return pd.to_numeric(column, errors="coerce").to_numpy(dtype=np.float64, na_value=np.nan)


def _kind(column: pd.Series) -> str:
    if pd.api.types.is_bool_dtype(column.dtype):
        return "signal"
    if pd.api.types.is_numeric_dtype(column.dtype):
        return "number"
    kind = pd.api.types.infer_dtype(column, skipna=True)
    if kind == "boolean":
        return "signal"
    if kind in ("empty", "floating", "integer", "mixed-integer-float", "decimal"):
        return "empty" if kind == "empty" else "number"
    for date, value in column.items():
        if isinstance(value, bool) or not isinstance(value, int | float | np.number):
            when = date_text(cast("pd.Timestamp", date))
            raise ValueError(
                f"the weight of {column.name!r} on {when} is {value!r}; weights are numbers, or "
                "all True and False"
            )
    return "number"


def _refuse_infinite(values: np.ndarray, index: pd.DatetimeIndex, labels: pd.Index) -> None:
    if np.isfinite(np.fmax.reduce(values, axis=None)) and np.isfinite(
        np.fmin.reduce(values, axis=None)
    ):
        return
    infinite = np.isinf(values)
    if infinite.any():
        row, column = np.argwhere(infinite)[0]
        raise ValueError(
            f"the weight of {labels[column]!r} on {date_text(index[row])} is {values[row, column]}"
        )
