"""Many runs in one pass give what each gives alone."""

import math
from types import SimpleNamespace

import numpy as np
import pytest

from corvex import _engine

DAY = 86_400_000_000_000


def options(draw):
    chosen = dict.fromkeys(_engine.OPTION_NAMES, 0.0)
    chosen |= dict.fromkeys(("stop_loss", "take_profit", "trail_stop"), math.inf)
    chosen |= {"touched_exit": False, "stop_cooldown": int(draw.integers(0, 3))}
    chosen["fee_ratio"], chosen["tax_ratio"] = draw.choice([0.0, 0.001, 0.01], 2)
    for stop in ("stop_loss", "take_profit", "trail_stop"):
        if draw.random() < 0.4:
            chosen[stop] = float(draw.choice([0.03, 0.1, 0.3]))
    return SimpleNamespace(**chosen)


def world(seed, assets, sessions=400):
    draw = np.random.default_rng(seed)
    close = 100 * np.exp(draw.normal(0, 0.02, (sessions, assets)).cumsum(axis=0))
    if seed % 2:
        close[draw.random(close.shape) < 0.02] = np.nan
        close[0] = 100.0
    plans = []
    for step in (1, 5, 21):
        signals = np.arange(int(draw.integers(0, 30)), sessions - 1, step)
        weights = draw.random((len(signals), assets)) * (draw.random((len(signals), assets)) < 0.6)
        weights /= np.maximum(weights.sum(1, keepdims=True), 1e-9)
        plans.append((weights, signals, int(signals[0])))
    chosen = [options(draw) for _ in range(5)]
    runs = np.array([(p, o) for p in range(3) for o in range(5)])
    return _engine.PriceSet(close=close), plans, chosen, draw.permutation(runs), close


@pytest.mark.parametrize(("seed", "assets"), [(0, 3), (1, 7), (2, 40), (3, 400)])
def test_each_run_is_the_one_alone_whatever_runs_beside_it(seed, assets):
    prices, plans, chosen, runs, close = world(seed, assets)
    sessions = len(close)
    times = np.arange(sessions) * DAY
    closes = np.arange(sessions)
    calendar = {"times": times, "closes": closes, "before_first": np.zeros(3, np.int64) - DAY}
    found = _engine.simulate_many(
        prices, plans, chosen, runs, **calendar, curves=True, blocks=8, threads=2
    )
    one = _engine.simulate_many(
        prices, plans, chosen, runs[3:5].copy(), **calendar, blocks=8, threads=1
    )
    for name in ("figures", "fees", "turnover", "win_rate", "trades", "sums", "squares"):
        assert np.asarray(found[name])[3:5].tobytes() == one[name].tobytes(), name
    for row, (plan, option) in enumerate(runs):
        target, signals, first = plans[plan]
        alone = _engine.simulate(
            prices, target, signals, first_session=first, options=chosen[option]
        )
        curve = found["curves"][row]
        assert curve[first:].tobytes() == alone["equity"].tobytes()
        assert np.all(curve[:first] == 1.0)
        start = first + max(int(np.flatnonzero(alone["traded"])[0]) - 1, 0)
        assert abs(curve[start] - 1) < 1e-12
        curve[start] = 1.0
        daily = _engine.rebase(curve[start:].copy(), 100.0)  # as reports have it
        record = _engine.performance_record(daily, times[start:].copy(), 0.02)
        np.testing.assert_array_equal(found["figures"][row], record[0])
        assert found["fees"][row] == pytest.approx(alone["fees"].sum(), rel=1e-12)
        closed = alone["trades"]["exit_session"] >= 0
        assert found["trades"][row] == closed.sum()
        won = alone["trades"]["return"][closed] > 0
        assert found["win_rate"][row] == pytest.approx(won.mean(), nan_ok=True)
        returns = curve[1:] / curve[:-1] - 1
        parts = [part.sum() for part in np.array_split(returns, 8)]
        assert found["sums"][row] == pytest.approx(parts, abs=1e-12)


def test_what_cannot_be_run_is_refused():
    prices, plans, chosen, runs, _ = world(0, 3)
    calendar = {
        "times": np.arange(400) * DAY,
        "closes": np.arange(400),
        "before_first": np.zeros(3, np.int64),
    }
    wrong = SimpleNamespace(**{**vars(chosen[0]), "fee_ratio": 2.0})
    for given, text in (
        ((plans, chosen, np.array([[3, 0]])), "not there"),
        ((plans, chosen, np.array([[0, -1]])), "not there"),
        (([(*plans[0][:2], 500)], chosen, np.array([[0, 0]])), "first_session"),
        ((plans, [*chosen, wrong], runs), "fee"),
    ):
        with pytest.raises(ValueError, match=text):
            _engine.simulate_many(
                prices, *given, **calendar | {"before_first": np.zeros(len(given[0]), np.int64)}
            )
    with pytest.raises(ValueError, match="lies outside"):
        _engine.simulate_many(prices, plans, chosen, runs, **calendar | {"closes": np.array([400])})
    none = _engine.simulate_many(prices, plans, chosen, np.zeros((0, 2), np.int64), **calendar)
    assert none["figures"].shape == (0, 43)
