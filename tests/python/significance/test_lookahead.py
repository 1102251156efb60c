"""The detector of look-ahead on strategies whose fault is known."""

import numpy as np
import pandas as pd
import pytest

import corvex

DATES = pd.bdate_range("2020-01-01", periods=500)
WALK = pd.DataFrame(
    100 * np.exp(np.random.default_rng(1).normal(0, 0.02, (500, 3)).cumsum(axis=0)),
    DATES,
    ["A", "B C", 7],
)


def momentum(prices, lookback=60):
    return (prices / prices.shift(lookback) > 1).astype(float)


def last_of_month(prices):
    held = momentum(prices)
    return held.groupby([held.index.year, held.index.month]).tail(1)


def random(prices):
    return prices * 0 + np.random.default_rng().random(prices.shape)


CASES = [
    (momentum, "clean"),
    (lambda p: momentum(p).resample("ME").last(), "clean"),
    (last_of_month, "clean"),
    (lambda p: momentum(p).iloc[::7], "clean"),
    (lambda p: (p / p.expanding().mean()).rank(axis=1), "clean"),
    (lambda p: p.shift(-1) > p, "look-ahead"),
    (lambda p: p > p.rolling(21, center=True).mean(), "look-ahead"),
    (lambda p: momentum(p.where(p > 95).bfill()), "look-ahead"),
    (lambda p: momentum(p).resample("MS").last(), "look-ahead"),
    (lambda p: (p - p.mean()) / p.std(), "whole sample"),
    (random, "random"),
]


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
@pytest.mark.parametrize(("strategy", "kind"), CASES)
def test_the_fault_is_named(strategy, kind, zone):
    prices = WALK if zone is None else WALK.tz_localize(zone)
    found = corvex.check_lookahead(strategy, prices)
    assert found.kind == kind, str(found)
    assert bool(found) == (kind == "clean")
    assert kind in str(found) or kind == "clean"


def test_the_first_weight_that_changes_is_named():
    def one_asset_peeks(prices):
        held = momentum(prices)
        held[7] = (prices[7].shift(-3) > prices[7]).astype(float)
        return held

    cut = DATES[300]
    before = WALK.copy()
    found = corvex.check_lookahead(one_asset_peeks, WALK, dates=[cut])
    assert found.asset == 7
    assert found.cut == cut
    assert DATES[298] <= found.date <= cut
    assert found.rows_back == 300 - DATES.get_loc(found.date)
    assert repr(7) in str(found)
    pd.testing.assert_frame_equal(WALK, before)


def test_prices_come_as_the_strategy_takes_them():
    tables = {"close": WALK, "volume": WALK * 1000}
    both = corvex.check_lookahead(lambda t, n: momentum(t["close"] * t["volume"], n), tables, n=20)
    assert both
    assert not corvex.check_lookahead(lambda t: t["close"] < t["volume"].shift(-1) / 1000, tables)
    assert corvex.check_lookahead(lambda s: (s > s.shift(5)).to_frame(), WALK["A"])
    with pytest.raises(TypeError, match="table of weights"):
        corvex.check_lookahead(lambda p: 3, WALK)
    with pytest.raises(ValueError, match="before and after"):
        corvex.check_lookahead(momentum, WALK, dates=["1990-01-01"])
