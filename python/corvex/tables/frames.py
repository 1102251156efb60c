"""Tables of any library: what hands over an Arrow stream, and arrays with their dates and labels.

pandas objects with dates as their index are the usual case and pass as they are.
"""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any, Protocol, runtime_checkable

import numpy as np
import pandas as pd

from corvex.tables.long_form import arranged, arranged_prices, is_long, usual_unit

if TYPE_CHECKING:
    import pyarrow as pa

__all__ = [
    "ArrowTable",
    "TableInput",
    "arrow_columns",
    "arrow_stream",
    "as_given",
    "as_prices",
    "as_table",
    "is_array",
    "is_arrow_table",
    "is_table",
    "require_arrays",
    "reread",
]


@runtime_checkable
class ArrowTable(Protocol):
    """What hands its columns over as an Arrow stream, such as the tables of polars and DuckDB."""

    def __arrow_c_stream__(self, requested_schema: object | None = None) -> object: ...


#: A table of dates x assets.
type TableInput = pd.DataFrame | ArrowTable | np.ndarray


def is_table(given: object) -> bool:
    """Whether something is a table or an array, and no mapping, function or name of one."""
    return isinstance(given, pd.DataFrame | pd.Series | np.ndarray) or _is_arrow(given)


def is_arrow_table(given: object) -> bool:
    """Whether something hands over columns as another library's table does."""
    return _is_arrow(given) and not (isinstance(given, pd.DataFrame) or _is_column(given))


def arrow_columns(given: ArrowTable, what: str) -> pd.DataFrame:
    """Return the columns of another library's table as pandas has them, dates among them."""
    return _read(given, what)


def as_table(given: Any, what: str, *, dates: Any = None, assets: Any = None) -> Any:
    """Return a table as pandas has it.

    Parameters
    ----------
    given : object
        A table: dates in its index, in one column of a date type or in one called "date"; or rows
        of date, asset and value. Or an array.
    what : str
        What messages call it.
    dates, assets : sequences, optional
        Those of an array's rows and columns.

    Returns
    -------
    object
        A DataFrame of dates x assets (a Series of a one-dimensional array), the same object where
        it is one already. What is no table is left to the caller, and so is what dates are.

    Raises
    ------
    ValueError
        When it is not clear what is meant; the message names the columns.
    """
    if isinstance(given, pd.DataFrame | pd.Series):
        table = _with_columns(given)
        found = None if table is None else arranged(table, what, required=False)
        return given if found is None else found
    if _is_arrow(given) and not (dates is not None and _is_column(given)):
        return arranged(_read(given, what), what)
    if hasattr(given, "collect") and not hasattr(given, "__array__"):
        raise ValueError(f"{what} is a {type(given).__name__}, not yet computed; collect() it")
    return _labelled(given, what, dates, assets) if is_array(given) else given


def as_prices(given: Any, what: str, *, dates: Any = None, assets: Any = None) -> Any:
    """Do as `as_table` for prices: a mapping of fields to tables is one of them, too.

    Rows of date, asset, open, high, low, close and the like become such a mapping.
    """
    if isinstance(given, Mapping):
        return {
            field: as_table(table, f"{what}[{field!r}]", dates=dates, assets=assets)
            for field, table in given.items()
        }
    if isinstance(given, pd.DataFrame | pd.Series):
        table = _with_columns(given)
        found = None if table is None else arranged_prices(table, what, required=False)
        return given if found is None else found
    if _is_arrow(given) and not (dates is not None and _is_column(given)):
        return arranged_prices(_read(given, what), what)
    return as_table(given, what, dates=dates, assets=assets)


def require_arrays(dates: Any, assets: Any, *given: Any) -> None:
    """Refuse dates and assets where nothing given is an array that they could belong to."""
    parts = [
        part for one in given for part in (one.values() if isinstance(one, Mapping) else [one])
    ]
    if (dates is not None or assets is not None) and not any(map(is_array, parts)):
        raise ValueError(
            "dates= and assets= are those of arrays; a table has its own, and no array was given"
        )


def reread(given: Any) -> Any:
    """Return something that can be read more than once: a stream of batches becomes a table."""
    if isinstance(given, Mapping):
        return {key: reread(one) for key, one in given.items()}
    if isinstance(given, pd.DataFrame):  # which would look for such a name among its columns
        return given
    if hasattr(given, "read_next_batch") and _is_arrow(given):
        import pyarrow

        return pyarrow.table(given)
    return given


def as_given(table: pd.DataFrame, given: Any, what: str) -> Any:
    """Return other values of a table of another library, in the form that it was given in.

    Parameters
    ----------
    table : DataFrame
        What `as_table` made of `given`, or some of its rows, maybe with other values.
    given : ArrowTable
        Dates in a column, and a column for each asset.
    what : str
        What messages call it.

    Raises
    ------
    ValueError
        When it is of long form, or nothing of its kind can be made.
    """
    import pyarrow as pa

    kinds = pa.table(given).schema
    dates = [name for name in kinds.names if name not in table.columns]
    if len(dates) != 1:
        raise ValueError(f"{what} is of long form; give a table with a column for each asset")
    made = pa.Table.from_pandas(table.rename_axis(dates[0]).reset_index(), preserve_index=False)
    made = made.set_column(0, dates[0], made.column(0).cast(kinds.field(dates[0]).type))
    made = made.select(kinds.names)
    if isinstance(given, pa.Table):
        return made
    try:
        return type(given)(made)
    except Exception as error:  # of a class that nobody here knows
        raise ValueError(
            f"{what}: no {type(given).__name__} can be made anew ({error}); give a table of "
            "pandas, polars or pyarrow"
        ) from None


def arrow_stream(table: pd.DataFrame, requested_schema: object | None = None) -> object:
    """Hand a table over as an Arrow stream; the index comes first, as columns.

    Columns whose values are of several types are handed over as texts.

    Raises
    ------
    ValueError
        When a level of the index is called as a column.
    """
    import pyarrow as pa

    twice = [name for name in table.index.names if name is not None and name in table.columns]
    if twice:
        raise ValueError(
            f"{twice[0]!r} is the name of a column and of a level of the index, such as a figure "
            "and a parameter; rename one: table.rename_axis(index={...})"
        )
    plain = table if isinstance(table.index, pd.RangeIndex) else table.reset_index()
    columns = {}
    for at, name in enumerate(plain.columns):
        try:
            column = pa.Array.from_pandas(plain.iloc[:, at])
            columns[str(name)] = column.cast(pa.string()) if column.type == pa.null() else column
        except (pa.ArrowInvalid, pa.ArrowTypeError, pa.ArrowNotImplementedError):
            texts = [None if one is None else str(one) for one in plain.iloc[:, at]]
            columns[str(name)] = pa.array(texts, pa.string())
    return pa.table(columns).__arrow_c_stream__(requested_schema)


# -- pandas --------------------------------------------------------------------------------------


def _with_columns(given: pd.DataFrame | pd.Series) -> pd.DataFrame | None:
    """Return a table whose dates may stand in a column; None where the index has them."""
    index = given.index
    if isinstance(index, pd.MultiIndex):
        names = [f"level {at}" if name is None else name for at, name in enumerate(index.names)]
        table = (
            given.to_frame("value" if given.name is None else given.name)
            if isinstance(given, pd.Series)
            else given
        )
        return pd.concat([index.set_names(names).to_frame(index=False), _bare(table)], axis=1)
    if isinstance(given, pd.Series) or isinstance(given.columns, pd.MultiIndex):
        return None
    if isinstance(index, pd.DatetimeIndex):
        if not is_long(given):
            return None
        dates = index.to_frame(index=False, name=index.name or "date")
        return pd.concat([dates, _bare(given)], axis=1)
    return given if pd.api.types.is_integer_dtype(index.dtype) else None


def _bare(table: pd.DataFrame) -> pd.DataFrame:
    return table.set_axis(pd.RangeIndex(len(table)), axis=0)


# -- Arrow ---------------------------------------------------------------------------------------


def _is_arrow(given: object) -> bool:
    return hasattr(given, "__arrow_c_stream__") or hasattr(given, "__arrow_c_array__")


def _is_column(given: Any) -> bool:
    """Whether it is one column, which is an array too, and not a table."""
    return hasattr(given, "__array__") and not hasattr(given, "columns")


def _read(given: Any, what: str) -> pd.DataFrame:
    import pyarrow as pa

    try:
        table = pa.table(given)
    except (TypeError, ValueError) as error:
        hint = "; one column needs dates=" if _is_column(given) else ""
        raise ValueError(f"{what} cannot be read as an Arrow table: {error}{hint}") from None
    columns = [_plain(table.column(at), name, what) for at, name in enumerate(table.column_names)]
    plain = pa.table(columns, names=[str(at) for at in range(len(columns))])
    frame: pd.DataFrame = plain.to_pandas(date_as_object=False, ignore_metadata=True)
    frame.columns = pd.Index(table.column_names)
    return frame


def _plain(column: pa.ChunkedArray, name: str, what: str) -> pa.ChunkedArray:
    """Return a column of a type that pandas has, numbers of rare types as float64."""
    import pyarrow as pa

    kinds = pa.types
    kind = column.type
    packed = kinds.is_dictionary(kind)
    if packed:
        kind = kind.value_type
    if _is_text(kind):
        return column
    if packed:
        column = column.cast(kind)
    if kinds.is_decimal(kind) or kinds.is_float16(kind) or kinds.is_null(kind):
        return column.cast(pa.float64())
    plain = (
        kinds.is_integer(kind) or kinds.is_floating(kind) or kinds.is_boolean(kind)
        or kinds.is_date(kind) or kinds.is_timestamp(kind)
    )  # fmt: skip
    if not plain:
        raise ValueError(
            f"{what} has the column {name!r} of type {kind}; dates, numbers, True and False, and "
            "texts that name assets are accepted"
        )
    return column


def _is_text(kind: pa.DataType) -> bool:
    return str(kind) in ("string", "large_string", "string_view")


# -- arrays --------------------------------------------------------------------------------------


def is_array(given: object) -> bool:
    """Whether something has values and neither dates nor labels: an array, or one column."""
    if isinstance(given, pd.DataFrame | pd.Series | pd.Index | str | Mapping):
        return False
    if isinstance(given, np.ndarray):
        return given.ndim > 0
    return hasattr(given, "__array__") and (not _is_arrow(given) or _is_column(given))


def _labelled(given: Any, what: str, dates: Any, assets: Any) -> pd.DataFrame | pd.Series:
    values = np.asarray(_filled(given) if isinstance(given, np.ma.MaskedArray) else given)
    if dates is None:
        wanted = "dates=" if values.ndim == 1 else "dates= and assets="
        raise ValueError(f"{what} is an array, which has no dates; give {wanted}")
    index = _index_of(dates)
    labels = None if assets is None else _index_of(assets)
    if values.ndim == 1 and len(values) == len(index) and (labels is None or len(labels) == 1):
        # A copy, here and below: a report keeps its prices, and arrays are often written anew.
        return pd.Series(values.copy(), index, name=None if labels is None else labels[0])
    if values.ndim == 2 and labels is None:
        raise ValueError(f"{what} is an array, which has no labels; give assets= with its dates=")
    if labels is None or values.shape != (len(index), len(labels)):
        count = "" if labels is None else f" and {len(labels)} assets"
        raise ValueError(
            f"{what} is an array of shape {values.shape}, but there are {len(index)} dates{count}"
        )
    return pd.DataFrame(values.copy(), index, labels)


def _filled(given: np.ma.MaskedArray[Any, Any]) -> np.ndarray:
    """Return an array with False for what is masked among signals, else NaN."""
    if given.dtype == np.bool_:
        return np.asarray(given.filled(False))
    values = np.array(given.data, dtype=np.float64)
    values[np.ma.getmaskarray(given)] = np.nan
    return values


def _index_of(labels: Any) -> pd.Index:
    if isinstance(labels, pd.Index):
        return labels
    if _is_arrow(labels) and not isinstance(labels, pd.Series):
        import pyarrow as pa

        column: pd.Series = pa.chunked_array(labels).to_pandas(date_as_object=False)
        return usual_unit(pd.Index(column))
    if isinstance(labels, pd.Series | np.ndarray):
        return usual_unit(pd.Index(labels))
    return usual_unit(pd.Index(list(labels)))
