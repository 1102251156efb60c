"""The span of dates that can be computed with."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np

if TYPE_CHECKING:
    import pandas as pd

__all__ = ["require_in_range"]

_PER_UNIT = {"s": 1_000_000_000, "ms": 1_000_000, "us": 1_000}


def require_in_range(index: pd.DatetimeIndex, what: str) -> None:
    """Refuse dates that nanoseconds since 1970 cannot tell, which pandas can hold in other units.

    Raises
    ------
    ValueError
        Naming the first such date and the span.
    """
    if index.unit == "ns" or len(index) == 0:
        return
    limit = np.iinfo(np.int64).max // _PER_UNIT[index.unit]
    values = index.asi8
    outside = ((values > limit) | (values < -limit)) & ~np.asarray(index.isna())
    if outside.any():
        at = int(np.argmax(outside))
        date = np.datetime_as_string(index.asi8[at].view(f"M8[{index.unit}]"), unit="D")
        raise ValueError(f"{what} holds {date}; dates must lie between 1677-09-22 and 2262-04-11")
