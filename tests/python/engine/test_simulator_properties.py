"""Identities that hold on every input, and the engine's promises about memory and types."""

import numpy as np
import pytest
from hypothesis import given

from corvex import _engine

from .test_simulator_random import RANDOM, cases, run_engine


def held_price(case, session, asset):
    """The last known price at a close, from closes alone."""
    known = case.close[: session + 1, asset]
    known = known[~np.isnan(known)]
    return known[-1] if len(known) else np.nan


@RANDOM
@given(cases(gaps=False))
def test_accounts_balance(case):
    result = run_engine(case)
    # What the account holds at the end is what its shares are worth.
    final = sum(
        shares * held_price(case, len(case.close) - 1, asset)
        for asset, shares in enumerate(result["shares"])
        if shares
    )
    holdings = result["equity"] - result["cash"]
    assert holdings[-1] == pytest.approx(final, rel=1e-12, abs=1e-12)
    if np.abs(case.target).sum(axis=1).max(initial=0) <= 1 and (case.target >= 0).all():
        assert result["cash"].min() >= 0
    closed = result["trades"]["exit_session"] >= 0
    assert all(np.isfinite(column[closed]).all() for column in result["trades"].values())


def test_curve_of_one_asset_is_the_product_of_its_trades():
    rng = np.random.default_rng(2)
    close = np.exp(rng.normal(0, 0.02, (400, 1)).cumsum(axis=0))
    target = (np.arange(40) % 2.0).reshape(-1, 1)
    result = _engine.simulate(
        close=close, target=target, signal_session=np.arange(40) * 9, fee_ratio=0.001425,
        tax_ratio=0.003, slippage_ratio=0.001,
    )  # fmt: skip
    returns = result["trades"]["return"]
    assert result["equity"][-1] == pytest.approx(np.prod(1 + returns), rel=1e-12)


def test_a_table_that_would_have_to_be_copied_is_refused():
    close = np.ones((3, 2))
    signal = np.array([0])
    for bad in (np.asfortranarray(close), close.astype(np.float32)):
        with pytest.raises(TypeError):
            _engine.simulate(close=bad, target=np.ones((1, 2)), signal_session=signal)
    with pytest.raises(ValueError, match="one column for each asset"):
        _engine.simulate(close=close, target=np.ones((1, 3)), signal_session=signal)
    with pytest.raises(ValueError, match="fill_at must be"):
        _engine.simulate(close=close, target=np.ones((1, 2)), signal_session=signal, fill_at="noon")
