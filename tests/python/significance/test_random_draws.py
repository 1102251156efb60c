"""Random portfolios and random entries: what is kept, and whom they tell apart."""

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex import _engine

DAYS = pd.bdate_range("2015-01-01", periods=600)
MOVES = np.random.default_rng(3).normal(0, 0.02, (600, 12))
PRICES = pd.DataFrame(
    100 * np.exp(MOVES.cumsum(axis=0)), DAYS, [f"{1000 + i} Asset {i}" for i in range(12)]
)
RULES = {"resample": "ME", "fee_ratio": 0.001, "market": "us_stock"}


def best_of(moves: pd.DataFrame) -> pd.DataFrame:
    return moves.rank(axis=1, ascending=False) <= 3


def test_only_the_assets_are_drawn():
    draw = np.random.default_rng(0)
    weights = draw.choice([0.0, 0.0, 0.0, 0.1, -0.2, 0.3], (40, 9))
    weights[1::2] = weights[::2]  # held for two rebalances at least
    priced = draw.random((40, 9)) < 0.9
    priced[weights != 0] = True
    drawn = _engine.random_targets(weights, priced, 0, 30, 5)
    assert np.all(priced[np.newaxis] | (drawn == 0))
    for row in range(40):
        assert np.array_equal(np.sort(drawn[:, row]), np.sort(np.tile(weights[row], (30, 1))))
    kept = (drawn[:, 1::2] == drawn[:, ::2]) | ~priced[1::2] | ~priced[::2]
    assert kept.mean() > 0.97
    assert _engine.random_targets(weights, priced, 10, 5, 5).tobytes() == drawn[10:15].tobytes()
    first = drawn[:, 0] != 0  # each asset is as likely as another
    share = first.mean(axis=0)[priced[0]]
    assert np.all(np.abs(share - share.mean()) < 0.35)
    none = _engine.random_targets(weights, np.zeros_like(priced), 0, 2, 5)
    assert not none.any()


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
def test_the_choice_of_assets_is_judged(zone):
    prices = PRICES if zone is None else PRICES.tz_localize(zone)
    foresight = best_of(prices.shift(-21) / prices)
    known = corvex.random_portfolios(foresight, prices, 150, **RULES)
    assert known.rank > 0.99
    assert known.p_value < 0.02
    blind = corvex.random_portfolios(best_of(prices.shift(250) / prices), prices, 150, **RULES)
    assert 0.02 < blind.rank < 0.98
    own = corvex.simulate(foresight, prices, **RULES).get_stats()
    assert known.own == pytest.approx(own["daily_sharpe"], rel=1e-9)
    assert "random portfolios" in repr(known)
    again = corvex.random_portfolios(foresight, prices, 150, **RULES)
    pd.testing.assert_frame_equal(known.draws, again.draws)


def test_weights_of_a_few_assets_draw_from_all_prices():
    some = pd.DataFrame(0.5, DAYS[::60], ["1003", "1007 Asset 7"])
    found = corvex.random_portfolios(some, PRICES, 60, figure="cagr", **RULES)
    assert found.draws["cagr"].nunique() > 30
    for wrong, text in (({"draws": 0}, "at least 1"), ({"figure": "luck"}, "luck")):
        with pytest.raises(ValueError, match=text):
            corvex.random_portfolios(some, PRICES, **RULES, **wrong)
    with pytest.raises(TypeError, match="unknown argument 'fee'"):
        corvex.random_portfolios(some, PRICES, fee=0.1)


def test_the_timing_of_trades_is_judged():
    ahead = (PRICES.shift(-6) / PRICES.shift(-1) > 1.04).astype(float)
    timed = corvex.simulate(ahead.iloc[:-10] / 12, PRICES, market="us_stock")
    found = corvex.random_entries(timed, 300)
    assert found.rank > 0.99
    closed = timed.trades.dropna(subset=["exit_date"])
    by_hand = closed["trade_price@exit_date"] / closed["trade_price@entry_date"] - 1
    size = closed["position"].abs()
    assert found.own == pytest.approx((by_hand * size).sum() / size.sum())
    random = PRICES * 0 + np.random.default_rng(1).choice([0.0, 0.08], PRICES.shape)
    assert 0.01 < corvex.random_entries(corvex.simulate(random, PRICES, **RULES), 300).rank < 0.99
    held = corvex.from_equity(PRICES.iloc[:, 0])
    assert np.isnan(corvex.random_entries(held, 10).own)
