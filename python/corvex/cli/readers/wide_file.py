"""Tables of dates x assets from a user's own files."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pandas as pd

from corvex.cli.readers.curve_file import CurveFile, read_table
from corvex.cli.readers.number_texts import NotANumberError, read_numbers
from corvex.cli.readers.table_source import MAX_MEGABYTES

__all__ = ["read_wide"]

_TRUE, _FALSE = ("true", "yes"), ("false", "no")


def read_wide(path: Path, max_megabytes: int = MAX_MEGABYTES) -> tuple[pd.DataFrame, list[str]]:
    """Read a file with a column of dates and an asset in each other one.

    Parameters
    ----------
    path : Path
        As for `corvex.cli.readers.curve_file.read_table`.
    max_megabytes : int, default 200
        Most content that is unpacked.

    Returns
    -------
    table : DataFrame of float or bool, dates x assets
        In the order of the file; bool where every cell is true or false.
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
    if marks is None:
        columns = {name: _numbers(file, cells, at) for at, name in enumerate(file.names)}
        marks = pd.DataFrame(columns, index=file.dates)
    return marks.set_axis(file.names, axis=1), file.notes


def _marks(cells: pd.DataFrame) -> pd.DataFrame | None:
    """Return a table of signals as True and False; None where a cell is neither."""
    if all(pd.api.types.is_bool_dtype(kind) for kind in cells.dtypes):
        return cells.astype(bool)
    if any(pd.api.types.is_numeric_dtype(kind) for kind in cells.dtypes):
        return None
    texts = np.char.lower(np.char.strip(cells.fillna("false").to_numpy(dtype=str)))
    chosen = np.isin(texts, _TRUE)
    if not (chosen | np.isin(texts, _FALSE)).all():
        return None
    return pd.DataFrame(chosen, index=cells.index, columns=cells.columns)


def _numbers(file: CurveFile, cells: pd.DataFrame, at: int) -> np.ndarray:
    try:
        return read_numbers(cells.iloc[:, at]).to_numpy(dtype=np.float64)
    except NotANumberError as error:
        raise ValueError(
            f"column {file.names[at]!r} of {file.path.name} holds {error.text!r} on "
            f"{file.dates[error.position]:%Y-%m-%d}, which is not a number; the file needs dates "
            "and an asset in each other column"
        ) from None
