"""The daily curve of a run as arrays, for figures that are asked for before the Series is."""

from __future__ import annotations

from typing import Any

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.ffn_core import calc_stats, rebase
from corvex.ffn_core._curve import Curve

__all__ = ["daily_curve"]

_BASE = 100.0
_NANOS_PER_DAY = 86_400_000_000_000


def daily_curve(values: np.ndarray, index: pd.Index) -> Curve | None:
    """Return what `daily_creturn` holds of an equity curve.

    Parameters
    ----------
    values : float64 array of shape (rows,)
        The equity.
    index : Index
        Its dates, increasing.

    Returns
    -------
    Curve or None
        None where the Series has to be made to know: of bars within days, of dates with a zone,
        and where a user has put another function in place of what makes it or reads it.
    """
    if not isinstance(index, pd.DatetimeIndex) or index.tz is not None:
        return None
    used: Any = pd.Series
    if used.calc_stats is not calc_stats or used.rebase is not rebase:
        return None
    times = index.as_unit("ns").asi8
    if (times % _NANOS_PER_DAY).any() or not np.isfinite(values).all():
        return None
    return Curve(_engine.rebase(values, _BASE), times, index)
