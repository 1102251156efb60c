"""The terms of an account from a file: TOML or JSON, by the names of `corvex.Account`."""

from __future__ import annotations

import dataclasses
import difflib
import json
import re
import tomllib
from pathlib import Path
from typing import TYPE_CHECKING, Any

import pandas as pd

if TYPE_CHECKING:
    from corvex.accounts import Account

__all__ = ["read_account"]

_MOST_BYTES = 1 << 20
_DATE = re.compile(r"\d{4}-\d{2}-\d{2}([ T].*)?")
#: Terms whose text names a file: of dates x assets, and of dates and one value.
_TABLES = (
    *("dividends", "splits", "borrow_rate", "withholding_tax", "band", "price_limit", "fx"),
    *("fee_ratio", "tax_ratio", "slippage_ratio"),
)
_SERIES = ("cash_rate", "cash_spread", "short_rebate", "financing_rate", "flows")


def read_account(path: Path, max_megabytes: int) -> Account:
    """Read the terms of an account.

    Parameters
    ----------
    path : Path
        ``.json``, else TOML. A term is a number or a text; a table of values by asset, or by date
        where all its names are dates; ``fee_table`` and ``price_ticks`` are by money. A term that
        takes a table may name a file, from the folder of this one.
    max_megabytes : int
        Most content of such a file that is unpacked.

    Raises
    ------
    OSError, ValueError
        When the file cannot be read, names an unknown term, or one that cannot be used.
    """
    from corvex.accounts import Account

    known = [field.name for field in dataclasses.fields(Account)]
    terms = {}
    for name, value in _content(path).items():
        if name not in known:
            near = difflib.get_close_matches(name, known, n=1)
            hint = f"; did you mean {near[0]!r}?" if near else f"; there are {', '.join(known)}"
            raise ValueError(f"{path.name} has an unknown term {name!r}{hint}")
        try:
            terms[name] = _term(name, value, path.parent, max_megabytes)
        except ValueError as error:
            raise ValueError(f"{path.name}: {error}") from None
    try:
        return Account(**terms)
    except (TypeError, ValueError) as error:
        raise ValueError(f"{path.name}: {error}") from None


def _content(path: Path) -> dict[str, Any]:
    if not path.is_file():
        raise FileNotFoundError(f"there is no file {path}")
    if path.stat().st_size > _MOST_BYTES:
        raise ValueError(f"{path.name} is no file of an account's terms: it is larger than 1 MB")
    try:
        text = path.read_text(encoding="utf-8-sig")
        found = json.loads(text) if path.suffix.lower() == ".json" else tomllib.loads(text)
    except ValueError as error:  # also what is no UTF-8
        raise ValueError(f"{path.name} cannot be read: {error}") from None
    if not isinstance(found, dict):
        raise ValueError(f"{path.name} must hold an account's terms by their names")
    return found


def _term(name: str, value: Any, folder: Path, max_megabytes: int) -> Any:
    if isinstance(value, str) and name in (*_TABLES, *_SERIES):
        return _file(name, folder / value, max_megabytes)
    if not isinstance(value, dict) or name == "currency":
        return value
    if name == "fx":  # by pair: a rate, rates by date, or a file of dates and one value
        return {
            pair: _file(f"fx of {pair}", folder / rate, max_megabytes)
            if isinstance(rate, str)
            else _term(f"fx of {pair}", rate, folder, max_megabytes)
            for pair, rate in value.items()
        }
    if name in ("fee_table", "price_ticks"):
        return {_number(name, start): ratio for start, ratio in value.items()}
    dated = bool(value) and all(map(_DATE.fullmatch, value))
    index = pd.DatetimeIndex(list(value)) if dated else pd.Index(list(value))
    try:
        series = pd.Series(list(value.values()), index, dtype="float64")
    except (TypeError, ValueError) as error:
        raise ValueError(f"{name} must hold numbers: {error}") from None
    return series.sort_index() if dated else series


def _file(name: str, path: Path, max_megabytes: int) -> Any:
    from corvex.cli.console import note
    from corvex.cli.readers.wide_file import read_wide

    table, notes = read_wide(path, max_megabytes)
    for message in notes:
        note(message)
    if isinstance(table, dict):
        raise ValueError(f"{path.name} holds several tables; {name} is one")
    if name in _TABLES:
        return table
    if table.shape[1] != 1:
        if name == "short_rebate":  # by asset, too
            return table
        raise ValueError(f"{path.name} holds {table.shape[1]} columns of values; {name} is one")
    return table.iloc[:, 0]


def _number(name: str, text: str) -> float:
    try:
        return float(text.replace(",", "").replace("_", ""))
    except ValueError:
        raise ValueError(f"{name} begins at numbers, and {text!r} is none") from None
