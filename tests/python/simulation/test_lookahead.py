"""Nothing that happens later changes what happened before."""

import numpy as np
import pandas as pd
import pytest
from hypothesis import given
from hypothesis import strategies as st

import corvex

SESSIONS = 45
DAYS = pd.bdate_range("2024-01-02", periods=SESSIONS)
LABELS = ["AAA", "BBB", "CCC"]


OPTIONS = st.fixed_dictionaries(
    {
        "resample": st.sampled_from([None, "D", "W", "ME", "list"]),
        "trade_at": st.sampled_from(["close", "open", "ohlc"]),
        "fee_ratio": st.sampled_from([0.0, 0.002]),
        "stop_loss": st.sampled_from([None, 0.05]),
        "take_profit": st.sampled_from([None, 0.1]),
        "trail_stop": st.sampled_from([None, 0.08]),
        "touched_exit": st.booleans(),
    }
)


def random_run(rng, gap_share):
    """Price tables with gaps, and weights of both signs; the first day has weights."""
    close = 100 * np.exp(np.cumsum(rng.normal(0, 0.03, (SESSIONS, len(LABELS))), axis=0))
    opens = close * np.exp(rng.normal(0, 0.01, close.shape))
    gaps = rng.random(close.shape) < gap_share
    gaps[[0, -1]] = False  # a gap at the end is an end
    high, low = np.maximum(close, opens) * 1.01, np.minimum(close, opens) * 0.99
    bars = {"close": close, "open": opens, "high": high, "low": low}
    tables = {
        field: pd.DataFrame(np.where(gaps, np.nan, values), DAYS, LABELS)
        for field, values in bars.items()
    }
    rows = np.union1d([0], rng.choice(SESSIONS, rng.integers(1, 20)))
    values = rng.choice([0.0, 0.3, 0.5, -0.2], (len(rows), len(LABELS)))
    values[0] = 0.4
    return tables, pd.DataFrame(values, DAYS[rows], LABELS)


def with_schedule(options, weights):
    listed = options["resample"] == "list"
    return {**options, "resample": weights.index[::2] if listed else options["resample"]}


@pytest.mark.filterwarnings("ignore:the absolute weights")
@given(seed=st.integers(0, 2**32 - 1), options=OPTIONS, last=st.integers(0, SESSIONS - 3))
def test_another_future_leaves_the_past_alone(seed, options, last):
    rng = np.random.default_rng(seed)
    tables, weights = random_run(rng, rng.choice([0.0, 0.1]))
    # The last row has all prices and stays where it is.
    order = np.r_[: last + 1, rng.permutation(np.arange(last + 1, SESSIONS - 1)), SESSIONS - 1]
    shuffled = {
        field: pd.DataFrame(table.to_numpy()[order], DAYS, LABELS)
        for field, table in tables.items()
    }
    day = DAYS[last]
    other = weights.mul(np.where(weights.index <= day, 1, -1), axis=0)
    options = with_schedule(options, weights)

    before = corvex.simulate(weights, tables, **options)
    after = corvex.simulate(other, shuffled, **options)

    pd.testing.assert_series_equal(before.creturn.loc[:day], after.creturn.loc[:day])
    pd.testing.assert_frame_equal(before.position.loc[:day], after.position.loc[:day])
    closed = [report.trades[report.trades.exit_date <= day] for report in (before, after)]
    pd.testing.assert_frame_equal(*(table.reset_index(drop=True) for table in closed))
