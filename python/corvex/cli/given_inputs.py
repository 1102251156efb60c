"""What a command is given to simulate on: prices and benchmarks, by file or by name."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path
from typing import TYPE_CHECKING, Any

from corvex.cli.console import note
from corvex.cli.saved import title_of

if TYPE_CHECKING:
    import pandas as pd

    from corvex.accounts import Account
    from corvex.cli.readers.curve_file import CurveFile

__all__ = [
    "account_of",
    "benchmark_of",
    "by_name",
    "prices_of",
    "split_prices",
    "weights_of",
]

#: What the tables of prices are called that `corvex.simulate` takes.
_FIELDS = ("open", "high", "low", "close", "volume")
_NAMES = (*_FIELDS, *(f"adj_{name}" for name in _FIELDS))


def account_of(file: str | Path, max_megabytes: int) -> Account:
    """Read the terms of an account."""
    from corvex.cli.readers.account_file import read_account

    return read_account(Path(file), max_megabytes)


def by_name[T](places: list[Any], read: Callable[[str], T]) -> dict[str, T | None]:
    """Read several files or tables, by the files' names without endings.

    None among the places is none, "none".
    """
    found: dict[str, T | None] = {}
    for place in places:
        name = "none" if place is None else title_of(Path(place))
        if name in found:
            raise ValueError(f"there are two called {name!r}; give their files other names")
        found[name] = None if place is None else read(place)
    return found


def weights_of(file: Path, max_megabytes: int) -> pd.DataFrame:
    """Read a table of weights or signals, and tell what was decided on the way."""
    from corvex.cli.readers.wide_file import read_wide

    table, notes = read_wide(file, max_megabytes)
    for message in notes:
        note(message)
    if isinstance(table, dict):
        raise ValueError(f"{file.name} holds several tables; weights are one")
    return table


def prices_of(given: list[str], max_megabytes: int) -> pd.DataFrame | dict[str, pd.DataFrame]:
    """Read prices: one table of closes, or several by name.

    Parameters
    ----------
    given : list of str
        One file, or a name that `corvex.data` knows; or several of ``close=FILE``, ``open=FILE``.
    max_megabytes : int
        Most content of a file that is unpacked.

    Raises
    ------
    OSError, ValueError
        When one cannot be read, or a table is there twice.
    """
    tables: dict[str, pd.DataFrame] = {}
    for one in given:
        name, place = split_prices(one)
        if name in tables:
            raise ValueError(f"there are two tables of {name!r} prices; give each once")
        found = _prices(place, max_megabytes)
        if isinstance(found, dict):
            if len(given) > 1:
                raise ValueError(f"{place} holds {', '.join(found)} prices already; give it alone")
            return found
        tables[name] = found
    return tables["close"] if list(tables) == ["close"] else tables


def split_prices(given: str) -> tuple[str, str]:
    """Return which prices a text gives, ``close=FILE``, and their place."""
    name, mark, place = given.partition("=")
    return (name, place) if mark and name in _NAMES else ("close", given)


def _prices(place: str, max_megabytes: int) -> pd.DataFrame | dict[str, pd.DataFrame]:
    if Path(place).exists():
        from corvex.cli.readers.wide_file import read_wide

        table, notes = read_wide(Path(place), max_megabytes, prices=True)
        for message in notes:
            note(message)
        return table
    from corvex import data

    if not data.exists(place):
        raise ValueError(
            f"the prices {place!r} are no file and no known table; known are "
            + ", ".join(data.available())
        )
    return data.get_frame(place)


def benchmark_of(
    name: str,
    max_megabytes: int,
    *,
    beside: CurveFile | None = None,
    wants_returns: bool = False,
) -> pd.Series | str:
    """Return a benchmark, or the name of a table that `corvex.data` knows.

    Parameters
    ----------
    name : str
        Another column of `beside`, another file, or a table.
    max_megabytes : int
        Most content of a file that is unpacked.
    beside : CurveFile, optional
        The file of the curve that it is set beside.
    wants_returns : bool, default False
        In the form of returns, not of prices.

    Raises
    ------
    OSError, ValueError
        When there is none of that name, or it cannot be read.
    """
    from corvex.cli.readers.curve_file import read_table

    if beside is not None and beside.has_column(name):
        source, column = beside, beside.column(name)
    elif Path(name).exists():
        source = read_table(Path(name), max_megabytes)
        column = source.column(None)
    else:
        return _known_table(beside, name)
    values = source.values(column)
    if source is not beside:
        for message in source.notes:
            note(message)
    values = values[~values.index.duplicated(keep="last")].sort_index().dropna()
    are_returns = source.looks_like_returns(column, values)
    if are_returns == wants_returns:
        return values
    return values.pct_change() if wants_returns else (1 + values).cumprod()


def _known_table(beside: CurveFile | None, name: str) -> str:
    from corvex import data

    if not data.exists(name):
        column = "" if beside is None else f"no column of {beside.path.name}, "
        raise ValueError(
            f"the benchmark {name!r} is {column}no file and no known table; known are "
            + ", ".join(data.available())
        )
    return name
