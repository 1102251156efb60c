"""Taiwan stocks."""

from __future__ import annotations

from typing import override

from corvex.market import Market

__all__ = ["TWMarket"]


class TWMarket(Market):
    """Taiwan Stock Exchange: sessions from 09:00 to 13:30 in Taipei.

    Costs are the broker's list commission of 0.1425 % on each side and the transaction tax of
    0.3 % on sales. Tables come from the data folder (``tw_stock_close`` and so on).
    """

    fee_ratio = 0.001425
    tax_ratio = 0.003
    calendar_name = "XTAI"
    timezone = "Asia/Taipei"
    closed_days = ("2024-10-31",)  # a typhoon

    @override
    def get_name(self) -> str:
        return "tw_stock"
