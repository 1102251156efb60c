"""An account's terms on the sessions and assets of a run, as the engine takes them."""

from __future__ import annotations

import numbers
from typing import Any, NamedTuple, cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.accounts.account import DAY_COUNTS, Account
from corvex.accounts.fees import Fees
from corvex.simulation.account.account_currencies import Currencies, read_currencies
from corvex.simulation.account.account_dates import rows_as_of, rows_from
from corvex.simulation.notices import date_text, warn
from corvex.simulation.plan.plan import Plan
from corvex.simulation.read.clock import Clock, as_dates
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.price_data import PriceData
from corvex.simulation.read.price_tables import market_matrix

__all__ = ["AccountTerms", "read_account"]

_Floats = npt.NDArray[np.float64]
_Events = tuple[npt.NDArray[np.int64], npt.NDArray[np.int64], _Floats]

_HIGH = 1.0  # a yearly rate above it is hardly meant


class AccountTerms(NamedTuple):
    """What the engine reads by these names; tables have one row, or one for each session.

    Attributes
    ----------
    years : float64 array of shape (sessions, 1)
        The part of a year from the close before to each session's.
    cash_rate : float64 array or None
        The spread is taken off.
    dividends, splits : (int64, int64, float64) arrays
        Session, asset and amount of each, ascending.
    flows : list of (int, float)
        Session and amount, ascending.
    currencies : Currencies or None
        None where all is in one.
    """

    capital: float
    years: _Floats
    cash_rate: _Floats | None
    financing_rate: _Floats | None
    short_rebate: _Floats | None
    borrow_rate: _Floats | None
    fee_ratio: _Floats | None
    tax_ratio: _Floats | None
    slippage_ratio: _Floats | None
    fees: Fees
    lot_size: _Floats | None
    round_to_nearest: bool
    dividends: _Events
    splits: _Events
    withholding_tax: float
    band: _Floats | None
    band_relative: bool
    band_to_edge: bool
    volume: _Floats | None
    volume_share: float
    unfilled_lapses: bool
    impact: float
    impact_window: int
    price_limit: _Floats | None
    price_ticks: tuple[tuple[float, float], ...]
    opens: _Floats | None
    maintenance_margin: float
    flows: list[tuple[int, float]]
    currencies: Currencies | None = None

    @property
    def fx(self) -> _Floats | None:
        """What a unit of each currency costs in the account's own; sessions x currencies."""
        return None if self.currencies is None else self.currencies.rates

    @property
    def fx_column(self) -> npt.NDArray[np.int64] | None:
        """The currency of each asset."""
        return None if self.currencies is None else self.currencies.of_asset


def read_account(account: Account, prices: PriceData, plan: Plan) -> AccountTerms:
    """Bring the terms of an account to the sessions and assets of a plan.

    Raises
    ------
    ValueError
        When a value cannot be used; the message names the term, and date or asset.
    """
    _refuse_adjusted(account, prices)
    read = _Reader(prices.clock, plan)
    wants_volume = account.volume_share is not None or account.impact > 0.0
    return AccountTerms(
        capital=float(account.capital),
        years=_years(prices.clock, DAY_COUNTS[account.day_count]),
        cash_rate=_after_spread(read.rate("cash_rate", account.cash_rate), account.cash_spread),
        financing_rate=read.rate("financing_rate", account.financing_rate),
        short_rebate=read.rate("short_rebate", account.short_rebate),
        borrow_rate=read.borrow_rate(account.borrow_rate),
        fee_ratio=read.ratio("fee_ratio", account.fee_ratio),
        tax_ratio=read.ratio("tax_ratio", account.tax_ratio),
        slippage_ratio=read.ratio("slippage_ratio", account.slippage_ratio),
        fees=account.fees,
        lot_size=read.lot_size(account.lot_size),
        round_to_nearest=account.rounding == "nearest",
        dividends=read.events("dividends", account.dividends),
        splits=read.events("splits", account.splits),
        withholding_tax=float(account.withholding_tax),
        band=read.band(account.band),
        band_relative=account.band_kind == "relative",
        band_to_edge=account.band_to == "edge",
        volume=_volume(prices, plan.labels) if wants_volume else None,
        volume_share=float(account.volume_share or 0.0),
        unfilled_lapses=account.unfilled == "lapse",
        impact=float(account.impact),
        impact_window=int(account.impact_window),
        price_limit=read.ratio("price_limit", account.price_limit),
        price_ticks=_ticks(account, prices),
        opens=None
        if account.price_limit is None
        else market_matrix(prices.market, "open", prices.clock, plan.labels, required=False),
        maintenance_margin=float(account.maintenance_margin or 0.0),
        flows=read.flows(account.flows),
        currencies=read_currencies(account, prices.clock, plan),
    )


class _Reader:
    """Reads values on the sessions of a clock and the assets of a plan."""

    def __init__(self, clock: Clock, plan: Plan) -> None:
        self._clock = clock
        self._labels = plan.labels
        self._held = plan.held
        self._first = plan.first_session

    def rate(self, name: str, given: float | pd.Series) -> _Floats | None:
        """Read a rate by session; before its first date it counts as zero."""
        if isinstance(given, pd.Series) and not _has_dates(given.index):
            raise ValueError(f"{name} must be a number or a Series by date; its index has no dates")
        table = self._table(name, given)
        if table is None:
            return None
        _warn_of_high(name, table)
        late = np.isnan(table[self._first :, 0]) if len(table) > 1 else np.empty(0, bool)
        if late.any():
            when = date_text(self._clock.index[self._first])
            warn(f"{name} is missing at first (on {when}); it counts as 0 until it is there")
        return np.nan_to_num(table)

    def borrow_rate(self, given: Any) -> _Floats | None:
        table = self._table("borrow_rate", given)
        if table is not None:
            _warn_of_high("borrow_rate", table)
        return table

    def ratio(self, name: str, given: float | pd.Series | None) -> _Floats | None:
        """Read fractions by asset, from 0 to below 1."""
        table = self._by_asset(name, given)
        if table is not None:
            bad = (table < 0.0) | (table >= 1.0)
            self._refuse(name, table, bad, "a fraction from 0 to below 1 (0.001 is 0.1 %)")
        return table

    def lot_size(self, given: float | pd.Series | None) -> _Floats | None:
        table = self._by_asset("lot_size", given)
        if table is not None:
            self._refuse("lot_size", table, ~(table > 0.0) | np.isinf(table), "a number above 0")
        return table

    def band(self, given: Any) -> _Floats | None:
        table = None if given is None else self._table("band", given, zero_is_none=False)
        if table is not None:
            self._refuse("band", table, table < 0.0, "a number from 0 on")
            return np.nan_to_num(table)
        return None

    def events(self, name: str, table: pd.DataFrame | None) -> _Events:
        """Read what happens to assets on dates; those without a session move to the next one."""
        nothing = np.empty(0, np.int64), np.empty(0, np.int64), np.empty(0)
        if table is None or table.size == 0:
            return nothing
        columns = self._columns(name, table.columns)
        if (columns < 0).all():
            warn(f"{name} names none of the assets: its first is {table.columns[0]!r}")
        values = _floats(name, table)
        if not np.array_equal(columns, np.arange(values.shape[1])):
            values = np.where(columns >= 0, values[:, np.maximum(columns, 0)], np.nan)
        none = 1.0 if name == "splits" else 0.0
        there = np.flatnonzero((values < none) | (values > none))  # missing is neither
        rows, assets = np.divmod(there, values.shape[1])
        amounts = values.ravel()[there]
        dates = as_dates(table.index, f"the index of {name}")
        bad = (amounts <= 0.0) | np.isinf(amounts)
        if bad.any():
            at = int(np.argmax(bad))
            kind = "new shares for each old one" if name == "splits" else "money for each share"
            raise ValueError(
                f"{name} of {self._labels[assets[at]]!r} on {date_text(dates[rows[at]])} is "
                f"{amounts[at]:g}; it must be a number above 0: {kind}"
            )
        placed, moves = rows_from(self._clock, dates)
        sessions, moved = placed[rows], moves[rows]
        inside = (sessions > self._first) & (sessions < len(self._clock))
        if (late := moved & inside).any():
            self._tell_moved(name, dates[rows[late]])
        sessions, assets, amounts = sessions[inside], assets[inside], amounts[inside]
        if (np.diff(sessions) < 0).any():
            order = np.argsort(sessions, kind="stable")
            sessions, assets, amounts = sessions[order], assets[order], amounts[order]
        return sessions, assets.astype(np.int64), amounts

    def flows(self, given: pd.Series | None) -> list[tuple[int, float]]:
        if given is None or len(given) == 0:
            return []
        amounts = _floats("flows", given.to_frame())[:, 0]
        dates = as_dates(given.index, "the index of flows")
        if not np.isfinite(amounts).all():
            at = int(np.argmin(np.isfinite(amounts)))
            raise ValueError(f"flows on {date_text(dates[at])} is {amounts[at]}, not an amount")
        rows, moved = rows_from(self._clock, dates)
        early = (rows < self._first) | (moved & (rows == 0))
        late = rows >= len(self._clock)
        if (early | late).any():
            date = date_text(dates[int(np.argmax(early | late))])
            warn(
                f"{int((early | late).sum())} flows, such as that of {date}, lie outside the run "
                "and were left out; what is there before it belongs to the capital"
            )
        inside = ~(early | late)
        self._tell_moved("flows", dates[moved & inside])
        pairs = zip(rows[inside].tolist(), amounts[inside].tolist(), strict=True)
        return sorted(pairs, key=lambda pair: pair[0])

    def _tell_moved(self, name: str, dates: pd.DatetimeIndex) -> None:
        if len(dates):
            warn(
                f"{len(dates)} {name} on dates without a session, such as {date_text(dates[0])}, "
                "count in the next session"
            )

    def _by_asset(self, name: str, given: float | pd.Series | None) -> _Floats | None:
        if given is None:
            return None
        if isinstance(given, pd.DataFrame) or (
            isinstance(given, pd.Series) and _has_dates(given.index)
        ):
            raise ValueError(f"{name} must be a number or a Series by asset label")
        table = self._table(name, given, zero_is_none=False)
        assert table is not None
        missing = np.isnan(table[0]) & (self._held | (table.shape[1] == 1))
        if missing.any():
            label = self._labels[int(np.argmax(missing))]
            raise ValueError(f"{name} has no value for {label!r}")
        return np.nan_to_num(table)

    def _table(self, name: str, given: Any, *, zero_is_none: bool = True) -> _Floats | None:
        """Bring values to (1 or sessions) x (1 or assets); None for the number 0."""
        if isinstance(given, numbers.Real) and not isinstance(given, bool):
            if zero_is_none and given == 0.0:
                return None
            if not np.isfinite(float(given)):
                raise ValueError(f"{name} must be finite, got {given!r}")
            return np.array([[float(given)]])
        if isinstance(given, pd.Series):
            given = given.to_frame() if _has_dates(given.index) else given.to_frame().T
            by_date, by_asset = _has_dates(given.index), not _has_dates(given.index)
        elif isinstance(given, pd.DataFrame):
            by_date = by_asset = True
        else:
            raise ValueError(
                f"{name} must be a number, a Series by date or by asset label, or a table of "
                f"both, got {type(given).__name__}"
            )
        values = _floats(name, given)
        if np.isinf(values).any():
            raise ValueError(f"{name} holds infinite values")
        if by_asset:
            columns = self._columns(name, given.columns)
            values = np.where(columns >= 0, values[:, np.maximum(columns, 0)], np.nan)
        if by_date:
            rows = rows_as_of(self._clock, as_dates(given.index, f"the index of {name}"), name)
            values = np.where(rows[:, None] >= 0, values[np.maximum(rows, 0)], np.nan)
        return np.ascontiguousarray(values)

    def _columns(self, name: str, columns: pd.Index) -> npt.NDArray[np.int64]:
        if len(columns) == 0:
            raise ValueError(f"{name} is empty")
        found = match_columns(self._labels, columns)
        return np.arange(len(self._labels)) if found is None else found

    def _refuse(self, name: str, table: _Floats, bad: npt.NDArray[np.bool_], accepted: str) -> None:
        bad = bad & (np.ones(1, bool) if table.shape[1] == 1 else self._held)
        if not bad.any():
            return
        row, asset = (int(found[0]) for found in np.nonzero(bad))
        whose = f" of {self._labels[asset]!r}" if table.shape[1] > 1 else ""
        raise ValueError(f"{name}{whose} must be {accepted}, got {table[row, asset]:g}")


def _has_dates(index: pd.Index) -> bool:
    return isinstance(index, pd.DatetimeIndex | pd.PeriodIndex)


def _floats(name: str, table: pd.DataFrame) -> _Floats:
    try:
        return table.to_numpy(dtype=np.float64, na_value=np.nan)
    except (TypeError, ValueError) as error:
        raise ValueError(f"{name} must hold numbers: {error}") from None


def _years(clock: Clock, days_of_year: float) -> _Floats:
    days = clock.days // 86_400_000_000_000
    return np.diff(days, prepend=days[0]).reshape(-1, 1) / days_of_year


def _after_spread(rate: _Floats | None, spread: float) -> _Floats | None:
    """Take the broker's spread off; a rate above zero does not become one below it."""
    return None if rate is None else np.maximum(rate - spread, np.minimum(rate, 0.0))


def _warn_of_high(name: str, table: _Floats) -> None:
    highest = float(np.nanmax(np.abs(table), initial=0.0))
    if highest > _HIGH:
        warn(
            f"{name} is as high as {highest:g} ({highest:.0%} a year); rates are fractions "
            "(0.05 is 5 %)"
        )


def _volume(prices: PriceData, labels: pd.Index) -> _Floats:
    found = cast("_Floats", market_matrix(prices.market, "volume", prices.clock, labels))
    impossible = (found < 0.0) | np.isinf(found)
    return np.where(impossible, np.nan, found) if impossible.any() else found  # often a user's own


def _ticks(account: Account, prices: PriceData) -> tuple[tuple[float, float], ...]:
    """Return the ticks that price limits are moved to; without limits there is nothing to move."""
    if account.price_limit is None or account.ticks == ():
        return ()
    market = prices.market
    if _is_adjusted(prices):
        raise ValueError(
            "price_ticks go with quoted prices, and these are adjusted ones; hand over quoted "
            "prices alone, without 'adj_close', or leave price_ticks out"
        )
    if account.ticks is not None:
        return account.ticks
    if not market.price_ticks:
        raise ValueError(
            f"the market {market.get_name()!r} knows no ticks; give them by price: "
            "price_ticks={0: 0.01}"
        )
    return tuple(market.price_ticks)


def _is_adjusted(prices: PriceData) -> bool:
    market = prices.market
    return market.get_price("close", adj=False) is not market.get_price("close", adj=True)


def _refuse_adjusted(account: Account, prices: PriceData) -> None:
    if account.dividends is None and account.splits is None:
        return
    if _is_adjusted(prices):
        raise ValueError(
            "dividends and splits go with quoted prices, and these are adjusted ones: they would "
            "count twice; hand over quoted prices alone, without 'adj_close'"
        )
