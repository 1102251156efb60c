"""Refusing benchmarks that are no prices."""

from __future__ import annotations

import numpy as np
import pandas as pd

__all__ = ["check_benchmark"]

# Prices do not halve and double from day to day; the usual return is smaller than this.
_USUAL_RETURN = 0.2


def check_benchmark(benchmark: pd.Series, name: str | None = None) -> None:
    """Refuse a benchmark with values that are no prices; missing ones are none.

    Raises
    ------
    ValueError
        Naming the benchmark and the date of the first value that is not above zero and finite.
    """
    title = name or (benchmark.name if isinstance(benchmark.name, str) else None)
    who = "the benchmark" if title is None else f"the benchmark {title!r}"
    values = pd.to_numeric(benchmark, errors="coerce").to_numpy(dtype=np.float64)
    text = np.isnan(values) & benchmark.notna().to_numpy()
    bad = text | (values <= 0.0) | np.isinf(values)
    if not bad.any():
        return
    at = int(np.argmax(bad))
    when = benchmark.index[at]
    date = f"{when:%Y-%m-%d}" if isinstance(when, pd.Timestamp) else str(when)
    message = (
        f"{who} is {benchmark.iloc[at]} on {date}; it must be prices, above zero and finite, or "
        "missing"
    )
    finite = np.abs(values[np.isfinite(values)])
    if (values < 0.0).any() and np.median(finite) < _USUAL_RETURN:
        message += ". It looks like returns: (1 + returns).cumprod() makes prices of them"
    raise ValueError(message)
