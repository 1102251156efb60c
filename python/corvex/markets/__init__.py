"""The built-in markets, by class and by name."""

from __future__ import annotations

import importlib
import re
from collections.abc import Callable, Iterable
from typing import TYPE_CHECKING, Any

from corvex.tables.asset_labels import asset_id

if TYPE_CHECKING:
    from corvex.markets.base import Market
    from corvex.markets.crypto import CryptoMarket
    from corvex.markets.tw import TWMarket
    from corvex.markets.us import USMarket

__all__ = [
    "CryptoMarket",
    "TWMarket",
    "USMarket",
    "get_market_by_name",
    "infer_market_name",
    "market_names",
    "register_market",
]


def __dir__() -> list[str]:
    return sorted(__all__)


# Loaded on first use: the classes import files of this package.
_LAZY = {
    "CryptoMarket": "corvex.markets.crypto",
    "TWMarket": "corvex.markets.tw",
    "USMarket": "corvex.markets.us",
}
_BUILT_IN = {"tw_stock": "TWMarket", "us_stock": "USMarket", "crypto": "CryptoMarket"}
_registered: dict[str, Callable[[], Market]] = {}

_TW_ID = re.compile(r"\d{4,6}[A-Za-z]?")


def market_names() -> list[str]:
    """Return the names that `get_market_by_name` accepts."""
    return [*_BUILT_IN, *(name for name in _registered if name not in _BUILT_IN)]


def get_market_by_name(name: str) -> Market:
    """Return a market by its name.

    Parameters
    ----------
    name : {"tw_stock", "us_stock", "crypto"} or the name of a registered market
        As `Market.get_name` gives it.

    Raises
    ------
    ValueError
        When there is no market of that name.
    """
    if isinstance(name, str) and name in _registered:
        return _registered[name]()
    if isinstance(name, str) and name in _BUILT_IN:
        market: Market = __getattr__(_BUILT_IN[name])()
        return market
    import difflib

    near = difflib.get_close_matches(str(name), market_names(), n=1)
    hint = f" (did you mean {near[0]!r}?)" if near else ""
    accepted = ", ".join(map(repr, market_names()))
    raise ValueError(f"no market named {name!r}{hint}; accepted: {accepted}")


def register_market[M: type[Market]](market_class: M) -> M:
    """Make a market of one's own known by its name; usable as a class decorator.

    Parameters
    ----------
    market_class : subclass of Market
        It must be possible to make one without arguments.
    """
    _registered[market_class().get_name()] = market_class
    return market_class


def infer_market_name(labels: Iterable[object]) -> str:
    """Tell the market that asset labels belong to.

    Parameters
    ----------
    labels : iterable of labels
        The id is the text before the first blank.

    Returns
    -------
    str
        "crypto" when any label holds "USDT", "tw_stock" when every id is four to six digits,
        perhaps with a letter behind, else "us_stock" (also when there are no labels).
    """
    texts = [str(label) for label in labels]
    if any("USDT" in text for text in texts):
        return "crypto"
    if texts and all(_TW_ID.fullmatch(asset_id(text)) for text in texts):
        return "tw_stock"
    return "us_stock"


def __getattr__(name: str) -> Any:
    if name in _LAZY:
        return getattr(importlib.import_module(_LAZY[name]), name)
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
