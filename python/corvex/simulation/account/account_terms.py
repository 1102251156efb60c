"""An account's terms on the sessions and assets of a run, as the engine takes them."""

from __future__ import annotations

import numbers
from collections.abc import Mapping
from typing import Any, NamedTuple

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.accounts.account import DAY_COUNTS, Account, in_currency
from corvex.accounts.fees import Fees
from corvex.simulation.account.account_currencies import Currencies, read_currencies
from corvex.simulation.account.account_dates import rows_from
from corvex.simulation.account.account_values import ValueReader, as_floats
from corvex.simulation.notices import date_text, warn
from corvex.simulation.plan.plan import Plan
from corvex.simulation.read.clock import Clock, as_dates
from corvex.simulation.read.price_data import PriceData
from corvex.simulation.read.price_tables import market_matrix

__all__ = ["AccountTerms", "read_account"]

_Floats = npt.NDArray[np.float64]
_Events = tuple[npt.NDArray[np.int64], npt.NDArray[np.int64], _Floats]


class AccountTerms(NamedTuple):
    """What the engine reads by these names; tables have one row, or one for each session.

    Attributes
    ----------
    years : float64 array of shape (sessions, 1)
        The part of a year from the close before to each session's.
    cash_rate : float64 array or None
        The spread is taken off.
    min_fee, fee_per_share : float64 array of shape (1, assets) or None
        Where they go by currency; else `fees` has them.
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
    min_fee: _Floats | None
    fee_per_share: _Floats | None
    lot_size: _Floats | None
    round_to_nearest: bool
    dividends: _Events
    splits: _Events
    withholding_tax: _Floats | None
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
    _doubt_capital(account)
    read = _Reader(prices.clock, plan)
    currencies = read_currencies(account, prices.clock, plan)
    limit = _limit(account, prices)
    wants_volume = account.volume_share is not None or account.impact > 0.0
    return AccountTerms(
        capital=float(account.capital),
        years=_years(prices.clock, DAY_COUNTS[account.day_count]),
        cash_rate=_after_spread(
            read.cash_rate("cash_rate", account.cash_rate),
            read.cash_rate("cash_spread", account.cash_spread, least=0.0),
        ),
        financing_rate=read.cash_rate("financing_rate", account.financing_rate),
        short_rebate=read.rate("short_rebate", account.short_rebate),
        borrow_rate=read.borrow_rate(account.borrow_rate),
        fee_ratio=read.ratio("fee_ratio", account.fee_ratio),
        tax_ratio=read.ratio("tax_ratio", account.tax_ratio),
        slippage_ratio=read.ratio("slippage_ratio", account.slippage_ratio),
        fees=account.fees,
        min_fee=_by_currency("min_fee", account.min_fee, currencies, plan),
        fee_per_share=_by_currency("fee_per_share", account.fee_per_share, currencies, plan),
        lot_size=read.lot_size(account.lot_size),
        round_to_nearest=account.rounding == "nearest",
        dividends=read.events("dividends", account.dividends),
        splits=read.events("splits", account.splits),
        withholding_tax=read.part("withholding_tax", account.withholding_tax),
        band=read.band(account.band),
        band_relative=account.band_kind == "relative",
        band_to_edge=account.band_to == "edge",
        volume=market_matrix(prices.market, "volume", prices.clock, plan.labels)
        if wants_volume
        else None,
        volume_share=float(account.volume_share or 0.0),
        unfilled_lapses=account.unfilled == "lapse",
        impact=float(account.impact),
        impact_window=int(account.impact_window),
        price_limit=read.price_limit(limit),
        price_ticks=() if limit is None else _ticks(account, prices),
        opens=None
        if limit is None
        else market_matrix(prices.market, "open", prices.clock, plan.labels, required=False),
        maintenance_margin=float(account.maintenance_margin or 0.0),
        flows=read.flows(account.flows),
        currencies=currencies,
    )


def _by_currency(
    name: str, given: Any, currencies: Currencies | None, plan: Plan
) -> _Floats | None:
    """Bring a number for each currency to the assets; None where it is one for all."""
    if not isinstance(given, Mapping) or currencies is None:
        return None
    codes = np.unique(currencies.of_asset[plan.held])
    found = np.zeros(len(currencies.names))
    for code in codes.tolist():
        found[code] = in_currency(name, given, currencies.names[code])
    return np.ascontiguousarray(found[currencies.of_asset].reshape(1, -1))


class _Reader(ValueReader):
    """Reads values, and what happens on dates, on the sessions of a clock and a plan's assets."""

    def __init__(self, clock: Clock, plan: Plan) -> None:
        super().__init__(clock, plan.labels, plan.held, plan.first_session)

    def events(self, name: str, table: Any) -> _Events:
        """Read what happens to assets on dates; those without a session move to the next one."""
        nothing = np.empty(0, np.int64), np.empty(0, np.int64), np.empty(0)
        if table is None or table.size == 0:
            return nothing
        columns = self.columns(name, table.columns)
        values = self.of_assets(as_floats(name, table), columns)
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
        running = (sessions > self._first) & (sessions < len(self._clock))
        if (late := moved & running).any():
            self._tell_moved(name, dates[rows[late]])
        # Splits of before the run stand in the prices of its windows.
        early = (sessions > 0) & (sessions <= self._first) & (name == "splits")
        inside = running | early
        sessions, assets, amounts = sessions[inside], assets[inside], amounts[inside]
        if (np.diff(sessions) < 0).any():
            order = np.argsort(sessions, kind="stable")
            sessions, assets, amounts = sessions[order], assets[order], amounts[order]
        return sessions, assets.astype(np.int64), amounts

    def flows(self, given: Any) -> list[tuple[int, float]]:
        if given is None or len(given) == 0:
            return []
        amounts = as_floats("flows", given)
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


def _years(clock: Clock, days_of_year: float) -> _Floats:
    days = clock.days // 86_400_000_000_000
    return np.diff(days, prepend=days[0]).reshape(-1, 1) / days_of_year


def _after_spread(rate: _Floats | None, spread: _Floats | None) -> _Floats | None:
    """Take the broker's spread off; a rate above zero does not become one below it."""
    if rate is None or spread is None:
        return rate
    return np.maximum(rate - spread, np.minimum(rate, 0.0))


def _limit(account: Account, prices: PriceData) -> Any:
    """Return the price limit, of the market where that is meant; None for none."""
    if not isinstance(account.price_limit, bool):
        return account.price_limit
    if account.price_limit and prices.market.price_limit is None:
        raise ValueError(
            f"the market {prices.market.get_name()!r} knows no price limit; give it: "
            "price_limit=0.1"
        )
    return prices.market.price_limit if account.price_limit else None


def _ticks(account: Account, prices: PriceData) -> tuple[tuple[float, float], ...]:
    """Return the ticks that price limits are moved to."""
    if account.ticks == ():
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


def _doubt_capital(account: Account) -> None:
    """Warn where terms count in money or shares, and the capital is the 1 of one who gave none."""
    if account.capital != 1.0:
        return
    names = ("lot_size", "min_fee", "fee_per_share", "fee_table", "volume_share", "impact", "flows")
    given = {name: getattr(account, name) for name in names}
    of_money = [
        name
        for name, value in given.items()
        if value is not None and not (isinstance(value, numbers.Real) and value == 0.0)
    ]
    if of_money:
        warn(
            f"the capital is 1, while {', '.join(of_money)} count in money or shares; give what "
            "there is at the start: capital=..."
        )


def _refuse_adjusted(account: Account, prices: PriceData) -> None:
    if account.dividends is None and account.splits is None:
        return
    if _is_adjusted(prices):
        raise ValueError(
            "dividends and splits go with quoted prices, and these are adjusted ones: they would "
            "count twice; hand over quoted prices alone, without 'adj_close'"
        )
