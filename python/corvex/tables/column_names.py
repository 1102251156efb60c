"""What columns of other people's tables are called: dates, assets, fields of prices."""

from __future__ import annotations

__all__ = ["ASSET_NAMES", "DATE_NAMES", "price_field"]

#: In small letters.
DATE_NAMES = (
    "date", "datetime", "time", "timestamp", "day", "日期", "時間", "交易日期", "年月日",
)  # fmt: skip

#: In small letters, "_" between words. Whole numbers below such a name are ids of assets.
ASSET_NAMES = (
    "asset", "asset_id", "symbol", "ticker", "instrument", "security", "security_id", "stock",
    "stock_id", "stock_code", "permno", "sid", "isin", "coin", "pair", "代號", "證券代號",
    "股票代號",
)  # fmt: skip

_FIELDS = ("open", "high", "low", "close", "volume")


def price_field(name: object) -> str | None:
    """Return the field that a column of prices is called after; None for another name.

    "Adj Close", "adj_close" and "adjclose" are one: ``adj_close``.
    """
    plain = str(name).strip().lower().replace(" ", "").replace("_", "").removeprefix("adjusted")
    bare = plain.removeprefix("adj")
    if bare not in _FIELDS:
        return None
    adjusted = bare != plain or "adjusted" in str(name).lower()
    return f"adj_{bare}" if adjusted else bare
