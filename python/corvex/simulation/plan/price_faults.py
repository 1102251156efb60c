"""Refusing prices that no simulation can rest on."""

from __future__ import annotations

import numpy as np
import pandas as pd

from corvex.simulation.notices import date_text, warn
from corvex.simulation.plan.schedule import Schedule
from corvex.simulation.read.clock import Clock
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.price_tables import PriceMatrices
from corvex.tables.asset_labels import other_names

__all__ = ["check_prices"]


def check_prices(
    prices: PriceMatrices, schedule: Schedule, clock: Clock, labels: pd.Index, columns: pd.Index
) -> PriceMatrices:
    """Refuse assets that are held without any price, and prices that are no prices.

    A missing price is no fault. What is wrong with an asset that is never held does no harm: its
    prices are taken for missing, with a warning; so is that of a label not in `columns`, those of
    the close table. A warning also tells where a column was chosen by the id alone although it has
    another name.

    Raises
    ------
    ValueError
        Naming the asset and date.
    """
    held = _held(schedule, len(labels))
    _refuse_unpriced(prices.close, schedule, held, labels)
    found = match_columns(labels, columns)
    unknown = labels[:0] if found is None else labels[found < 0]
    if len(unknown):
        names = ", ".join(repr(label) for label in unknown[:5])
        more = "" if len(unknown) <= 5 else f" and {len(unknown) - 5} more"
        warn(f"no prices for {names}{more}; they are never held, so the run goes on")
    if found is not None:
        _warn_of_other_names(labels, columns, found)
    if prices.low is not None and prices.high is not None:
        _refuse_crossed(prices.low, prices.high, held, clock, labels)
    fields = ("close", "fill", "open", "high", "low")
    cleaned: dict[int, np.ndarray] = {}
    result: dict[str, np.ndarray | None] = {}
    for field in fields:
        values = getattr(prices, field)
        if values is not None and id(values) not in cleaned:
            cleaned[id(values)] = _positive(values, field, held, clock, labels)
        result[field] = None if values is None else cleaned[id(values)]
    return PriceMatrices(**result)  # type: ignore[arg-type]


def _warn_of_other_names(labels: pd.Index, columns: pd.Index, found: np.ndarray) -> None:
    pairs = zip(labels, found.tolist(), strict=True)
    told = other_names((label, str(columns[place])) for label, place in pairs if place >= 0)
    if told:
        warn(f"prices are found by the id, the label up to its first blank: {told}")


def _held(schedule: Schedule, assets: int) -> np.ndarray:
    held = (schedule.targets != 0.0).any(axis=0) if len(schedule) else np.zeros(assets, bool)
    if schedule.planned_targets is not None:
        held |= schedule.planned_targets != 0.0
    return held


def _refuse_unpriced(
    close: np.ndarray, schedule: Schedule, held: np.ndarray, labels: pd.Index
) -> None:
    # Most assets have a price in the first or last row; only the others are looked through.
    doubtful = np.flatnonzero(np.isnan(close[0]) & np.isnan(close[-1]))
    unpriced = doubtful[np.isnan(close[:, doubtful]).all(axis=0)]
    for asset in unpriced:
        if held[asset]:
            rows = np.flatnonzero(schedule.targets[:, asset])
            date = schedule.dates[rows[0]] if len(rows) else schedule.planned_date
            when = "" if date is None else f"; its first weight is of {date_text(date)}"
            raise ValueError(f"asset {labels[asset]!r} has weights but no prices{when}")


def _positive(
    values: np.ndarray, field: str, held: np.ndarray, clock: Clock, labels: pd.Index
) -> np.ndarray:
    lowest, highest = np.fmin.reduce(values, axis=None), np.fmax.reduce(values, axis=None)
    if not (lowest <= 0.0 or np.isinf(highest)):
        return values
    bad = (values <= 0.0) | np.isinf(values)
    rows, columns = np.nonzero(bad[:, held])
    name = "trade_at" if field == "fill" else field
    if len(rows):
        row, column = rows[0], np.flatnonzero(held)[columns[0]]
        raise ValueError(
            f"the {name} price of {labels[column]!r} on {date_text(clock.index[row])} is "
            f"{values[row, column]}; prices must be above zero and finite, or missing (NaN)"
        )
    row, column = np.argwhere(bad)[0]
    warn(
        f"{int(bad.sum())} {name} prices, the first that of {labels[column]!r} on "
        f"{date_text(clock.index[row])}, are not above zero and finite; these assets are never "
        "held, so they were taken for missing"
    )
    return np.where(bad, np.nan, values)


def _refuse_crossed(
    low: np.ndarray, high: np.ndarray, held: np.ndarray, clock: Clock, labels: pd.Index
) -> None:
    crossed = low > high
    if not crossed.any():
        return
    rows, columns = np.nonzero(crossed & held)
    if len(rows):
        asset, date = labels[columns[0]], date_text(clock.index[rows[0]])
        raise ValueError(f"the low of {asset!r} on {date} is above its high")
