"""Our figures against those of the public ffn package, wherever that package gives a number."""

import warnings

import numpy as np
import pandas as pd
import pytest
from hypothesis import given
from hypothesis import strategies as st

from corvex.ffn_core import PerformanceStats

# A random seed, not the values themselves: hypothesis looks for shapes and dates, and prints the
# few settings that lead to a difference.
SHAPES = ("walk", "rounded", "flat", "rising", "falling")


def oracle(prices, rf=0.0):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        return pytest.importorskip("ffn").PerformanceStats(prices, rf=rf)


def curve(shape: str, dates: pd.DatetimeIndex, seed: int) -> pd.Series:
    random = np.random.default_rng(seed)
    n = len(dates)
    steps = random.random(n) + 0.01
    values = {
        "walk": 100 * np.exp(np.cumsum(random.normal(3e-4, 0.01, n))),
        "rounded": (100 * np.exp(np.cumsum(random.normal(0, 0.01, n)))).round(1),
        "flat": np.full(n, 7.0),
        "rising": 10 + np.cumsum(steps),
        "falling": 10 + np.cumsum(steps)[::-1],
    }[shape]
    return pd.Series(values, index=dates, name="curve")


def with_holes(prices: pd.Series, how: str, seed: int) -> pd.Series:
    """Drop or blank some rows, or drop a block of up to 150 of them."""
    random = np.random.default_rng(seed + 1)
    if how == "block":
        first = int(random.integers(1, len(prices) + 1))
        return pd.concat([prices[:first], prices[first + int(random.integers(150)) :]])
    keep = random.random(len(prices)) > 0.15
    keep[0] = True
    return {"none": prices, "dropped": prices[keep], "blank": prices.where(keep)}[how]


def assert_agree(prices: pd.Series, rf: float) -> None:
    expected = oracle(prices, rf).stats.to_dict()
    ours = PerformanceStats(prices, rf).stats.to_dict()
    assert [name for name in ours if name in expected] == list(expected)
    # pandas 2 calls the skewness of a constant 0, pandas 3 and we call it undefined.
    spans = ("daily", "monthly", "yearly")
    undefined = {f"{span}_skew" for span in spans if ours[f"{span}_vol"] == 0}
    for name, value in expected.items():
        if isinstance(value, pd.Timestamp):
            assert ours[name] == value, name
        elif not np.isnan(value) and name not in undefined:
            assert ours[name] == pytest.approx(value, rel=1e-9, abs=0), name


@given(
    start=st.dates(pd.Timestamp("1990-01-01").date(), pd.Timestamp("2020-01-01").date()),
    length=st.one_of(st.integers(1, 30), st.integers(31, 1500)),
    shape=st.sampled_from(SHAPES),
    holes=st.sampled_from(("none", "dropped", "blank", "block")),
    rf=st.sampled_from((0.0, 0.02)),
    seed=st.integers(0, 2**32 - 1),
)
def test_business_days(start, length, shape, holes, rf, seed):
    prices = curve(shape, pd.bdate_range(start, periods=length), seed)
    assert_agree(with_holes(prices, holes, seed), rf)


@pytest.mark.parametrize("end", ["2009-10-30", "2014-02-28", "2011-03-01", "2012-02-29"])
@pytest.mark.parametrize("frequency", ["B", "W-FRI", "ME", "BME", "QE", "YE"])
def test_twelve_years_to_awkward_ends(frequency, end):
    prices = curve("walk", pd.date_range("1999-01-04", end, freq=frequency), seed=1)
    assert_agree(prices, rf=0.02)


def test_return_table_where_months_are_whole():
    prices = curve("walk", pd.bdate_range("2018-11-14", "2021-06-30"), seed=3)
    expected = oracle(prices).return_table
    ours = PerformanceStats(prices).return_table
    assert list(ours.index) == list(expected.index)
    assert list(ours.columns) == [*range(1, 13), "YTD"]
    # Months without data are missing in ours and 0 there.
    np.testing.assert_allclose(ours.fillna(0.0), expected, rtol=1e-9, atol=1e-15)
    assert ours.loc[2018].isna().sum() == 10
