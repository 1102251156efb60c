"""Crypto currencies."""

from __future__ import annotations

from typing import override

from corvex.markets.base import Market

__all__ = ["CryptoMarket"]


class CryptoMarket(Market):
    """Crypto currencies quoted in USDT: always open, days end at midnight UTC.

    The commission is 0.1 % on each side, the usual list rate of spot exchanges, and quantities
    have eight decimals. Tables come from the data folder (``crypto_close`` and so on).
    """

    fee_ratio = 0.001
    quantity_step = lot_size = 1e-8
    timezone = "UTC"

    @override
    def get_name(self) -> str:
        return "crypto"
