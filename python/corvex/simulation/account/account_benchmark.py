"""The benchmark of a run whose account is kept in another currency than the benchmark's."""

from __future__ import annotations

from typing import cast

import numpy as np
import pandas as pd

from corvex.accounts.account import Account
from corvex.accounts.exchange import currency_code
from corvex.market import Market
from corvex.markets.bound import BoundMarket
from corvex.simulation.account.account_currencies import Currencies, rates_on
from corvex.simulation.notices import warn
from corvex.simulation.read.clock import Clock
from corvex.simulation.read.market_choice import bound_alone

__all__ = ["market_in_base"]

_TWO_DAYS = 2 * 86_400_000_000_000


def market_in_base(
    market: Market, account: Account, currencies: Currencies, clock: Clock, first: int
) -> Market:
    """Return the market with its benchmark in the currency of the account.

    Where nobody said what the benchmark is quoted in it stays as it is. A user's own Series is
    taken to be in the account's currency already; of another benchmark that is a guess, and told.
    The benchmark of a report's market may have been brought to a currency: it is in that one.

    Parameters
    ----------
    first : int
        The first session of the run; earlier values of the benchmark need no rate.

    Raises
    ------
    ValueError
        When a rate is missing that the benchmark needs; the message names pair and date.
    """
    base = currencies.names[0]
    brought_to = market.benchmark_currency if isinstance(market, BoundMarket) else None
    quoted = account.benchmark_currency if brought_to is None else brought_to
    if quoted is None:
        if len(currencies.names) > 1:
            _tell_of_guess(market, base)
        return market
    code = currency_code(quoted, "benchmark_currency")
    if code == base:
        return market

    def convert(benchmark: pd.Series) -> pd.Series:
        dates = pd.DatetimeIndex(benchmark.index)
        keys = clock.place(dates).keys
        start = int(np.searchsorted(keys, clock.keys[first], side="left"))
        # One value of before the run serves its first session where that one has none; a day's
        # value is known when the day is over, in some zones later than the last bar.
        end = int(np.searchsorted(keys, clock.keys[-1] + _TWO_DAYS, side="right"))
        rows = slice(max(start - 1, 0), end)
        within = benchmark.iloc[rows]
        rates = rates_on(
            dates[rows],
            account,
            code,
            clock,
            "the benchmark",
            start - rows.start,
            tells=code not in currencies.names,
        )
        return (within.astype("float64") * rates).dropna()

    if isinstance(market, BoundMarket):
        return cast("Market", market.with_benchmark(convert, base))
    own = market.get_benchmark()  # one that ends before the prices counts, as it does unconverted
    if not len(own):
        return market
    bound = cast("BoundMarket", bound_alone(market, own))
    return cast("Market", bound.with_benchmark(convert, base, "default"))


def _tell_of_guess(market: Market, base: str) -> None:
    source = getattr(market, "benchmark_source", "default")
    if source == "given":
        return
    benchmark = market.get_benchmark()
    if not len(benchmark):
        return
    name = f"the benchmark {benchmark.name!r}" if benchmark.name else "the benchmark"
    warn(
        f"{name} is compared as it is quoted, while the account is kept in {base}; say what it is "
        f"quoted in, such as Account(benchmark_currency='USD'), which brings it to {base} by fx, "
        f"or benchmark_currency={base!r}, which leaves it alone"
    )
