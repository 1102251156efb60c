"""The engine against the slow simulator, on random inputs with every kind of rule and flaw."""

from dataclasses import replace

import numpy as np
import pandas as pd
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from corvex import _engine
from corvex.explain.ledger import ledger_from_fills
from corvex.simulation.options import Options
from corvex.simulation.report.fills_table import fills_table

from .reference import Case, SlowSimulator

COSTS = st.sampled_from(
    [(0.0, 0.0, 0.0), (0.001425, 0.003, 0.0), (0.02, 0.01, 0.005), (0.0, 0.0, 0.15)]
)
STOPS = st.sampled_from([np.inf, 0.02, 0.1])


@st.composite
def cases(draw):
    rng = np.random.default_rng(draw(st.integers(0, 2**32 - 1)))
    sessions, assets = draw(st.integers(2, 40)), draw(st.integers(1, 9))
    volatility = draw(st.sampled_from([0.01, 0.05, 0.3]))
    moves = rng.normal(0, volatility, (sessions, assets))
    close = 100 * np.exp(np.cumsum(moves, axis=0))
    open_ = close * np.exp(rng.normal(0, volatility / 2, close.shape))
    reach = np.exp(np.abs(rng.normal(0, volatility / 2, (2, *close.shape))))
    high, low = np.maximum(open_, close) * reach[0], np.minimum(open_, close) / reach[1]
    fill_at = draw(st.sampled_from(["close", "open", "other"]))
    # Touched stops behind an open at which the orders fill, too, are netted with them.
    fill = open_ if fill_at == "open" or draw(st.booleans()) else (high + low) / 2
    if draw(st.booleans()):
        share = draw(st.sampled_from([0.05, 0.4]))
        missing = rng.random(close.shape) < share
        for table in (close, open_, high, low):
            table[missing] = np.nan
        fill = fill.copy()
        fill[missing | (rng.random(close.shape) < share / 2)] = np.nan
        for asset in range(assets):
            if rng.random() < 0.3:
                for table in (close, open_, high, low, fill):
                    table[rng.integers(1, sessions + 1) :, asset] = np.nan
    first = draw(st.integers(0, max(0, sessions - 3)))
    signal = np.sort(rng.choice(np.arange(first, sessions), draw(st.integers(1, 8))))
    if first == 0 and rng.random() < 0.3:
        signal[0] = -1
    target = rng.normal(0.3, 1, (len(signal), assets))
    if draw(st.booleans()):
        target = np.abs(target)
    target[rng.random(target.shape) < 0.4] = 0.0
    gross = np.abs(target).sum(axis=1, keepdims=True)
    target *= draw(st.sampled_from([0.6, 1.0])) / np.where(gross == 0, 1, gross)
    if draw(st.integers(0, 4)) == 0:
        target *= 3
    fee, tax, slippage = draw(COSTS)
    touched = draw(st.booleans())
    return Case(
        close, target, signal.tolist(), first, fill_at, fill,
        open_ if draw(st.booleans()) else None, high, low, fee, tax, slippage,
        draw(STOPS), draw(STOPS), draw(STOPS), touched, draw(st.sampled_from([0, 0, 1, 3])),
    )  # fmt: skip


def run_slowly(case: Case) -> SlowSimulator:
    tables = ("close", "target", "fill", "open", "high", "low")
    lists = {n: None if getattr(case, n) is None else getattr(case, n).tolist() for n in tables}
    return SlowSimulator(replace(case, **lists)).run()


def run_engine(case: Case, **flags):
    prices = _engine.PriceSet(
        close=case.close, fill_at=case.fill_at, fill=case.fill, open=case.open, high=case.high,
        low=case.low,
    )  # fmt: skip
    options = Options(
        case.fee, case.tax, case.slippage, case.stop_loss, case.take_profit, case.trail_stop,
        case.touched, case.cooldown,
    )  # fmt: skip
    signal = np.array(case.signal, np.int64)
    return _engine.simulate(
        prices, case.target, signal, first_session=case.first, options=options, **flags
    )


def assert_same(ours, slow: SlowSimulator):
    close_to = {"rtol": 1e-9, "atol": 1e-10}
    assert ours["ruin_session"] == slow.ruined
    assert ours["executed_rebalance"] == slow.executed
    np.testing.assert_allclose(ours["equity"], slow.equity, **close_to)
    np.testing.assert_allclose(ours["cash"], slow.cashes, **close_to)
    np.testing.assert_array_equal(ours["position"], slow.position)
    np.testing.assert_array_equal(ours["weights_in_force"], slow.position[-1])
    for column, name in enumerate(("fees", "taxes", "slippage", "traded")):
        np.testing.assert_allclose(
            ours[name], np.array(slow.paid)[:, column], err_msg=name, **close_to
        )
    shares = [slow.held[j].shares if j in slow.held else 0.0 for j in range(slow.assets)]
    np.testing.assert_allclose(ours["shares"], shares, **close_to)
    trades = ours["trades"]
    assert len(trades["asset"]) == len(slow.trades)
    for name, values in trades.items():
        np.testing.assert_allclose(
            values, [trade[name] for trade in slow.trades], err_msg=name, **close_to
        )
    waiting = [slow.waiting.get(j, (-1,))[0] for j in range(slow.assets)]
    np.testing.assert_array_equal(ours["waiting_rebalance"], waiting)
    np.testing.assert_array_equal(ours["cooldown"], slow.out_for)
    stops = [slow.held[j].stop if j in slow.held else None for j in range(slow.assets)]
    np.testing.assert_array_equal(ours["pending_session"], [s[0] if s else -1 for s in stops])
    np.testing.assert_array_equal(ours["pending_reason"], [s[1] if s else 0 for s in stops])


# The same examples each time: two simulators may part ways where rounding decides whether a last
# bit of cash is there, and no one should meet that in an unrelated change.
RANDOM = settings(
    max_examples=400,
    derandomize=True,
    deadline=None,
    suppress_health_check=list(HealthCheck),
    print_blob=True,
)


def assert_fills_explain_the_equity(result, case):
    index = pd.date_range("2000-01-01", periods=len(case.close), freq="D")
    assets = pd.RangeIndex(case.close.shape[1]).astype(str)
    fills = fills_table(result["fills"], assets, index)
    curve, close = index[case.first :], case.close[case.first :]
    ledger = ledger_from_fills(curve, fills, result["equity"], assets, close)
    end = None if result["ruin_session"] < 0 else result["ruin_session"] - case.first
    unexplained = ledger.gained - ledger.profit.sum(axis=1) + ledger.cost
    assert np.abs(unexplained[:end]).max(initial=0.0) < 1e-10
    np.testing.assert_array_equal(ledger.shares[-1], result["shares"])
    paid = result["fees"] + result["taxes"] + result["slippage"]
    np.testing.assert_allclose(ledger.cost, paid, rtol=1e-9, atol=1e-10)
    np.testing.assert_allclose(ledger.bought + ledger.sold, result["traded"], atol=1e-10)


@RANDOM
@given(cases())
def test_engine_agrees_with_the_slow_simulator(case):
    result = run_engine(case, record_fills=True)
    assert_same(result, run_slowly(case))
    assert_fills_explain_the_equity(result, case)
    if case.target.min() >= 0 and case.target.sum(axis=1).max() < 1.001:
        assert result["cash"].min() >= 0  # not even by a rounding error


def test_curve_of_one_asset_is_the_product_of_its_trades():
    rng = np.random.default_rng(2)
    close = np.exp(rng.normal(0, 0.02, (400, 1)).cumsum(axis=0))
    target = (np.arange(40) % 2.0).reshape(-1, 1)
    result = _engine.simulate(
        _engine.PriceSet(close=close), target, np.arange(40) * 9,
        options=Options(fee_ratio=0.001425, tax_ratio=0.003, slippage_ratio=0.001),
    )  # fmt: skip
    returns = result["trades"]["return"]
    assert result["equity"][-1] == pytest.approx(np.prod(1 + returns), rel=1e-12)


def test_inputs_that_do_not_fit_are_refused():
    close, signal = np.ones((3, 2)), np.array([0])
    for bad in (np.asfortranarray(close), close.astype(np.float32)):
        with pytest.raises(TypeError):  # it would have to be copied
            _engine.PriceSet(close=bad)
    with pytest.raises(ValueError, match="fill_at must be"):
        _engine.PriceSet(close=close, fill_at="noon")
    prices = _engine.PriceSet(close=close)
    with pytest.raises(ValueError, match="one column for each asset"):
        _engine.simulate(prices, np.ones((1, 3)), signal)
    touched = Options(stop_loss=0.1, touched_exit=True)
    with pytest.raises(ValueError, match="the high prices are needed"):
        _engine.simulate(prices, np.ones((1, 2)), signal, options=touched)
    for name, wrong in (("fee_ratio", "x"), ("touched_exit", 1), ("stop_cooldown", 0.5)):
        with pytest.raises(TypeError, match=rf"{name} must be .*, got {wrong!r}"):
            _engine.simulate(prices, np.ones((1, 2)), signal, options=Options(**{name: wrong}))


def test_the_engine_and_the_options_have_the_same_names():
    assert Options._fields == _engine.OPTION_NAMES


def test_a_short_that_waited_for_its_price_is_covered_beyond_the_cash():
    close = np.array([[10, 10], [10, 10], [10, 12], [10, np.nan], [10, 14]])
    target = np.array([[1.0, -0.5], [1.0, -0.1]])
    result = _engine.simulate(_engine.PriceSet(close=close), target, np.array([0, 2]))
    # 0.6 of cash are there for a short of 0.7 that is to be a tenth of the 0.8 of equity.
    assert result["shares"][1] * 14 == pytest.approx(-0.08)
    assert result["cash"][-1] == pytest.approx(-0.02)
