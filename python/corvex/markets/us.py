"""US stocks."""

from __future__ import annotations

from typing import cast, override

import pandas as pd

from corvex.markets.base import Market
from corvex.tables.named import exists, get_column, get_frame

__all__ = ["USMarket"]

_SAMPLE_PRICES = "us_stocks_adjusted_close_daily_1990_2022"
_SAMPLE_INDEX = "sp500_index_close_daily_1990_2022"


class USMarket(Market):
    """US stocks: sessions of the New York Stock Exchange, half days included; no costs.

    Without tables of the user's (``us_stock_close`` and so on in the data folder) the market
    answers from the built-in sample: adjusted closes of 20 stocks, with the S&P 500 index as
    benchmark, 1990 to 2022.
    """

    calendar_name = "XNYS"
    timezone = "America/New_York"

    @override
    def get_name(self) -> str:
        return "us_stock"

    @override
    def get_price(self, name: str, adj: bool = True) -> pd.DataFrame:
        table = super().get_price(name, adj)
        return get_frame(_SAMPLE_PRICES) if name == "close" and len(table) == 0 else table

    @override
    def get_benchmark(self) -> pd.Series:
        own = [exists(f"us_stock_{field}") for field in ("benchmark", "close", "adj_close")]
        if any(own):
            benchmark = super().get_benchmark()
            # Newer prices must not be set against an old index.
            if len(benchmark) or any(own[1:]):
                return benchmark
        return cast("pd.Series", get_column(_SAMPLE_INDEX))
