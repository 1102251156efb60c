"""The engine's schedules against those of pandas."""

import numpy as np
import pandas as pd
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from corvex import _engine

RULES = [
    *["D", "W", "W-MON", "W-FRI", "ME", "QE", "QE-JAN", "YE"],
    *["YE-JUN", "2W", "3ME", "2QE", "3D", "5D", "2YE"],
]


def last_rows(index: pd.DatetimeIndex, rule: str) -> list[int]:
    rows = pd.Series(np.arange(len(index)), index).resample(rule).last().dropna()
    return rows.astype(int).tolist()


@settings(max_examples=150, deadline=None)
@given(
    st.sampled_from(RULES),
    st.sets(st.integers(0, 900), min_size=1, max_size=80),
    st.integers(0, 20000),
)
def test_rows_are_those_of_pandas(rule, offsets, start):
    days = np.array(sorted(offsets)) + start
    index = pd.DatetimeIndex(days.astype("M8[D]").astype("M8[ns]"))
    nanos = index.as_unit("ns").asi8
    assert _engine.period_last_sessions(nanos, rule).tolist() == last_rows(index, rule)
    low, high = _engine.period_bounds(nanos, rule)
    inside = np.flatnonzero((nanos >= low) & (nanos < high))
    rows = [-1, *last_rows(index, rule)]
    assert inside.tolist() == list(range(rows[-2] + 1, len(nanos)))


@pytest.mark.parametrize("rule", ["h", "4h", "30min", "D", "W-FRI", "ME"])
def test_intraday_bars(rule):
    index = pd.date_range("2024-02-27 09:00", periods=300, freq="15min")
    index = index[(index.hour >= 9) & (index.hour < 16)]
    rows = _engine.period_last_sessions(index.as_unit("ns").asi8, rule).tolist()
    assert rows == last_rows(index, rule)


@pytest.mark.parametrize(("old", "new"), [("M", "ME"), ("Q", "QE"), ("Y", "YE"), ("A", "YE")])
def test_old_aliases_mean_the_new_ones(old, new):
    nanos = pd.date_range("2020-01-01", periods=800).as_unit("ns").asi8
    expected = _engine.period_last_sessions(nanos, new)
    assert np.array_equal(_engine.period_last_sessions(nanos, old), expected)
