"""Dates at the ends of what can be told, out of order, and changed while a kernel reads them."""

import contextlib
import threading

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex import _engine
from corvex.core.report import query_data_int64

DAY = 86_400_000_000_000
CENTURIES = 146_097 * (DAY // 2)  # half of 400 years, after which weekdays repeat
VALUES = np.exp(np.random.default_rng(0).normal(0.0003, 0.01, 3000).cumsum())
LATEST, EARLIEST = pd.Timestamp("2262-04-11").value, pd.Timestamp("1677-09-22").value


@pytest.mark.parametrize(
    ("times", "shift"),
    [
        (LATEST - np.arange(3000)[::-1] * DAY, -CENTURIES),
        (EARLIEST + np.arange(3000) * DAY, CENTURIES),
        (EARLIEST + np.arange(3000) * 4 * DAY, CENTURIES),  # more than ten years of them
    ],
)
def test_a_curve_has_the_same_figures_four_centuries_away(times, shift):
    def figures(at):
        record = _engine.performance_record(VALUES, at, 0.02)
        bounds = [_engine.period_last_sessions(at, rule) for rule in ("W", "ME", "2QE", "7D")]
        rows = _engine.rows_of_times(at, at[::7], DAY)
        return record, _engine.month_end_rows(at), *bounds, rows, _engine.usual_gap(at)

    there, here = figures(times), figures(times + shift + shift)
    np.testing.assert_equal(there[0], here[0])
    for one, other in zip(there[1:], here[1:], strict=True):
        np.testing.assert_array_equal(one, other)


def test_a_curve_over_all_of_time_grows_for_all_of_it():
    times = np.array([EARLIEST, 0, LATEST])
    figures, *_ = _engine.performance_record(np.array([1.0, 2.0, 4.0]), times, 0.0)
    cagr = figures[_engine.FIGURE_NAMES.index("cagr")]
    years = (LATEST - EARLIEST) / (365.25 * DAY)
    assert cagr == pytest.approx(4 ** (1 / years) - 1)
    assert _engine.usual_gap(times) == -EARLIEST
    assert _engine.rows_of_times(times, times, DAY).tolist() == [0, 1, 2]
    assert _engine.rows_of_times(times, times, 1).tolist() == [0, 1, 2]  # no calendar of all days
    start, end = _engine.period_bounds(times[-1:], "100000YE")
    assert end == np.iinfo(np.int64).max
    assert start < times[-1]


def kernels(values, times, other):
    table = np.ones((len(values), 2))
    _engine.performance_record(values, times, 0.0)
    _engine.return_table(values, times)
    _engine.infer_convention(times)
    _engine.usual_gap(times)
    for ends in (_engine.month_end_rows, _engine.year_end_rows, _engine.day_end_rows):
        assert (ends(times) < len(times)).all()
    assert (_engine.rows_of_times(times, other, DAY) < len(times)).all()
    _engine.rows_at_or_before(times, other)
    _engine.table_cells(table, np.clip(other, -1, 0), np.clip(times, -1, 0))
    for rule in ("D", "3W", "100000ME", "s"):
        with contextlib.suppress(ValueError):  # "strictly ascending"
            _engine.period_last_sessions(times, rule)
        _engine.period_bounds(times, rule)


def test_no_order_of_times_leads_out_of_an_array():
    random = np.random.default_rng(1)
    extremes = np.array([2**63 - 1, -(2**63), 0, DAY, -1])
    for size in [1, 2, 3, 50, 400]:
        for _ in range(20):
            times = random.integers(-(2**63), 2**63 - 1, size)
            times = np.where(random.random(size) < 0.3, random.choice(extremes, size), times)
            kernels(VALUES[:size].copy(), times, times[::-1].copy())


@pytest.mark.slow
def test_another_thread_may_write_while_a_kernel_reads():
    values, times = VALUES.copy(), np.arange(3000) * DAY
    done = threading.Event()

    def disturb():
        random = np.random.default_rng(2)
        while not done.is_set():
            times[random.integers(0, 3000, 300)] = random.integers(-(2**63), 2**63 - 1, 300)
            values[random.integers(0, 3000, 50)] = random.choice([np.nan, 0.0, 1e300, 1.0], 50)

    writer = threading.Thread(target=disturb)
    writer.start()
    try:
        for _ in range(150):
            kernels(values, times, times)
    finally:
        done.set()
        writer.join()


def test_more_positions_than_the_kernels_count_are_refused():
    endless = np.broadcast_to(np.int64(0), 2**32 + 3)
    with pytest.raises(ValueError, match="at most 2147483647 positions"):
        query_data_int64(np.zeros((1, 1)), endless, endless)


@pytest.mark.parametrize("rule", ["-1D", "0D", "99999999W", "-3BME", "0BME", "9999999BQE"])
def test_a_rule_without_a_period_is_refused(rule):
    prices = pd.DataFrame({"A": 1.0}, index=pd.bdate_range("2024-01-01", periods=30))
    with pytest.raises(ValueError, match="frequency|reaches beyond the dates") as refusal:
        corvex.simulate(prices.iloc[:1], prices, resample=rule)
    assert rule in str(refusal.value)


def test_missing_values_of_any_type_are_missing_and_no_curve_is_infinite():
    prices = pd.DataFrame({"A": 1.0, "B": 2.0}, index=pd.bdate_range("2024-01-01", periods=4))
    odd = prices.astype(object)
    odd.iloc[2] = [pd.NA, pd.NaT]
    plain = corvex.simulate(prices.iloc[:2] / 4, prices.mask(odd.isna()), market="us_stock")
    weights = (prices.iloc[:3] / 4).astype(object).mask(odd.isna().iloc[:3], pd.NA)
    given = corvex.simulate(weights, odd, market="us_stock")
    pd.testing.assert_series_equal(given.creturn, plain.creturn)
    odd.iloc[1, 0] = 1 + 2j
    with pytest.raises(ValueError, match="'A' on 2024-01-02 is .1.2j., not a number"):
        corvex.simulate(weights, odd)
    prices.iloc[2] = 1e-300
    prices.iloc[3] = 1e300
    steps = pd.DataFrame({"A": [0.5, 0.5, 0.5]}, index=prices.index[:3])
    with pytest.raises(ValueError, match="the equity is no finite number on 2024-01-0"):
        corvex.simulate(steps.iloc[[1]], prices)
    prices.iloc[2] = 5e-324
    with pytest.raises(ValueError, match="more shares than a number holds"):
        corvex.simulate(steps, prices, resample="D")


@pytest.mark.parametrize("year", [1, 1500, 2300, 12_000, 290_000])
def test_dates_that_cannot_be_told_are_named(year):
    index = pd.DatetimeIndex(np.array([f"{year:04d}-01-05", f"{year:04d}-01-06"], dtype="M8[s]"))
    known = pd.DataFrame({"A": [1.0, 2.0]}, index=pd.bdate_range("2024-01-01", periods=2))
    curve, told = pd.Series([1.0, 2.0], index=index), f"holds {index.values[0]}"[:12]
    for attempt in (
        lambda: corvex.simulate(known, known.set_axis(index)),
        lambda: corvex.simulate(known.set_axis(index), known),
        lambda: corvex.simulate(known, known, resample=index),
        lambda: corvex.simulate(known, known, end=index[0]),
        lambda: corvex.from_equity(curve),
        curve.calc_stats,
        lambda: corvex.markets.get_market_by_name("crypto").bound_to(known.set_axis(index)),
    ):
        with pytest.raises(
            ValueError, match=r"dates must lie between 167[78]-.* and 226[12]-"
        ) as refusal:
            attempt()
        assert told in str(refusal.value)
    if year == 12_000:
        zoned = index.tz_localize("UTC").tz_convert("Asia/Taipei")
        mixed = pd.Index([zoned[0], "2024-01-05"], dtype=object)
        with pytest.raises(ValueError, match="must hold dates"):
            corvex.from_equity(pd.Series([1.0, 2.0], index=mixed))
