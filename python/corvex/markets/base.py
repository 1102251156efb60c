"""The base class of markets: prices, benchmark, costs and trading sessions."""

from __future__ import annotations

import copy
import math
from collections.abc import Callable
from typing import TYPE_CHECKING, Self

import pandas as pd

from corvex.markets.market_tables import MarketTables

if TYPE_CHECKING:
    from corvex.markets.bound import Prices

__all__ = ["Market"]


class Market(MarketTables):
    """One market: its name, prices, benchmark, costs and sessions.

    A market of your own is one class with one method, `get_name`; everything else has a default::

        from corvex.market import Market
        from corvex.markets import register_market

        @register_market
        class HongKongMarket(Market):
            calendar_name = "XHKG"        # sessions and holidays: exchange_calendars' name
            fee_ratio = 0.0003            # each side
            tax_ratio = 0.001             # on sales

            def get_name(self):
                return "hk_stock"

    Its tables are then read from the data folder (see `corvex.data`): ``hk_stock_close``,
    ``hk_stock_adj_close``, ``hk_stock_open``, ``hk_stock_benchmark``, ``hk_stock_market_value``,
    ``hk_stock_industry``. Override `get_price` and `get_benchmark` to take them from elsewhere.
    A market needs no arguments, opens nothing before it is asked, and pickles by class and
    attributes.

    Attributes
    ----------
    fee_ratio : float
        Commission on each side, as a fraction of the traded value. Base class: 0.
    tax_ratio : float
        Tax on sales, as a fraction of the traded value. Base class: 0.
    min_fee : float
        Smallest commission of one order, in the market's currency. Base class: 0.
    quantity_step : float
        Smallest quantity, and step of quantities, that can be traded. Base class: 1, whole shares.
    lot_size : float
        Shares of a board lot; what is traded beside whole lots goes to the odd-lot book. Base
        class: 1.
    price_limit : float or None
        How far a session's prices may stand from the close before, as a fraction. Base class:
        None, without limit.
    price_ticks : tuple of (float, float)
        From which price on prices are multiples of which step, ascending from 0. Base class:
        empty, any price.
    calendar_name : str or None
        Name of the exchange's calendar in the `exchange_calendars` package. None: always open,
        each day from midnight to midnight UTC.
    timezone : str or None
        IANA name of the zone in which the market's dates count. None: the calendar's own.
    closed_days : tuple of str
        ISO dates without trading that the calendar package does not record.
    """

    fee_ratio: float = 0.0
    tax_ratio: float = 0.0
    min_fee: float = 0.0
    quantity_step: float = 1.0
    lot_size: float = 1.0
    price_limit: float | None = None
    price_ticks: tuple[tuple[float, float], ...] = ()

    _historical: bool = False

    # ------------------------------------------------------------------ identity

    def with_freq(self, freq: str) -> Self:
        """Return a copy of this market whose `get_freq` answers `freq`, a pandas frequency.

        Raises
        ------
        ValueError
            When there is no such frequency.
        """
        pd.tseries.frequencies.to_offset(freq)
        twin = copy.copy(self)
        twin._freq = freq
        return twin

    @property
    def is_historical(self) -> bool:
        """Whether this is the market of a run that was given an end, so not to be traded on."""
        return self._historical

    def for_history(self) -> Self:
        """Return a copy of this market for a run that was given an end."""
        twin = copy.copy(self)
        twin._historical = True
        return twin

    def __repr__(self) -> str:
        return f"<{type(self).__name__} {self.get_name()!r}>"

    # ------------------------------------------------------------------ order prices

    def tick_size(self, price: float) -> float | None:
        """Return the step of order prices around a price; None where none is known."""
        found = None
        for start, tick in self.price_ticks:
            found = tick if start <= price else found
        return found

    def price_range(self, last_close: float) -> tuple[float, float] | None:
        """Return the lowest and the highest price at which an order may stand.

        Parameters
        ----------
        last_close : float
            The close of the session before, as quoted.

        Returns
        -------
        tuple of float, or None
            `price_limit` below and above that close, each moved inwards to a whole tick; None
            where the market has no limit.
        """
        if self.price_limit is None:
            return None
        return (
            self._on_tick(last_close * (1 - self.price_limit), math.ceil),
            self._on_tick(last_close * (1 + self.price_limit), math.floor),
        )

    def _on_tick(self, price: float, rounded: Callable[[float], int]) -> float:
        tick = self.tick_size(price)
        if tick is None:
            return price
        # Nine digits: 110 is a whole number of ticks although 1.1 * 100 is a little more.
        return round(rounded(round(price / tick, 9)) * tick, 9)

    # ------------------------------------------------------------------ a user's own tables

    def bound_to(
        self, prices: Prices, *, benchmark: pd.Series | str | None = None, freq: str | None = None
    ) -> Self:
        """Return a copy of this market that answers from the given tables.

        Parameters
        ----------
        prices : table, or mapping of name to table
            The closes, or tables of "close" and any of "open", "high", "low", "volume",
            "market_value", each dates x assets. A key "adj_close" (and so on) holds adjusted
            prices beside quoted ones. Tables are kept as they are, not copied.
        benchmark : Series, str or None
            Prices by date, or the name of a table in `corvex.data`. None: this market's own
            benchmark where it reaches the last price date, else no benchmark.
        freq : str, optional
            The bar length as a pandas frequency; from the dates when not given.

        Returns
        -------
        Market
            Of a class derived from this one (`isinstance` holds); costs and calendar unchanged.
            `get_benchmark` answers in the zone of the price dates, or without one, and keeps
            every value on its session's date.

        Raises
        ------
        ValueError
            When there is no close table, a table is empty or a table's index is not dates.
        """
        from corvex.markets.bound import bind  # most reports are only read

        return bind(self, prices, benchmark=benchmark, freq=freq)
