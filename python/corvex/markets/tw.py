"""Taiwan stocks."""

from __future__ import annotations

from typing import override

from corvex.markets.base import Market

__all__ = ["TWMarket"]


class TWMarket(Market):
    """Taiwan Stock Exchange: sessions from 09:00 to 13:30 in Taipei.

    Costs are the broker's list commission of 0.1425 % on each side and the transaction tax of
    0.3 % on sales; brokers take 20 dollars at least. A board lot is 1000 shares, and single shares
    trade in the odd-lot book. Prices move by 10 % a session at most, in steps that grow with the
    price. Tables come from the data folder (``tw_stock_close`` and so on).
    """

    fee_ratio = 0.001425
    tax_ratio = 0.003
    min_fee = 20.0
    lot_size = 1000.0
    price_limit = 0.1
    price_ticks = (
        *((0.0, 0.01), (10.0, 0.05), (50.0, 0.1)),
        *((100.0, 0.5), (500.0, 1.0), (1000.0, 5.0)),
    )
    calendar_name = "XTAI"
    timezone = "Asia/Taipei"
    closed_days = ("2024-10-31",)  # a typhoon

    @override
    def get_name(self) -> str:
        return "tw_stock"
