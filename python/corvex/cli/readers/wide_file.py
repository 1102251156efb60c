"""Tables of dates x assets, or in long form, from a user's own files."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pandas as pd

from corvex.cli.readers.curve_file import CurveFile, read_table
from corvex.cli.readers.number_texts import FALSE_TEXTS, TRUE_TEXTS, NotANumberError, read_numbers
from corvex.cli.readers.table_layout import plain_name
from corvex.cli.readers.table_source import MAX_MEGABYTES
from corvex.tables.column_names import ASSET_NAMES
from corvex.tables.long_form import arranged, arranged_prices, is_long

__all__ = ["read_wide"]


def read_wide(
    path: Path, max_megabytes: int = MAX_MEGABYTES, *, prices: bool = False
) -> tuple[pd.DataFrame | dict[str, pd.DataFrame], list[str]]:
    """Read a file with a column of dates and an asset in each other one, or in long form.

    Parameters
    ----------
    path : Path
        As for `corvex.cli.readers.curve_file.read_table`.
    max_megabytes : int, default 200
        Most content that is unpacked.
    prices : bool, default False
        Rows of date and asset may have several values: open, high, low, close, ...

    Returns
    -------
    table : DataFrame of float or bool, dates x assets
        In the order of the file; bool where every cell is true or false. Of long form dates and
        assets are sorted; several kinds of prices come as tables by name.
    notes : list of str
        What was decided, in words for the user.

    Raises
    ------
    OSError, ValueError
        When the file cannot be read, holds no such table, or a cell that is no number.
    """
    file = read_table(path, max_megabytes)
    cells = file.source.read(file.names).iloc[file.rows].set_axis(file.dates, axis=0)
    marks = _marks(cells)
    if marks is not None:
        return marks.set_axis(file.names, axis=1), file.notes
    columns = [_column(cells, at) for at in range(cells.shape[1])]
    table = pd.concat(columns, axis=1).set_axis(file.names, axis=1)
    if is_long(table):
        dated = table.rename_axis(index="date").reset_index()
        arrange = arranged_prices if prices else arranged
        found = arrange(dated, file.path.name)
        if found is not None:
            return found, file.notes
    return table.apply(lambda column: _numbers(file, column)), file.notes


def _column(cells: pd.DataFrame, at: int) -> pd.Series:
    """Return a column as numbers or marks; one of texts, or of the ids of assets, as it is."""
    column = cells.iloc[:, at]
    if plain_name(cells.columns[at]).replace(" ", "_") in ASSET_NAMES:
        return column.astype(str).str.strip()
    try:
        return read_numbers(column)
    except NotANumberError:
        marks = _marks(column.to_frame())
        return column if marks is None else marks.iloc[:, 0]


def _marks(cells: pd.DataFrame) -> pd.DataFrame | None:
    """Return a table of signals as True and False; None where a cell is neither."""
    if all(pd.api.types.is_bool_dtype(kind) for kind in cells.dtypes):
        return cells.astype(bool)
    if any(pd.api.types.is_numeric_dtype(kind) for kind in cells.dtypes):
        return None
    first = cells.iloc[0].dropna().astype(str).str.strip().str.lower()  # spares most the rest
    if not first.isin((*TRUE_TEXTS, *FALSE_TEXTS)).all():
        return None
    texts = np.char.lower(np.char.strip(cells.fillna("false").to_numpy(dtype=str)))
    chosen = np.isin(texts, TRUE_TEXTS)
    if not (chosen | np.isin(texts, FALSE_TEXTS)).all():
        return None
    return pd.DataFrame(chosen, index=cells.index, columns=cells.columns)


def _numbers(file: CurveFile, column: pd.Series) -> pd.Series:
    try:
        return read_numbers(column)
    except NotANumberError as error:
        raise ValueError(
            f"column {column.name!r} of {file.path.name} holds {error.text!r} on "
            f"{file.dates[error.position]:%Y-%m-%d}, which is not a number; the file needs dates "
            "and an asset in each other column, or rows of date, asset and value"
        ) from None
