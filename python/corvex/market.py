"""The base class of markets: prices, benchmark, costs and trading sessions."""

from __future__ import annotations

import abc
import copy
import math
from collections.abc import Callable, Iterable
from typing import TYPE_CHECKING, Self, override

import pandas as pd

from corvex import data
from corvex.markets.bars import is_intraday
from corvex.markets.sessions import MarketSessions
from corvex.markets.tables import empty_table, mean_of_ohlc

if TYPE_CHECKING:
    from corvex.markets.bound import Prices

__all__ = ["Market"]


class Market(MarketSessions, abc.ABC):
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

    _freq: str = "D"
    _historical: bool = False

    # ------------------------------------------------------------------ identity

    @abc.abstractmethod
    def get_name(self) -> str:
        """Return the market's short name, such as "us_stock"; tables and payloads carry it."""

    def get_freq(self) -> str:
        """Return the bar length of the price tables as a pandas frequency; "D" for daily."""
        return self._freq

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
    @override
    def bar_length(self) -> pd.Timedelta | None:
        freq = self.get_freq() or "D"
        if not is_intraday(freq):
            return None
        return pd.Timedelta(pd.tseries.frequencies.to_offset(freq))  # type: ignore[arg-type]

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

    # ------------------------------------------------------------------ tables

    def get_price(self, name: str, adj: bool = True) -> pd.DataFrame:
        """Return a price table.

        Parameters
        ----------
        name : {"open", "high", "low", "close", "volume"}
            The field.
        adj : bool, default True
            Adjusted for splits and dividends, or as quoted; where the market has only one of
            the two, that one.

        Returns
        -------
        DataFrame
            Float, dates x asset ids, dates rising. Empty where the market has no such table.
        """
        order = (f"adj_{name}", name) if adj else (name, f"adj_{name}")
        for field in order:
            table = self._named_table(field)
            if table is not None:
                return table
        return empty_table()

    def get_trading_price(self, trade_at: str | pd.DataFrame, adj: bool = True) -> pd.DataFrame:
        """Return the prices at which orders fill.

        Parameters
        ----------
        trade_at : {"open", "close", "high", "low", "ohlc"} or DataFrame
            A field, the mean of open, high, low and close, or a price table of one's own, which
            is returned as it is.
        adj : bool, default True
            As for `get_price`.

        Returns
        -------
        DataFrame
            Float, dates x asset ids.

        Raises
        ------
        ValueError
            When `trade_at` is none of these.
        """
        if isinstance(trade_at, pd.DataFrame):
            return trade_at
        if trade_at == "ohlc":
            fields = ("open", "high", "low", "close")
            tables = {field: self.get_price(field, adj) for field in fields}
            if any(len(table) == 0 for table in tables.values()):
                return empty_table()
            return mean_of_ohlc(tables)
        if trade_at in ("open", "close", "high", "low"):
            return self.get_price(trade_at, adj)
        raise ValueError(
            "trade_at must be 'open', 'close', 'high', 'low', 'ohlc' or a price table, "
            f"got {trade_at!r}"
        )

    def get_benchmark(self) -> pd.Series:
        """Return the benchmark's prices by date; an empty Series where there is none."""
        table = self._named_table("benchmark")
        if table is None or table.shape[1] == 0:
            return pd.Series(dtype="float64", index=pd.DatetimeIndex([]))
        return table.iloc[:, 0]

    def get_market_value(self) -> pd.DataFrame:
        """Return market values, dates x asset ids, in the market's currency; maybe empty."""
        table = self._named_table("market_value")
        return empty_table() if table is None else table

    def get_industry(self) -> dict[str, str]:
        """Return the industry of each asset id; an empty mapping where it is not known.

        The table ``<market>_industry`` has asset ids as index and industries in its first column.
        """
        table = self._named_table("industry")
        if table is None or table.shape[1] == 0:
            return {}
        column = table.iloc[:, 0].dropna()
        return {str(asset): str(industry) for asset, industry in column.items()}

    def get_status(self, kind: str) -> pd.DataFrame:
        """Return on which dates an asset was under a trading restriction.

        Parameters
        ----------
        kind : {"disposal", "warning", "full_delivery"}
            The restriction.

        Returns
        -------
        DataFrame
            Boolean, dates x asset ids, from the table ``<market>_<kind>``; empty where there is
            none.
        """
        table = self._named_table(kind)
        return empty_table() if table is None else table.fillna(0).astype(bool)

    # ------------------------------------------------------------------ order prices

    def tick_size(self, price: float) -> float | None:
        """Return the step of order prices around a price; None where none is known."""
        del price
        return None

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

    # ------------------------------------------------------------------ tables by name

    def _named_table(self, field: str) -> pd.DataFrame | None:
        name = f"{self.get_name()}_{field}"
        return data.get_frame(name) if data.exists(name) else None

    # ------------------------------------------------------------------ a user's own tables

    def bound_to(
        self, prices: Prices, *, benchmark: pd.Series | str | None = None, freq: str | None = None
    ) -> Self:
        """Return a copy of this market that answers from the given tables.

        Parameters
        ----------
        prices : DataFrame, or mapping of name to DataFrame
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
        from corvex.markets.bound import bind

        return bind(self, prices, benchmark=benchmark, freq=freq)

    def restrict_pickle_to(self, assets: Iterable[object]) -> None:
        """Name the assets whose prices a pickle of this market keeps.

        Only a market bound to tables has prices to keep; any other takes no notice. Without a
        call a pickle keeps the dates of the tables and no prices.

        Parameters
        ----------
        assets : iterable of labels
            Asset labels or ids; a label "2330 some name" also names the column "2330".
        """
        del assets  # nothing to restrict here
