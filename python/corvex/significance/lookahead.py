"""Whether a strategy's weights change when what comes after them does."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass
from typing import Any, TypeAlias, cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.tables.frames import ArrowTable, as_given, as_table

__all__ = ["LookaheadCheck", "check_lookahead"]

_Floats = npt.NDArray[np.float64]
Tables: TypeAlias = "pd.DataFrame | pd.Series | ArrowTable | Mapping[str, pd.DataFrame]"
Strategy: TypeAlias = Callable[..., pd.DataFrame]

#: Cuts where nobody says which.
_CUTS = 8
#: Weights that differ by less are the same: sums in another order round otherwise.
_TOLERANCE = 1e-9

_TEXTS = {
    "clean": "No weight changed when later prices were cut off or replaced.",
    "random": (
        "Two calls with the same prices gave different weights: the strategy draws random numbers, "
        "or keeps something from call to call. Seed its generator inside the function, then check "
        "again."
    ),
    "whole sample": (
        "Weights change all the way back, so something is worked out over the whole sample: a "
        "mean, a scale, a rank or a model fitted on all dates. Use expanding() or rolling() "
        "figures, or fit on what was known."
    ),
    "look-ahead": (
        "The weight uses prices of later dates. Usual causes: shift(-1), a centred window, "
        "bfill(), or a period labelled by its first day."
    ),
}


@dataclass(frozen=True)
class LookaheadCheck:
    """What came out of a check.

    Attributes
    ----------
    kind : str
        "clean", "look-ahead", "whole sample" or "random".
    date, asset : first date, and the first asset in it, whose weight changes; None when clean.
    weight, changed : the weight with all prices, and without the later ones; NaN for no row.
    cut : the last date whose prices both had; None when clean or random.
    rows_back : int or None
        Rows of the prices from `date` to `cut`: how far ahead the strategy looks at least.
    cuts : list of Timestamp
        All dates after which prices were cut off and replaced.
    """

    kind: str
    cuts: list[pd.Timestamp]
    date: pd.Timestamp | None = None
    asset: Any = None
    weight: float = float("nan")
    changed: float = float("nan")
    cut: pd.Timestamp | None = None
    rows_back: int | None = None

    def __bool__(self) -> bool:
        """True when no weight changed."""
        return self.kind == "clean"

    def __str__(self) -> str:
        text = _TEXTS[self.kind]
        if self.kind == "clean":
            return f"{text} ({len(self.cuts)} dates tried)"
        found = f"{self.kind}: the weight of {self.asset!r} on {self.date:%Y-%m-%d}"
        found = f"{found} is {self.weight:g}"
        if self.kind == "random":
            return f"{found}, then {self.changed:g}. {text}"
        return f"{found}, but {self.changed:g} without the prices after {self.cut:%Y-%m-%d}. {text}"


def check_lookahead(
    strategy: Strategy,
    prices: Tables,
    dates: Iterable[Any] | None = None,
    *,
    seed: int = 0,
    **arguments: Any,
) -> LookaheadCheck:
    """Look for weights that depend on prices of later dates.

    The strategy is called with all prices, then for each of some dates with the prices cut off
    after it, and with the later ones replaced: their own moves mirrored, and shuffled. Weights up
    to that date must stay as they were. Rows that only a cut makes, such as that of an unfinished
    month, are not looked at.

    Parameters
    ----------
    strategy : callable
        ``strategy(prices, **arguments)`` returns weights or signals, dates x assets.
    prices : table, Series or mapping of name to DataFrame
        As the strategy takes them; it is given copies, of polars and pyarrow as such tables with
        a column for each asset.
    dates : iterable of dates, optional
        Where to cut. Default: eight dates, the first after a quarter of the rows.
    seed : int, default 0
        Of the shuffles.
    **arguments
        Handed to the strategy.

    Returns
    -------
    LookaheadCheck
        True when nothing changed; `print` it for the first weight that did, and the usual cure.

    Raises
    ------
    TypeError
        When the strategy returns no table, or the prices are none.
    ValueError
        When no date leaves prices before and after it.

    Notes
    -----
    A finding is certain, the absence of one is not: what depends on later prices only now and
    then may be missed, so give more `dates` where it matters.

    Examples
    --------
    >>> import corvex
    >>> prices = corvex.data.sample("us_stocks").loc["2018":"2019", ["AAPL", "MSFT"]]
    >>> bool(corvex.check_lookahead(lambda p: p > p.rolling(50).mean(), prices))
    True
    >>> corvex.check_lookahead(lambda p: p.shift(-1) > p, prices).kind
    'look-ahead'
    """
    tables = {name: table.sort_index() for name, table in _as_mapping(prices).items()}
    index = _dates_of(tables)
    cuts = _cuts(index, dates)

    def weights(given: Mapping[str, pd.DataFrame]) -> pd.DataFrame:
        handed = {name: table.copy() for name, table in given.items()}
        return _as_weights(strategy(_like(prices, handed), **arguments))

    whole = weights(tables)
    found = _first_change(whole, weights(tables), None)
    if found is not None:
        return LookaheadCheck("random", cuts, *found)
    shuffle = np.random.default_rng(seed)
    for cut in cuts:
        for later in (_cut_off, _mirrored, lambda table, at: _shuffled(table, at, shuffle)):
            other = weights({name: later(table, cut) for name, table in tables.items()})
            found = _first_change(whole, other, cut)
            if found is not None:
                rows = int(((index >= found[0]) & (index <= cut)).sum()) - 1
                kind = _kind(whole, other, cut)
                return LookaheadCheck(kind, cuts, *found, cut=cut, rows_back=rows)
    return LookaheadCheck("clean", cuts)


def _as_mapping(prices: Tables) -> dict[str, pd.DataFrame]:
    if isinstance(prices, pd.Series):
        return {"": prices.to_frame()}
    if isinstance(prices, pd.DataFrame):
        return {"": prices}
    if isinstance(prices, Mapping) and prices:
        return dict(prices)
    if isinstance(prices, ArrowTable):
        return {"": as_table(prices, "prices")}
    raise TypeError(
        "prices must be a table, a Series or a mapping of name to DataFrame, not "
        f"{type(prices).__name__}"
    )


def _like(prices: Tables, tables: dict[str, pd.DataFrame]) -> Any:
    """Hand the tables over in the form in which they came."""
    if isinstance(prices, pd.Series):
        return tables[""].iloc[:, 0]
    if isinstance(prices, pd.DataFrame | Mapping):
        return tables[""] if isinstance(prices, pd.DataFrame) else tables
    return as_given(tables[""], prices, "prices")


def _dates_of(tables: Mapping[str, pd.DataFrame]) -> pd.DatetimeIndex:
    for name, table in tables.items():
        if not isinstance(table.index, pd.DatetimeIndex):
            raise TypeError(f"the prices {name!r} need dates as their index")
    return cast("pd.DatetimeIndex", next(iter(tables.values())).index.sort_values())


def _cuts(index: pd.DatetimeIndex, dates: Iterable[Any] | None) -> list[pd.Timestamp]:
    if dates is None:
        places = np.linspace(len(index) // 4, len(index) - 2, _CUTS).astype(int)
        dates = index[np.unique(places[places >= 0])]
    cuts = []
    for date in dates:
        stamp = pd.Timestamp(date)
        if stamp.tz is None and index.tz is not None:
            stamp = stamp.tz_localize(index.tz)
        if len(index) and index[0] <= stamp < index[-1]:
            cuts.append(stamp)
    if not cuts:
        raise ValueError("there must be a date with prices before and after it to cut at")
    return sorted(cuts)


def _as_weights(table: Any) -> pd.DataFrame:
    table = as_table(table, "weights")
    if isinstance(table, pd.Series):
        table = table.to_frame()
    if not isinstance(table, pd.DataFrame):
        raise TypeError(f"the strategy must return a table of weights, not {type(table).__name__}")
    return table.astype(np.float64).fillna(0.0)


def _cut_off(table: pd.DataFrame, cut: pd.Timestamp) -> pd.DataFrame:
    return table[table.index <= cut]


def _mirrored(table: pd.DataFrame, cut: pd.Timestamp) -> pd.DataFrame:
    return _replaced(table, cut, lambda moves: 1.0 / moves)


def _shuffled(table: pd.DataFrame, cut: pd.Timestamp, shuffle: np.random.Generator) -> pd.DataFrame:
    def other(moves: _Floats) -> _Floats:
        return moves[shuffle.permutation(len(moves))] * shuffle.uniform(0.9, 1.1, moves.shape)

    return _replaced(table, cut, other)


def _replaced(
    table: pd.DataFrame, cut: pd.Timestamp, other: Callable[[_Floats], _Floats]
) -> pd.DataFrame:
    """Let the later prices make other moves: prices of the same kind, and another story."""
    start = max(int((table.index <= cut).sum()), 1)
    numbers = table.select_dtypes(np.number).columns
    values = table[numbers].to_numpy(dtype=np.float64, copy=True)
    with np.errstate(divide="ignore", invalid="ignore"):
        moves = values[start:] / values[start - 1 : -1]
    moves[~np.isfinite(moves) | (moves <= 0.0)] = 1.0
    first = values[start - 1]
    path = np.where(np.isnan(first), 1.0, first) * np.cumprod(other(moves), axis=0)
    values[start:] = np.where(np.isnan(values[start:]), np.nan, path)
    replaced = table.copy()
    replaced[numbers] = values
    return replaced


def _differences(
    whole: pd.DataFrame, other: pd.DataFrame, cut: pd.Timestamp | None
) -> pd.DataFrame:
    """Weights up to the cut that are not what they were; a missing row differs where it held."""
    rows = whole if cut is None else whole[whole.index <= cut]
    aligned = other.reindex(index=rows.index, columns=rows.columns)
    lost = ~rows.index.isin(other.index)
    changed = (rows - aligned.fillna(0.0)).abs() > _TOLERANCE * (1.0 + rows.abs())
    changed[lost] = rows[lost] != 0.0
    return changed


def _first_change(
    whole: pd.DataFrame, other: pd.DataFrame, cut: pd.Timestamp | None
) -> tuple[pd.Timestamp, Any, float, float] | None:
    changed = _differences(whole, other, cut)
    rows = np.flatnonzero(changed.any(axis=1).to_numpy())
    if rows.size == 0:
        return None
    date = changed.index[rows[0]]
    asset = changed.columns[int(np.argmax(changed.to_numpy()[rows[0]]))]
    held = other.index == date
    now = float(other[asset][held].iloc[0]) if held.any() and asset in other else float("nan")
    return date, asset, float(whole[asset].iloc[rows[0]]), now


def _kind(whole: pd.DataFrame, other: pd.DataFrame, cut: pd.Timestamp) -> str:
    """Changes in most of the rows long before the cut come from something over all rows."""
    changed = _differences(whole, other, cut).any(axis=1).to_numpy()
    holds = whole[whole.index <= cut].ne(0.0).any(axis=1).to_numpy()
    early = holds[: len(holds) // 2]
    if early.sum() == 0:
        return "look-ahead"
    return "whole sample" if changed[: early.size][early].mean() > 0.5 else "look-ahead"
