"""What a market answers about its tables: prices, benchmark, market values and the like."""

from __future__ import annotations

import abc
from collections.abc import Iterable
from typing import override

import pandas as pd

from corvex.markets.bars import is_intraday
from corvex.markets.price_means import empty_table, mean_of_ohlc
from corvex.markets.sessions import MarketSessions
from corvex.tables.named import exists, get_column, get_frame

__all__ = ["MarketTables"]


class MarketTables(MarketSessions, abc.ABC):
    """The part of `corvex.market.Market` that deals with tables; the attributes stand there."""

    _freq: str = "D"

    @abc.abstractmethod
    def get_name(self) -> str:
        """Return the market's short name, such as "us_stock"; tables and payloads carry it."""

    def get_freq(self) -> str:
        """Return the bar length of the price tables as a pandas frequency; "D" for daily."""
        return self._freq

    @property
    @override
    def bar_length(self) -> pd.Timedelta | None:
        freq = self.get_freq() or "D"
        if not is_intraday(freq):
            return None
        return pd.Timedelta(pd.tseries.frequencies.to_offset(freq))  # type: ignore[arg-type]

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
        name = f"{self.get_name()}_benchmark"
        column = get_column(name) if exists(name) else None
        if column is None:
            return pd.Series(dtype="float64", index=pd.DatetimeIndex([]))
        return column

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

    def _named_table(self, field: str) -> pd.DataFrame | None:
        name = f"{self.get_name()}_{field}"
        return get_frame(name) if exists(name) else None

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
