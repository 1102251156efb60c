"""Named tables: a folder of the user's, the built-in samples, and how fresh they are.

``corvex.data.get("tw_stock_close")`` reads ``tw_stock_close.parquet``, ``.csv`` or ``.csv.gz`` from
the folder that the environment variable ``CORVEX_DATA_DIR`` names; a built-in sample answers to its
name unless the folder holds a file of that name. Markets look for ``<market>_<field>`` with the
fields open, high, low, close, volume (``adj_close`` and so on for adjusted prices), benchmark,
market_value, industry, disposal, warning and full_delivery.
"""

from __future__ import annotations

from corvex.data.expiry import (
    is_tradable,
    next_data_expiry,
    next_future_expiry,
    suggested_tradable_time,
)
from corvex.tables.context import now
from corvex.tables.named import (
    UnknownTableError,
    available,
    exists,
    get,
    get_frame,
    require,
    sample,
)

__all__ = [
    "UnknownTableError",
    "available",
    "exists",
    "get",
    "get_frame",
    "is_tradable",
    "next_data_expiry",
    "next_future_expiry",
    "now",
    "require",
    "sample",
    "suggested_tradable_time",
]


def __dir__() -> list[str]:
    return sorted(__all__)
