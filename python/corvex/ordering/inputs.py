"""Reading what `orders` is given: weights, prices and holdings of the same assets."""

from __future__ import annotations

import math
import warnings
from collections.abc import Iterable, Mapping
from datetime import datetime
from pathlib import Path
from typing import TYPE_CHECKING, Any

import pandas as pd

from corvex.tables.asset_labels import label_candidates, other_names
from corvex.tables.frames import as_table

if TYPE_CHECKING:
    from corvex.market import Market

__all__ = ["as_float", "chosen_weights", "matched", "one_execution", "quantities", "unit_prices"]

_PACKAGE = str(Path(__file__).parents[1])  # unresolved, as frames name their files


def as_float(value: Any) -> float:
    """Return a number, NaN for what is none."""
    try:
        return float(value)
    except (TypeError, ValueError, OverflowError):
        return math.nan


def one_execution(execution: Any) -> Any:
    """Return the execution state itself, of a report too."""
    if hasattr(execution, "execution"):
        execution = execution.execution
    if isinstance(execution, Mapping):
        known = ", ".join(map(repr, execution)) or "none"
        raise ValueError(
            f"there are several executions; choose one with execution[name], of: {known}"
        )
    if not hasattr(execution, "next_weights"):
        raise ValueError(
            f"execution should be a ReportExecution or a Report, got {type(execution)}"
        )
    return execution


def chosen_weights(execution: Any, now: datetime | None) -> pd.Series:
    """Return the weights that count now, scaled to the portfolio's total."""
    chosen = execution.next_weights if execution.uses_next_weights(now) else execution.weights
    weights: pd.Series = chosen.astype("float64") * execution.total_weight
    if not weights.map(math.isfinite).all():
        bad = ", ".join(str(label) for label in weights.index[~weights.map(math.isfinite)])
        raise ValueError(f"the weights of these assets are missing or infinite: {bad}")
    _by_label(weights, "weights")
    return weights


def unit_prices(prices: Any, market: Market) -> dict[str, float]:
    """Return the usable prices by the labels that they were given under."""
    if prices is None:
        prices = market.get_price("close", adj=False)
    prices = as_table(prices, "prices")
    if isinstance(prices, pd.DataFrame):
        if len(prices) == 0:
            raise ValueError("the table of prices is empty")
        if not prices.index.is_monotonic_increasing:  # some tables list the latest first
            prices = prices.sort_index(kind="stable")
        prices = prices.iloc[-1]
    found = _by_label(_numbers(prices, "prices"), "prices")
    return {name: price for name, price in found.items() if 0 < price < math.inf}


def quantities(held: Any) -> dict[str, float]:
    """Return what is held by asset label, without zeros."""
    if held is None:
        return {}
    found = _numbers(held, "held")
    bad = [label for label, quantity in found.items() if not math.isfinite(quantity)]
    if bad:
        raise ValueError(f"held should be finite quantities; not so: {', '.join(map(str, bad))}")
    owned = _by_label(found, "held")
    return {label: quantity for label, quantity in owned.items() if quantity != 0}


def matched[T](labels: Iterable[str], values: Mapping[str, T], what: str) -> dict[str, T]:
    """Return values by the labels of the assets that they are meant for.

    A value's label is that of its asset, or one of the same id (see `corvex.tables.asset_labels`).
    Values of other assets keep the labels that they have.

    Raises
    ------
    ValueError
        When a value may be meant for several assets, or several values for one.
    """
    known = list(labels)
    found: dict[str, T] = {}
    pairs = []
    for given, places in zip(values, label_candidates(values, known), strict=True):
        if len(places) > 1:
            several = ", ".join(repr(known[place]) for place in places)
            raise ValueError(f"{what} {given!r} may be any of {several}; give the whole label")
        label = known[places[0]] if places else given
        if label in found:
            raise ValueError(f"{what} has more than one entry of asset {label!r}")
        found[label] = values[given]
        pairs.append((given, label))
    if told := other_names(pairs):
        warnings.warn(
            f"{what} are found by the id, the label up to its first blank: {told}",
            UserWarning, stacklevel=2, skip_file_prefixes=(_PACKAGE,),
        )  # fmt: skip
    return found


def _numbers(values: Any, what: str) -> pd.Series:
    if not isinstance(values, pd.Series | Mapping):
        accepted = "a Series or a mapping" + (" or a DataFrame" if what == "prices" else "")
        raise ValueError(f"{what} should be {accepted} by asset, got {type(values)}")
    try:
        return pd.Series(values, dtype="float64")
    except (TypeError, ValueError) as error:
        raise ValueError(f"{what} should be numbers by asset: {error}") from None


def _by_label(values: pd.Series, what: str) -> dict[str, float]:
    found: dict[str, float] = {}
    for label, value in values.items():
        name = str(label)
        if name in found:
            raise ValueError(f"{what} has more than one entry of asset {name!r}")
        found[name] = float(value)
    return found
