"""The prices of a plan's assets: matched, cleaned and looked through for faults, once."""

from __future__ import annotations

from typing import Any, Literal

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.price_tables import PriceMatrices
from corvex.tables.asset_labels import other_names

__all__ = ["AssetPrices", "Faults", "look_through"]

_FIELDS = ("close", "fill", "open", "high", "low")
_NO_LABELS: pd.Index = pd.Index([], dtype=object)


class Faults:
    """Prices of one field that cannot be.

    Attributes
    ----------
    field : str
        Such as "close"; "crossed" for lows above their highs.
    number : int
        How many there are.
    rows : int64 array of shape (assets,)
        The first session with one of each asset, -1 for none.
    values : float64 array of shape (assets,)
        The price there.
    """

    def __init__(
        self,
        field: str,
        number: int,
        rows: np.ndarray,
        values: np.ndarray,
    ) -> None:
        self.field = field
        self.number = number
        self.rows = rows
        self.values = values

    def first(self, assets: np.ndarray) -> int | None:
        """Return the one of some assets (a mask) that has the earliest; None without any."""
        found = np.flatnonzero(assets & (self.rows >= 0))
        return int(found[np.argmin(self.rows[found])]) if len(found) else None


class AssetPrices:
    """Prices of the sessions x some assets, ready for any number of runs; they do not change.

    Attributes
    ----------
    labels : Index
        The assets.
    matrices : PriceMatrices
        Their prices; what cannot be a price is missing.
    fill_at : {"close", "open", "other"}
        When in a session orders fill.
    unpriced : bool array of shape (assets,)
        Assets without any close.
    unknown : Index
        Labels without a price column.
    renamed : str
        Columns that were chosen by the id alone although they have another name; "" for none.
    faults : tuple of Faults
        Found in the tables as they were given.
    shared : PriceSet
        The prices as the engine takes them, without a copy.
    is_sound : bool
        There is nothing to be told of them, whatever is held.
    """

    def __init__(
        self,
        labels: pd.Index,
        matrices: PriceMatrices,
        fill_at: Literal["close", "open", "other"],
        unpriced: np.ndarray,
        unknown: pd.Index,
        renamed: str,
        faults: tuple[Faults, ...],
    ) -> None:
        self._given = (labels, matrices, fill_at, unpriced, unknown, renamed, faults)
        self.labels = labels
        self.matrices = matrices
        self.fill_at = fill_at
        self.unpriced = unpriced
        self.unknown = unknown
        self.renamed = renamed
        self.faults = faults
        self.shared = _engine.PriceSet(
            close=matrices.close,
            fill_at=fill_at,
            fill=None if fill_at == "close" else matrices.fill,
            open=matrices.open,
            high=matrices.high,
            low=matrices.low,
        )
        self.is_sound = not any((len(unknown), renamed, faults, unpriced.any()))

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), self._given


def look_through(
    matrices: PriceMatrices, labels: pd.Index, columns: pd.Index, trade_at: object
) -> AssetPrices:
    """Find the faults of prices, and take what cannot be a price for missing.

    Parameters
    ----------
    matrices : PriceMatrices
        The prices of `labels`.
    columns : Index
        Columns of the close table.
    trade_at : object
        Where orders fill.
    """
    found = match_columns(labels, columns)
    unknown, renamed = _NO_LABELS, ""
    if found is not None:
        unknown = labels[found < 0]
        pairs = zip(labels, found.tolist(), strict=True)
        renamed = other_names((label, str(columns[at])) for label, at in pairs if at >= 0)
    fill_at: Literal["close", "open", "other"] = "other"
    if isinstance(trade_at, str) and trade_at in ("close", "open"):
        fill_at = "close" if trade_at == "close" else "open"
    cleaned, faults = _cleaned(matrices)
    return AssetPrices(labels, cleaned, fill_at, _unpriced(cleaned.close), unknown, renamed, faults)


def _cleaned(matrices: PriceMatrices) -> tuple[PriceMatrices, tuple[Faults, ...]]:
    faults = []
    low, high = matrices.low, matrices.high
    if low is not None and high is not None:
        crossed = low > high
        if crossed.any():
            faults.append(_faults("crossed", crossed, low))
    done: dict[int, np.ndarray] = {}
    result: dict[str, np.ndarray] = {}
    for name in _FIELDS:
        values = getattr(matrices, name)
        if values is None:
            continue
        if id(values) not in done:
            bad = _impossible(values)
            done[id(values)] = values if bad is None else np.where(bad, np.nan, values)
            if bad is not None:
                faults.append(_faults(name, bad, values))
        result[name] = done[id(values)]
    return matrices._replace(**result), tuple(faults)


def _impossible(values: np.ndarray) -> np.ndarray | None:
    """Return where prices are not above zero and finite; None where all are, or are missing."""
    if _engine.first_bad_price(values) is None:
        return None
    bad: np.ndarray = (values <= 0.0) | np.isinf(values)
    return bad


def _faults(field: str, bad: np.ndarray, values: np.ndarray) -> Faults:
    rows = np.where(bad.any(axis=0), bad.argmax(axis=0), -1)
    return Faults(field, int(bad.sum()), rows, values[rows, np.arange(values.shape[1])])


def _unpriced(close: np.ndarray) -> np.ndarray:
    # Most assets have a price in the first or last row; only the others are looked through.
    result: np.ndarray = np.isnan(close[0]) & np.isnan(close[-1])
    doubtful = np.flatnonzero(result)
    result[doubtful] = np.isnan(close[:, doubtful]).all(axis=0)
    return result
