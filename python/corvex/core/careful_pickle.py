"""Pickled reports, read by a list of what they may name.

A pickle names functions to call, so that whoever made it runs any program. A saved report needs few
of them: tables and arrays, dates, and the classes of this package. The command line, which is
given files of all sorts, reads by this list. It keeps a file from naming a program; it does not
make numpy's and pandas' own readers safe against a file that was forged with skill.
"""

from __future__ import annotations

import os
import pickle
import zoneinfo
from functools import cache
from typing import Any

from corvex.core.report import CustomUnpickler, Report

__all__ = ["UntrustedNameError", "read_carefully"]


class UntrustedNameError(pickle.UnpicklingError):
    """A file names something that a saved report does not need."""


_NUMPY = "numpy", "numpy.core.multiarray", "numpy._core.multiarray", "numpy._core.numeric"
_PANDAS_TYPES = """Categorical CategoricalDtype CategoricalIndex DataFrame DatetimeIndex
    DatetimeTZDtype Index MultiIndex PeriodDtype PeriodIndex RangeIndex Series StringDtype
    TimedeltaIndex BooleanDtype Float32Dtype Float64Dtype Int8Dtype Int16Dtype Int32Dtype Int64Dtype
    UInt8Dtype UInt16Dtype UInt32Dtype UInt64Dtype ArrowDtype"""
_ARRAYS = """ArrowExtensionArray ArrowStringArray BooleanArray DatetimeArray FloatingArray
    IntegerArray NumpyExtensionArray PeriodArray StringArray TimedeltaArray"""
# The members that saved reports are made of, under all the names that pandas 2.2 to 3 and numpy
# have given them.
_NAMES: dict[str, str] = {
    "builtins": "bytearray complex frozenset range set slice",
    "collections": "OrderedDict",
    "datetime": "date datetime time timedelta timezone",
    "pytz": "_UTC _p",
    "zoneinfo": "ZoneInfo",
    "corvex.core.metrics": "Metrics",
    "corvex.core.report": "Report ReportExecution",
    "corvex.market_info": "TWMarketInfo",
    "corvex.markets.bound": "_restore restored",
    "corvex.significance.random_draws": "RandomDraws",  # where it was
    "corvex.significance.random_result": "RandomDraws",
    "corvex.significance.trials": "TrialStatistics",
    "pandas": _PANDAS_TYPES,
    "pandas.arrays": _ARRAYS,
    "pandas._libs.arrays": "__pyx_unpickle_NDArrayBacked",
    "pandas._libs.internals": "_unpickle_block",
    "pandas._libs.tslibs.nattype": "_nat_unpickle",
    "pandas._libs.tslibs.period": "Period",
    "pandas._libs.tslibs.timedeltas": "_timedelta_unpickle",
    "pandas._libs.tslibs.timestamps": "_unpickle_timestamp",
    "pandas.core.arrays.boolean": "BooleanArray BooleanDtype",
    "pandas.core.arrays.categorical": "Categorical",
    "pandas.core.arrays.datetimes": "DatetimeArray",
    "pandas.core.arrays.floating": "FloatingArray Float32Dtype Float64Dtype",
    "pandas.core.arrays.integer": "IntegerArray Int32Dtype Int64Dtype",
    "pandas.core.arrays.string_": "StringArray StringDtype",
    "pandas.core.arrays.string_arrow": "ArrowStringArray ArrowStringArrayNumpySemantics",
    "pandas.core.arrays.timedeltas": "TimedeltaArray",
    "pandas.core.dtypes.dtypes": "CategoricalDtype DatetimeTZDtype PeriodDtype",
    "pandas.core.frame": "DataFrame",
    "pandas.core.indexes.base": "Index _new_Index",
    "pandas.core.indexes.category": "CategoricalIndex",
    "pandas.core.indexes.datetimes": "DatetimeIndex _new_DatetimeIndex",
    "pandas.core.indexes.frozen": "FrozenList",
    "pandas.core.indexes.multi": "MultiIndex",
    "pandas.core.indexes.period": "PeriodIndex",
    "pandas.core.indexes.range": "RangeIndex",
    "pandas.core.indexes.timedeltas": "TimedeltaIndex",
    "pandas.core.internals.blocks": "new_block",
    "pandas.core.internals.managers": "BlockManager SingleBlockManager",
    "pandas.core.series": "Series",
    "pyarrow.lib": "_restore_array chunked_array py_buffer type_for_alias",
}
_NAMES |= dict.fromkeys(_NUMPY, "_frombuffer _reconstruct dtype ndarray scalar")


@cache
def _allowed() -> frozenset[tuple[str, str]]:
    return frozenset((module, name) for module, names in _NAMES.items() for name in names.split())


class _CarefulUnpickler(CustomUnpickler):
    def find_class(self, module: str, name: str) -> Any:
        if (module, name) == ("builtins", "getattr"):
            return _only_time_zones
        if (module, name) in _allowed():
            found = super().find_class(module, name)
            return _restore_checked if name == "_restore_array" else found
        if "." not in name and _has_classes_alone(module):
            found = super().find_class(module, name)
            if isinstance(found, type) and _is_of_a_report(found):
                return found
        raise UntrustedNameError(f"it names {module}.{name}, which a saved report does not need")


def _has_classes_alone(module: str) -> bool:
    return module in ("pandas._libs.tslibs.offsets", "corvex.market") or module.startswith(
        "corvex.markets."
    )


def _is_of_a_report(found: type) -> bool:
    from pandas.tseries.offsets import BaseOffset

    from corvex.market import Market

    return issubclass(found, BaseOffset | Market)


def _only_time_zones(owner: object, name: str) -> Any:
    """Stand in for `getattr`, by which time zones are pickled."""
    if owner is zoneinfo.ZoneInfo and name == "_unpickle":
        return zoneinfo.ZoneInfo._unpickle  # type: ignore[attr-defined]
    raise UntrustedNameError("it asks for an attribute that a saved report does not need")


def _restore_checked(data: Any) -> Any:
    """Restore an array whose offsets are known to lie within its text."""
    from pyarrow import lib

    array = lib._restore_array(data)
    array.validate(full=True)
    return array


def read_carefully(file: str | os.PathLike[str]) -> Any:
    """Read what a file holds that `Report.to_pickle` wrote.

    Raises
    ------
    OSError
        When the file cannot be read.
    UntrustedNameError
        When it names what a report does not need; nothing of that is called.
    pickle.UnpicklingError
        When it is damaged. Whatever else is wrong with a pickle may raise any error.
    """
    with open(file, "rb") as stream:
        return _CarefulUnpickler(Report._checked_pickle(stream)).load()
