"""Tables whose dates stand in a column: a column for each asset, or rows of date, asset, value."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any, Literal

import numpy as np
import pandas as pd

from corvex.tables.column_names import ASSET_NAMES, DATE_NAMES, price_field
from corvex.tables.telling import date_text, warn

__all__ = ["arranged", "arranged_prices", "is_long", "usual_unit"]

type Kind = Literal["date", "text", "number", "other"]

_INDEX_NAMES = (*DATE_NAMES, "index", "__index_level_0__", "unnamed: 0", "")
_KINDS: dict[str, Kind] = {
    "date": "date", "datetime": "date", "datetime64": "date", "string": "text",
    "floating": "number", "integer": "number", "mixed-integer-float": "number",
    "decimal": "number", "boolean": "number", "empty": "number",
}  # fmt: skip
_MOST_NAMED = 8
_MOST_FIELDS = 16  # of rows of date and asset; more columns are assets
_ACCEPTED = "dates stand in the index, in one column of a date type, or in one called 'date'"


class _Layout:
    """Where things stand in a table, by position of the column; no `asset` in a wide one."""

    __slots__ = ("asset", "date", "values")

    def __init__(self, date: int, asset: int | None, values: list[int]) -> None:
        self.date = date
        self.asset = asset
        self.values = values


def is_long(table: pd.DataFrame) -> bool:
    """Whether a table with dates as its index names assets in a column of texts.

    On dates that do not repeat it may be one asset, or texts that are numbers.
    """
    if table.index.is_unique and table.shape[1] > _MOST_FIELDS:
        return False
    if all(isinstance(dtype, np.dtype) and dtype.kind in "fiub" for dtype in table.dtypes):
        return False  # soon told, as it is the usual case
    kinds = _kinds(table)
    texts = [at for at, kind in enumerate(kinds) if kind == "text"]
    if not table.index.is_unique or not texts:
        return bool(texts)
    alone = len(texts) == 1 and "number" in kinds
    return alone and (_names_assets(table, texts[0]) or table.iloc[:, texts[0]].nunique() == 1)


def arranged(table: pd.DataFrame, what: str, *, required: bool = True) -> pd.DataFrame | None:
    """Put a table whose dates stand in a column on these dates; long form becomes dates x assets.

    Parameters
    ----------
    table : DataFrame
        Its index does not count.
    what : str
        What messages call it.
    required : bool, default True
        False: None is returned where no column holds dates.

    Returns
    -------
    DataFrame or None
        Dates x assets. Of long form dates and assets are sorted, and pairs that it does not have
        are missing (False among True and False).

    Raises
    ------
    ValueError
        When several columns may be the dates, the assets or the values, or a pair of date and
        asset occurs twice; the message names them.
    """
    layout = _layout(table, what, required=required)
    if layout is None or layout.asset is None:
        return None if layout is None else _wide(table, layout)
    if len(layout.values) != 1:
        raise ValueError(_many_values(table, layout, what))
    pivot = _Pivot(table, layout, what)
    _tell(table, layout, what)
    return pivot.of(layout.values[0])


def arranged_prices(
    table: pd.DataFrame, what: str, *, required: bool = True
) -> pd.DataFrame | dict[str, pd.DataFrame] | None:
    """Do as `arranged`; rows of date, asset, open, close and the like become a table a field."""
    layout = _layout(table, what, required=required)
    if layout is None or layout.asset is None:
        return None if layout is None else _wide(table, layout)
    fields = [price_field(table.columns[at]) for at in layout.values]
    if len(fields) > 1 and (None in fields or len(set(fields)) < len(fields)):
        raise ValueError(_many_values(table, layout, what))
    pivot = _Pivot(table, layout, what)
    _tell(table, layout, what)
    if len(fields) == 1:
        return pivot.of(layout.values[0])
    return {str(field): pivot.of(at) for field, at in zip(fields, layout.values, strict=True)}


def usual_unit(index: pd.Index) -> pd.Index:
    """Return dates in the unit that pandas makes them in, where they are coarser."""
    if not isinstance(index, pd.DatetimeIndex) or index.unit not in ("s", "ms"):
        return index
    try:
        return index.as_unit(pd.DatetimeIndex(["2000-01-01"]).unit)
    except pd.errors.OutOfBoundsDatetime:  # told with the name of the table by whoever reads it
        return index


# -- what stands where ---------------------------------------------------------------------------


def _layout(table: pd.DataFrame, what: str, *, required: bool) -> _Layout | None:
    kinds = _kinds(table)
    date = _date_column(table, kinds, what, required=required)
    if date is None:
        return None
    rest = [at for at in range(len(kinds)) if at != date and not _numbers_rows(table, at)]
    for at in rest:
        if kinds[at] == "other":
            raise ValueError(
                f"{what} has the column {table.columns[at]!r} of {table.dtypes.iloc[at]} values; "
                "numbers, True and False, and texts that name assets are accepted"
            )
    asset = _asset_column(table, kinds, rest, date, what)
    values = [at for at in rest if at != asset]
    if not values:
        raise ValueError(f"{what} has no column of values beside {_named(table, [date, *rest])}")
    return _Layout(date, asset, values)


def _kinds(table: pd.DataFrame) -> list[Kind]:
    return [_kind(table, at, dtype) for at, dtype in enumerate(table.dtypes)]


def _kind(table: pd.DataFrame, at: int, dtype: Any) -> Kind:
    if isinstance(dtype, np.dtype) and dtype.kind in "fiub":
        return "number"
    if pd.api.types.is_datetime64_any_dtype(dtype):
        return "date"
    if isinstance(dtype, pd.CategoricalDtype):
        return _KINDS.get(pd.api.types.infer_dtype(dtype.categories, skipna=True), "other")
    if pd.api.types.is_bool_dtype(dtype) or pd.api.types.is_numeric_dtype(dtype):
        return "number"
    return _KINDS.get(pd.api.types.infer_dtype(table.iloc[:, at], skipna=True), "other")


def _date_column(
    table: pd.DataFrame, kinds: list[Kind], what: str, *, required: bool
) -> int | None:
    found = [at for at, kind in enumerate(kinds) if kind == "date"]
    if not found:
        named = [at for at, name in enumerate(table.columns) if _plain(name) in _INDEX_NAMES]
        found = [at for at in named if kinds[at] == "text" or _is_whole(table, at)]
    if len(found) > 1:
        raise ValueError(
            f"{what} has {len(found)} columns that may be its dates: {_named(table, found)}; "
            "keep one of them"
        )
    if not found and required:
        among = f" among {_named(table, range(len(kinds)))}" if kinds else ""
        raise ValueError(f"{what} has no column of dates{among}; {_ACCEPTED}")
    missing = table.iloc[:, found[0]].isna().to_numpy() if found else np.zeros(0, dtype=bool)
    if missing.any():
        raise ValueError(
            f"{what} has no date in {table.columns[found[0]]!r} at row {int(np.argmax(missing))}"
        )
    return found[0] if found else None


def _asset_column(
    table: pd.DataFrame, kinds: list[Kind], rest: list[int], date: int, what: str
) -> int | None:
    """Return the column that names the assets; None in a table with a column for each."""
    texts = [at for at in rest if kinds[at] == "text"]
    if len(texts) > 1:
        raise ValueError(
            f"{what} has {len(texts)} columns of texts: {_named(table, texts)}; in long form one "
            "names the assets, and the values are numbers"
        )
    called = [at for at in rest if _names_assets(table, at)]
    repeated = not table.iloc[:, date].is_unique
    if texts:
        several = table.iloc[:, texts[0]].nunique() > 1
        if several and not repeated and texts[0] not in called:
            raise ValueError(
                f"{what} has texts in the column {table.columns[texts[0]]!r} and each date once, "
                "which is no long form; drop the column, or call it 'asset' where it names assets"
            )
        return texts[0]
    ids = [at for at in called if _is_whole(table, at)]
    if len(ids) == 1 and len(rest) > 1:
        return ids[0]
    if repeated and len(rest) > 1:
        raise ValueError(
            f"{what} holds dates more than once, but no column of texts, or called 'asset' or "
            f"'symbol', names the assets: {_named(table, [date, *rest])}"
        )
    return None


def _names_assets(table: pd.DataFrame, at: int) -> bool:
    return _plain(table.columns[at]).replace(" ", "_") in ASSET_NAMES


def _numbers_rows(table: pd.DataFrame, at: int) -> bool:
    """Whether a column is an index that numbered the rows of a table of pandas."""
    name = str(table.columns[at])
    return name.startswith("__index_level_") and _is_whole(table, at)


def _is_whole(table: pd.DataFrame, at: int) -> bool:
    """Whether a column holds whole numbers, maybe as objects."""
    dtype = table.dtypes.iloc[at]
    if dtype.kind != "O":
        return bool(pd.api.types.is_integer_dtype(dtype))
    return pd.api.types.infer_dtype(table.iloc[:, at], skipna=True) == "integer"


def _plain(name: object) -> str:
    return str(name).strip().lower()


def _named(table: pd.DataFrame, places: Iterable[int]) -> str:
    names = [repr(table.columns[at]) for at in places]
    more = f" and {len(names) - _MOST_NAMED} more" if len(names) > _MOST_NAMED else ""
    return ", ".join(names[:_MOST_NAMED]) + more


def _many_values(table: pd.DataFrame, layout: _Layout, what: str) -> str:
    return (
        f"{what} is of long form with several columns of values: {_named(table, layout.values)}; "
        "keep one of them beside the dates and the assets"
    )


# -- another form --------------------------------------------------------------------------------


def _wide(table: pd.DataFrame, layout: _Layout) -> pd.DataFrame:
    values = table.iloc[:, layout.values]
    return values.set_axis(usual_unit(pd.Index(table.iloc[:, layout.date])), axis=0)


def _tell(table: pd.DataFrame, layout: _Layout, what: str) -> None:
    date, asset = table.columns[layout.date], table.columns[layout.asset or 0]
    warn(
        f"{what}: read as long form, with dates of {date!r}, assets of {asset!r} and values of "
        f"{_named(table, layout.values)}"
    )


class _Pivot:
    """Brings columns of values to dates x assets."""

    def __init__(self, table: pd.DataFrame, layout: _Layout, what: str) -> None:
        assert layout.asset is not None
        self._table = table
        rows, dates = pd.factorize(table.iloc[:, layout.date], sort=True)
        columns, assets = _factorised(table.iloc[:, layout.asset])
        if (columns < 0).any():
            raise ValueError(
                f"{what} has no asset in {table.columns[layout.asset]!r} at row "
                f"{int(np.argmax(columns < 0))}"
            )
        self._dates = usual_unit(pd.Index(dates))
        self._assets = assets
        self._places = rows.astype(np.int64) * len(assets) + columns
        cells = np.zeros(len(dates) * len(assets), dtype=bool)
        cells[self._places] = True
        if np.count_nonzero(cells) < len(table):
            self._refuse_twice(rows, columns, what)

    def _refuse_twice(self, rows: np.ndarray, columns: np.ndarray, what: str) -> None:
        at = int(np.argmax(pd.Series(self._places).duplicated()))
        date, asset = self._dates[rows[at]], self._assets[columns[at]]
        when = date_text(date) if isinstance(date, pd.Timestamp) else str(date)
        raise ValueError(f"{what} holds {asset!r} on {when} more than once")

    def of(self, column: int) -> pd.DataFrame:
        values = self._table.iloc[:, column]
        shape = len(self._dates), len(self._assets)
        if pd.api.types.infer_dtype(values, skipna=True) == "boolean":
            cells: np.ndarray = np.zeros(shape[0] * shape[1], dtype=bool)
            cells[self._places] = values.eq(True).fillna(False).to_numpy(dtype=bool)
        else:
            cells = np.full(shape[0] * shape[1], np.nan)
            cells[self._places] = values.to_numpy(dtype=np.float64, na_value=np.nan)
        return pd.DataFrame(cells.reshape(shape), self._dates, self._assets, copy=False)


def _factorised(labels: pd.Series) -> tuple[np.ndarray, pd.Index]:
    codes, found = pd.factorize(labels)
    names = pd.Index(found).astype(str)
    order = np.argsort(names.to_numpy(dtype=object), kind="stable")
    place = np.empty(len(order) + 1, dtype=np.int64)
    place[order] = np.arange(len(order))
    place[-1] = -1  # missing ones
    return place[codes], names[order]
