"""What a report of the real package sends, and the reading of whatever comes back."""

from __future__ import annotations

import base64
import gzip
import json

import pandas as pd
import pytest
from hypothesis import given
from hypothesis import strategies as st

import corvex
from corvex.core.report import Report

KEYS = st.sampled_from(
    "schema report execution holdings payload_v1 timestamps strategy metrics trades other".split()
)
SCALARS = st.none() | st.booleans() | st.integers() | st.floats() | st.text(max_size=5)
JSON = st.recursive(
    SCALARS,
    lambda value: st.lists(value, max_size=3) | st.dictionaries(KEYS | st.text(), value),
    max_leaves=12,
)
ENVELOPES = st.dictionaries(KEYS, JSON) | st.fixed_dictionaries(
    dict.fromkeys(("timestamps", "strategy", "metrics", "trades"), SCALARS),
    optional={"report": JSON},
)


@pytest.fixture(scope="module")
def report():
    prices = corvex.data.sample("us_stocks_adjusted_close_daily_1990_2022").loc["2018":]
    best = prices.pct_change(60).rank(axis=1) > 16
    return corvex.simulate(best, prices, resample="ME", benchmark=prices.mean(axis=1))


def test_trades_of_real_prices_are_read_back(report):
    payload = json.loads(json.dumps(report.to_payload_dict(trades_limit=None)))
    packed = payload["report"]["trades"]
    rows = json.loads(gzip.decompress(base64.b64decode(packed, validate=True)))
    assert len(rows) == len(report.trades) > 50
    dates = pd.to_datetime(pd.Series([row["exitDate"] for row in rows], dtype="Int64"), unit="ms")
    assert dates.isna().any()
    dates, exits = (d.dt.as_unit("ns") for d in (dates, report.trades["exit_date"]))
    pd.testing.assert_series_equal(dates, exits, check_names=False, check_index=False)
    returns = pd.Series([row["return"] for row in rows], dtype=float)
    assert (returns - report.trades["return"].to_numpy()).abs().max() < 1e-9
    assert Report.from_payload(payload)["report"] == payload["report"]


@given(ENVELOPES | JSON)
def test_reading_an_envelope_gives_its_parts_or_says_what_it_is(value):
    if not isinstance(value, dict):
        with pytest.raises(ValueError, match="^payload should be dict, got <class '.*'>$"):
            Report.from_payload(value)
        return
    envelope = Report.from_payload(value)
    assert list(envelope) == ["schema", "report", "execution", "holdings"]
    inner = value.get("payload_v1")
    source = inner if isinstance(inner, dict) else value
    bare = source.get("report") is None and {"timestamps", "strategy", "metrics", "trades"} <= set(
        source
    )
    for part, found in envelope.items():
        assert found is (source if bare and part == "report" else source.get(part))
