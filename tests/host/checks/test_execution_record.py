"""Construction of an execution record, and copies with changes."""

import datetime

import numpy as np
import pandas as pd
import pytest

FIELDS = """weights next_weights resample actions next_trading_date trade_at market stop_loss
    take_profit trail_stop total_weight data_readiness planned_rebalance_date""".split()
SIGNAL = pd.Timestamp("2024-01-31")
NEXT_SIGNAL = pd.Timestamp("2024-02-29")


@pytest.fixture
def build(module):
    def build(cls=module.ReportExecution, **fields):
        values = dict.fromkeys(FIELDS[:10]) | fields
        return cls(**values)

    return build


@pytest.fixture
def record(build, module):
    """A record whose weight series bear their signal dates, as one from a report does."""
    weights = {"weights": {"A": 0.5}, "next_weights": {"A": 0.25, "B": 0.25}}
    dates = {"next_trading_date": "2024-02-01", "planned_rebalance_date": 0, "resample": "ME"}
    others = {"actions": {"A": "hold"}, "stop_loss": 0.1, "data_readiness": {"reason": "x"}}
    record = build(**weights, **dates, **others, market=module.TWMarket())
    record.weights.name = SIGNAL
    record.next_weights.name = NEXT_SIGNAL
    return record


def test_nothing_becomes_an_empty_record(build, module):
    before = datetime.datetime.now()
    record = build()
    assert list(vars(record)) == FIELDS
    for name, series in (("weight", record.weights), ("next_weight", record.next_weights)):
        assert (series.name, series.dtype, len(series)) == (name, np.float64, 0)
    assert (record.actions.dtype, len(record.actions), record.actions.name) == (object, 0, None)
    assert before <= record.next_trading_date <= datetime.datetime.now()
    assert (record.trade_at, record.total_weight) == ("close", 1.0)
    assert type(record.market) is module.TWMarket
    assert record.planned_rebalance_date is record.data_readiness is record.stop_loss is None
    assert repr(record) == str(record) == "<ReportExecution>"


def test_series_are_fresh_named_and_actions_hold_no_gaps(build):
    weights = pd.Series([1.0], index=["A"], name="mine")
    record = build(weights=weights, actions={"A": None, "B": "enter", "C": np.nan, "D": "sl_"})
    weights["A"] = 2.0
    assert record.weights.to_dict() == {"A": 1.0}
    assert (record.weights.name, weights.name) == ("weight", "mine")
    assert record.actions.to_dict() == {"B": "enter", "D": "sl_"}
    assert build(weights=[1, 2]).weights.dtype == np.int64
    assert build(actions=pd.Series(["a", None], index=["A", "B"])).actions.to_dict() == {"A": "a"}


def test_fields_are_normalised(build, module):
    class Other(module.Market):
        pass

    other = Other()
    assert build(market=other).market is other
    assert type(build(market="us_stock").market) is module.TWMarket
    for given, kept in {
        "open": "open",
        "": "",
        "custom": "close",
        None: "close",
        5: "close",
    }.items():
        assert build(trade_at=given).trade_at == kept
    dates = {"planned_rebalance_date": SIGNAL, "next_trading_date": 86400}
    record = build(**dates, total_weight="0.5")
    assert type(record.planned_rebalance_date) is datetime.datetime
    assert record.next_trading_date == datetime.datetime(1970, 1, 2, tzinfo=datetime.UTC)
    assert record.total_weight == 0.5
    with pytest.raises(ValueError, match="Unsupported datetime value"):
        build(planned_rebalance_date=[])
    with pytest.raises(ValueError, match="could not convert string to float"):
        build(total_weight="all")


def test_copies_with_changes_keep_class_signal_dates_and_the_original(record, build, module):
    class Mine(module.ReportExecution):
        pass

    half = record.with_total_weight(0.5)
    assert (half.total_weight, record.total_weight) == (0.5, 1.0)
    assert (half.weights.name, half.next_weights.name) == (SIGNAL, NEXT_SIGNAL)
    for field in FIELDS:
        ours, theirs = getattr(half, field), getattr(record, field)
        if isinstance(theirs, pd.Series):
            pd.testing.assert_series_equal(ours, theirs)
            assert ours is not theirs
        elif field != "total_weight":
            assert ours is theirs or ours == theirs
    changed = record._replace(weights={"C": 1.0}, trade_at="custom", stop_loss=None)
    assert (changed.weights.name, changed.next_weights.name) == ("weight", NEXT_SIGNAL)
    assert (changed.trade_at, changed.stop_loss, record.stop_loss) == ("close", None, 0.1)
    assert type(build(cls=Mine)._replace()) is Mine
    with pytest.raises(TypeError, match="unexpected keyword argument 'weight'"):
        record._replace(weight=1)


def test_rebalance_timing_asks_the_rebalance_module(record):
    assert record.rebalance_timing(1, calendar=2) == {"execution": record, "now": 1, "calendar": 2}
