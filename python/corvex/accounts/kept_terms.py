"""An account's terms as plain values, as reports keep them."""

from __future__ import annotations

import math
import numbers
from collections.abc import Mapping
from dataclasses import fields
from typing import Any

import pandas as pd

__all__ = ["kept_terms"]


def kept_terms(account: Any) -> dict[str, Any]:
    """Return the capital of an `Account` and each term that is not at its default, as plain values.

    A Series by asset label is a dictionary; what goes by date is told as "by date", a table as
    "a table"; exchange rates are a dictionary by pair. Of cost ratios by date "latest" has the
    last ones, which orders to come pay.
    """
    found = {}
    for field in fields(account):
        value = getattr(account, field.name)
        is_table = isinstance(value, pd.DataFrame | pd.Series)
        if field.name == "capital" or is_table or value != field.default:
            found[field.name] = _plain(value)
    ratios = {name: getattr(account, name) for name in ("fee_ratio", "tax_ratio")}
    if latest := {
        name: _latest(ratio)
        for name, ratio in ratios.items()
        if found.get(name) in ("by date", "a table") and not ratio.empty
    }:
        found["latest"] = latest
    if isinstance(account.fx, pd.Series):
        found["fx"] = {str(account.fx.name): "by date"}  # also where its dates are texts
    elif isinstance(account.fx, pd.DataFrame):
        found["fx"] = dict.fromkeys(map(str, account.fx.columns), "by date")
    elif isinstance(account.fx, Mapping):
        found["fx"] = {
            str(pair): "by date" if isinstance(rates, pd.Series) else _plain(rates)
            for pair, rates in account.fx.items()
        }
    return found


def _plain(value: Any) -> Any:
    if isinstance(value, pd.DataFrame):
        return "a table"
    if isinstance(value, pd.Series):
        return _plain_series(value)
    if isinstance(value, Mapping):
        return {_plain(key): _plain(one) for key, one in value.items()}
    if isinstance(value, numbers.Integral) and not isinstance(value, bool):
        return int(value)
    is_number = isinstance(value, numbers.Real) and not isinstance(value, bool)
    return float(value) if is_number else value


def _latest(values: pd.Series | pd.DataFrame) -> Any:
    """Return the last values by date: a number, or a dictionary by label of those there are."""
    last = values.sort_index().ffill().iloc[-1]
    return _plain_series(last.dropna()) if isinstance(last, pd.Series) else float(last)


def _plain_series(values: pd.Series) -> Any:
    if isinstance(values.index, pd.DatetimeIndex | pd.PeriodIndex):
        return "by date"
    if pd.api.types.is_numeric_dtype(values.dtype):  # there may be thousands
        numbers_of = values.to_numpy(dtype="float64", na_value=math.nan)
        return dict(zip(map(str, values.index.tolist()), numbers_of.tolist(), strict=True))
    return {str(label): _plain(one) for label, one in values.items()}
