"""Pairs of currencies: how they are written, and the way from one currency to another."""

from __future__ import annotations

import re
from collections.abc import Iterable
from typing import Any

import pandas as pd

__all__ = ["Leg", "currency_code", "pairs_of", "way_between"]

#: A pair that is to be multiplied by, or divided by where the second is True.
type Leg = tuple[tuple[str, str], bool]


def currency_code(value: Any, what: str) -> str:
    """Return a currency's code in capitals.

    Raises
    ------
    ValueError
        When it is no text of letters and digits.
    """
    code = value.strip().upper() if isinstance(value, str) else ""
    if not code.isalnum():
        raise ValueError(f"{what} must be the code of a currency such as 'USD', got {value!r}")
    return code


def pairs_of(fx: Any, known: Iterable[str], base: str) -> dict[tuple[str, str], pd.Series | float]:
    """Read the pairs of exchange rates by their names; what is named otherwise is left out.

    "USDTWD", "USD/TWD" and the like are the price of one USD in TWD; a currency alone is its price
    in the base.

    Parameters
    ----------
    fx : DataFrame, Series or mapping
        Columns, name or keys are the pairs; values of a mapping are Series or numbers.
    known : iterable of str
        Codes of currencies, by which pairs are told that are not twice three letters.
    base : str
        The currency of the account.

    Raises
    ------
    ValueError
        When a pair is there twice.
    """
    given: Iterable[tuple[Any, Any]]
    if isinstance(fx, pd.Series):
        given = [(fx.name, fx)]
    elif isinstance(fx, pd.DataFrame):
        given = [(name, fx.iloc[:, at]) for at, name in enumerate(fx.columns)]
    else:
        given = fx.items()
    codes = {*known, base}
    found: dict[tuple[str, str], pd.Series | float] = {}
    for name, values in given:
        pair = _pair(name, codes, base)
        if pair is None or pair[0] == pair[1]:
            continue
        if pair in found:
            raise ValueError(f"fx has the pair {''.join(pair)} twice")
        found[pair] = values
    return found


def _pair(name: Any, codes: set[str], base: str) -> tuple[str, str] | None:
    text = str(name).strip().upper()
    parts = re.split(r"[^A-Z0-9]+", text)
    if len(parts) == 2 and all(parts):
        return parts[0], parts[1]
    if text in codes:
        return text, base
    for at in range(1, len(text)):
        if text[:at] in codes and text[at:] in codes:
            return text[:at], text[at:]
    return (text[:3], text[3:]) if re.fullmatch("[A-Z]{6}", text) else None


def way_between(
    currency: str, base: str, pairs: Iterable[tuple[str, str]]
) -> tuple[Leg, ...] | None:
    """Return the pairs that lead from a currency to the base: one, or two over a third currency.

    A pair that has the base's price itself goes before the inverse one, and both before a way
    over a third currency, of which the first in the order of `pairs` counts. None without a way.
    """
    there = list(pairs)

    def step(start: str, end: str) -> Leg | None:
        if (start, end) in there:
            return (start, end), False
        return ((end, start), True) if (end, start) in there else None

    if direct := step(currency, base):
        return (direct,)
    for middle in dict.fromkeys(code for pair in there for code in pair):
        first, second = step(currency, middle), step(middle, base)
        if first and second:
            return first, second
    return None
