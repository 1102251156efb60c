"""The currencies of a run: what each asset is quoted in, and its rate in each session."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.accounts.account import Account
from corvex.accounts.exchange import Leg, currency_code, pairs_of, way_between
from corvex.simulation.notices import date_text, warn
from corvex.simulation.plan.plan import Plan
from corvex.simulation.read.clock import Clock, dated_table
from corvex.simulation.read.columns import match_columns

__all__ = ["Currencies", "rates_on", "read_currencies"]

_Floats = npt.NDArray[np.float64]
_Ints = npt.NDArray[np.int64]

_DAY = 86_400_000_000_000
_LONG_DAYS = 10  # longer than the longest holidays of a market: the rate is told of
_MOST_DAYS = 35  # between the last weekdays of two months lie up to 33, and holidays


@dataclass(frozen=True, slots=True)
class Currencies:
    """What assets are quoted in, and what a unit of it costs in the account's own currency.

    Attributes
    ----------
    names : tuple of str
        Codes of the currencies; the first is the account's own.
    rates : float64 array of shape (sessions, currencies)
        Missing before the first rate that is known.
    of_asset : int64 array of shape (assets,)
        The currency of each asset, as its place in `names`.
    """

    names: tuple[str, ...]
    rates: _Floats
    of_asset: _Ints

    def rate(self, sessions: _Ints, assets: _Ints) -> _Floats:
        """Return the rates of assets in sessions."""
        return self.rates[sessions, self.of_asset[assets]]


def read_currencies(account: Account, clock: Clock, plan: Plan) -> Currencies | None:
    """Bring the currencies and exchange rates of an account to the sessions and assets of a plan.

    Returns
    -------
    Currencies or None
        None where the account has no `currency`.

    Raises
    ------
    ValueError
        When an asset that is held has no currency, or a rate is missing that it needs; the message
        names asset, pair and date.
    """
    if account.currency is None:
        return None
    base = currency_code(account.base, "base")
    codes = _codes(account.currency, plan)
    names = (base, *sorted({code for code in codes if code is not None} - {base}))
    of_asset = np.array([names.index(code or base) for code in codes], np.int64)
    needed = _first_needed(plan, of_asset, len(names))
    pairs = {} if account.fx is None else pairs_of(account.fx, names, base)
    rates = np.full((len(clock), len(names)), np.nan)
    rates[:, 0] = 1.0
    read = _Rates(clock, pairs, clock.index, clock.keys)
    for at, code in enumerate(names[1:], 1):
        if (first := needed[at]) is not None:
            rates[:, at] = read.of(code, base, *first)
    return Currencies(names, rates, of_asset)


def rates_on(
    dates: pd.DatetimeIndex,
    account: Account,
    code: str,
    clock: Clock,
    who: str,
    needed: int,
    *,
    tells: bool,
) -> _Floats:
    """Return what a unit of a currency costs in the account's own on dates of another table.

    Parameters
    ----------
    dates : DatetimeIndex
        Rising; in any zone or none.
    who : str
        What messages call what needs the rate.
    needed : int
        The row from which on it is needed; before it may be missing.
    tells : bool
        Warn of old rates; else somebody has.

    Raises
    ------
    ValueError
        When a rate is missing; the message names pair and date.
    """
    base = currency_code(account.base, "base")
    if code == base:
        return np.ones(len(dates))
    pairs = {} if account.fx is None else pairs_of(account.fx, (code,), base)
    read = _Rates(clock, pairs, dates, clock.place(dates).keys, tells=tells)
    return read.of(code, base, who, needed)


def _codes(given: Any, plan: Plan) -> list[str | None]:
    """Return the code of each asset's currency; None of one that is never held and has none."""
    labels, held = plan.labels, plan.held
    if isinstance(given, str):
        return [currency_code(given, "currency")] * len(labels)
    keys = given.index if isinstance(given, pd.Series) else pd.Index(list(given))
    values = given.tolist() if isinstance(given, pd.Series) else list(given.values())
    found = match_columns(labels, keys)
    places = np.arange(len(labels)) if found is None else found
    codes: list[str | None] = []
    for label, place, needed in zip(labels, places.tolist(), held.tolist(), strict=True):
        value = values[place] if place >= 0 else None
        missing = value is None or (not isinstance(value, str) and pd.isna(value))
        if missing and needed:
            raise ValueError(
                f"currency has no value for {label!r}; every asset needs one, also those in the "
                "base currency"
            )
        codes.append(None if missing else currency_code(value, f"currency of {label!r}"))
    return codes


def _first_needed(plan: Plan, of_asset: _Ints, count: int) -> list[tuple[str, int] | None]:
    """Return of each currency who needs it first, an asset, and the session of its first fill."""
    first: list[tuple[str, int] | None] = [None] * count
    schedule = plan.schedule
    fills = np.full(len(of_asset), np.iinfo(np.int64).max)  # of what is only planned yet
    if len(schedule):
        wanted = schedule.targets != 0.0
        rows = wanted.argmax(axis=0)
        fills = np.where(wanted.any(axis=0), schedule.sessions[rows] + 1, fills)
    for currency in np.unique(of_asset[plan.held]).tolist():
        assets = np.flatnonzero(plan.held & (of_asset == currency))
        asset = assets[np.argmin(fills[assets])]
        first[currency] = repr(str(plan.labels[asset])), int(fills[asset])
    return first


@dataclass(frozen=True, slots=True)
class _Known:
    """The rates of a pair that are there, and the row of the last one by each date."""

    dates: pd.DatetimeIndex
    keys: _Ints
    values: _Floats
    rows: _Ints


class _Rates:
    """Exchange rates on rising dates, whose keys are those of a clock."""

    def __init__(
        self,
        clock: Clock,
        pairs: dict[tuple[str, str], pd.Series | float],
        dates: pd.DatetimeIndex,
        keys: _Ints,
        *,
        tells: bool = True,
    ) -> None:
        self._clock = clock
        self._tells = tells
        self._pairs = pairs
        self._dates = dates
        self._keys = keys
        self._read: dict[str, _Known] = {}
        self._told: set[str] = set()

    def of(self, currency: str, base: str, who: str, needed: int) -> _Floats:
        """Return what a unit of a currency costs in the base; needed from a row on."""
        way = way_between(currency, base, self._pairs)
        if way is None:
            there = ", ".join(map("".join, self._pairs)) or "no pair"
            raise ValueError(
                f"the rate of {currency}{base} is missing{self._when(needed)}, where {who} "
                f"needs it; fx has: {there}. Its columns, its keys, or a Series' name, are pairs "
                f"such as '{currency}{base}'; both currencies against a third one serve as well"
            )
        rates = np.ones(len(self._keys))
        for leg in way:
            rates = rates * self._leg(leg, who, needed)
        return rates

    def _leg(self, leg: Leg, who: str, needed: int) -> _Floats:
        pair, inverse = leg
        name = "".join(pair)
        given = self._pairs[pair]
        if isinstance(given, pd.Series):
            rates = self._carried(name, given, who, needed)
        else:
            rates = np.full(len(self._keys), _positive(name, given))
        return 1.0 / rates if inverse else rates

    def _carried(self, name: str, given: pd.Series, who: str, needed: int) -> _Floats:
        """Return the last rate known by each date."""
        known = self._read.get(name) or _known_rates(name, given, self._clock, self._keys)
        self._read[name] = known
        self._check(name, who, needed, known)
        return np.where(known.rows >= 0, known.values[np.maximum(known.rows, 0)], np.nan)

    def _check(self, name: str, who: str, needed: int, known: _Known) -> None:
        """Refuse rates that are not known yet or too old, and tell of those that are old."""
        dates, rows = known.dates, known.rows
        wanted = np.arange(len(rows)) >= needed
        early = np.flatnonzero(wanted & (rows < 0))
        if len(early):
            raise ValueError(
                f"the rate of {name} is missing{self._when(int(early[0]))}, where {who} needs "
                f"it: the first one is of {date_text(dates[0])}"
                f"{'' if self._clock.is_daily else '; a date counts from its last bar on'}"
            )
        days = (self._keys - known.keys[np.maximum(rows, 0)]) // _DAY
        old = np.flatnonzero(wanted & (days > _MOST_DAYS))
        if len(old):
            raise ValueError(
                f"the rate of {name} is missing{self._when(int(old[0]))}: the last one, of "
                f"{date_text(dates[rows[old[0]]])}, is more than {_MOST_DAYS} days old"
            )
        late = np.flatnonzero(wanted & (days > _LONG_DAYS))
        if self._tells and len(late) and name not in self._told:
            self._told.add(name)
            warn(
                f"the rate of {name} is more than {_LONG_DAYS} days old in {len(late)} sessions, "
                f"first{self._when(int(late[0]))}: that of {date_text(dates[rows[late[0]]])} counts"
            )

    def _when(self, row: int) -> str:
        known = 0 <= row < len(self._keys)
        return f" on {date_text(self._dates[row])}" if known else ""


def _known_rates(name: str, given: pd.Series, clock: Clock, wanted: _Ints) -> _Known:
    table = dated_table(given.to_frame(name), f"fx of {name}")
    try:
        values = table[name].to_numpy(dtype=np.float64, na_value=np.nan)
    except (TypeError, ValueError) as error:
        raise ValueError(f"fx of {name} must hold numbers: {error}") from None
    there = ~np.isnan(values)
    dates, values = pd.DatetimeIndex(table.index)[there], values[there]
    bad = ~(values > 0.0) | np.isinf(values)
    if bad.any():
        at = int(np.argmax(bad))
        raise ValueError(
            f"the rate of {name} on {date_text(dates[at])} is {values[at]:g}; rates must be above "
            "zero and finite, or missing"
        )
    if not len(dates):
        raise ValueError(f"fx of {name} is empty: there is no rate on any date")
    keys = clock.place(dates).keys
    return _Known(dates, keys, values, np.searchsorted(keys, wanted, side="right") - 1)


def _positive(name: str, value: Any) -> float:
    try:
        number = float(value)
    except (TypeError, ValueError):
        number = np.nan
    if isinstance(value, bool | str) or not 0.0 < number < np.inf:
        raise ValueError(
            f"fx of {name} must be a Series by date or a number above 0, got {value!r}"
        )
    return number
