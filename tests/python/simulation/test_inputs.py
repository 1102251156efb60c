"""Input that is dirty or wrong: a clear error, or a warning that says what was done."""

import re
import warnings

import numpy as np
import pandas as pd
import pytest

import corvex


def with_cell(table: pd.DataFrame, row: int, label: str, value: object) -> pd.DataFrame:
    changed = table.astype(object) if isinstance(value, str) else table.copy()
    changed.iloc[row, changed.columns.get_loc(label)] = value
    return changed


@pytest.mark.parametrize(
    ("change", "message"),
    [
        (lambda w: w.to_dict(), "weights must be a table of dates x asset labels"),
        (lambda w: w.iloc[:0], "weights are empty: 0 dates, 2 assets"),
        (lambda w: w * np.nan, "every value is missing"),
        (lambda w: w.set_axis(["AAA", "AAA"], axis=1), "'AAA' occurs twice"),
        (lambda w: w.set_axis(["AAA x", "AAA y"], axis=1), "'AAA x' and 'AAA y' stand for the"),
        (lambda w: w.set_axis([1, 2], axis=1), "labels must be text, got 1"),
        (lambda w: with_cell(w, 1, "BBB", np.inf), "weight of 'BBB' on 2024-01-03 is inf"),
        (lambda w: with_cell(w, 1, "BBB", "x"), "weight of 'BBB' on 2024-01-03 is 'x'"),
        (lambda w: w.assign(BBB=True), r"mix True/False \(as 'BBB'\) and numbers \(as 'AAA'\)"),
        (lambda w: w.reset_index(drop=True), "index of weights must hold dates"),
        (lambda w: w.set_axis(w.index[[0, 1, 1]], axis=0), "2024-01-03 more than once"),
        (lambda w: w.rename(columns={"BBB": "ZZZ"}), "'ZZZ' has weights but no prices.*2024-01-02"),
    ],
)
def test_weights_that_cannot_be(prices, change, message):
    weights = pd.DataFrame(0.5, index=prices.index[:3], columns=prices.columns)

    with pytest.raises(ValueError, match=message):
        corvex.simulate(change(weights), prices)


@pytest.mark.parametrize(
    ("change", "message"),
    [
        (lambda p: with_cell(p, 2, "BBB", 0.0), "close price of 'BBB' on 2024-01-04 is 0.0"),
        (lambda p: with_cell(p, 2, "BBB", -1.0), "close price of 'BBB' on 2024-01-04 is -1.0"),
        (lambda p: with_cell(p, 2, "BBB", np.inf), "close price of 'BBB' on 2024-01-04 is inf"),
        (lambda p: with_cell(p, 2, "BBB", "n/a"), "price of 'BBB' on 2024-01-04 is 'n/a'"),
        (lambda p: p.assign(BBB=np.nan), "'BBB' has weights but no prices"),
        (lambda p: p.iloc[:0], "prices is empty"),
        (lambda p: p.set_axis(p.index[[0, 1, 2, 3, 3, 5, 6, 7]]), "2024-01-05 more than once"),
        (lambda p: pd.concat([p, p["BBB"]], axis=1), "'BBB' has 2 price columns"),
        (lambda p: {"open": p}, "need a 'close' table; got: open"),
        (lambda p: {"close": p["AAA"]}, r"prices\['close'\] must be a DataFrame"),
        (
            lambda p: {"close": p, "open": p.shift(90, "D")},
            "no date of 'open' is one of the closes'",
        ),
        (lambda p: 3, "prices must be a table of closes"),
        (lambda p: pd.concat({"close": p}, axis=1), "one level of columns"),
    ],
)
def test_prices_that_cannot_be(prices, change, message):
    weights = pd.DataFrame(0.5, index=prices.index[:3], columns=prices.columns)
    changed = change(prices)
    trade_at = "open" if isinstance(changed, dict) and "close" in changed else "close"

    with pytest.raises(ValueError, match=message):
        corvex.simulate(weights, changed, trade_at=trade_at)


@pytest.mark.parametrize(
    ("options", "message"),
    [
        ({"fee_ratio": 1.0}, "fee_ratio must be a fraction"),
        ({"tax_ratio": -0.1}, "tax_ratio must be a fraction"),
        ({"slippage_ratio": "much"}, "slippage_ratio must be a number"),
        ({"stop_loss": 0}, "stop_loss must be a fraction above 0"),
        ({"take_profit": -1}, "take_profit must be a fraction above 0"),
        ({"position_limit": 0}, "position_limit must be a weight above 0"),
        ({"trade_at": "noon"}, "trade_at must be one of 'open'"),
        ({"trade_at": "open"}, "no 'open' table"),
        ({"trade_at": "ohlc"}, "no '(open|high)' table"),
        ({"stop_loss": 0.1, "touched_exit": True}, "no 'high' table"),
        ({"end": "yesterday-ish"}, "end must be a date"),
        ({"live_performance_start": "soon"}, "live_performance_start must be a date"),
        ({"live_performance_start": 2022}, "must be a date such as '2024-01-31', got 2022"),
        ({"market": 3}, "market must be a name"),
        ({"benchmark": "no_such_table"}, "no_such_table"),
    ],
)
def test_options_that_cannot_be(prices, options, message):
    weights = pd.DataFrame(0.5, index=prices.index[:3], columns=prices.columns)

    with pytest.raises((ValueError, LookupError), match=message):
        corvex.simulate(weights, prices, **options)


@pytest.mark.parametrize(
    ("values", "message"),
    [
        ([100.0, 0.0, 101, 102], "benchmark 'index' is 0.0 on 2024-01-03; .*above zero and finite"),
        ([100.0, np.inf, 101, 102], "'index' is inf on 2024-01-03"),
        ([np.nan, 0.01, -0.02, 0.0], r"'index' is -0.02 on 2024-01-04; .* \(1 \+ returns\)"),
    ],
)
def test_benchmarks_that_are_no_prices_are_refused(prices, values, message):
    benchmark = pd.Series(values, prices.index[:4], name="index")
    with pytest.raises(ValueError, match=message):
        corvex.simulate(prices.iloc[:1] / 300, prices, benchmark=benchmark)


@pytest.mark.parametrize(
    ("rows", "told"),
    [
        ([0, 1, 1, 2], [r"more than once \(as 2024-01-03\); the last value was kept"]),
        ([2, 0, 1], ["benchmark was not in order of date; it was sorted"]),
        ([], ["the benchmark 'index' has no value on any date; nothing is compared with it"]),
        ([5, 5], ["the benchmark 'index' has no value on any date"]),
    ],
)
def test_benchmarks_are_mended_aloud(prices, rows, told):
    values = pd.Series([90.0, 95, 100, 101, 102, np.nan, 1, 1], prices.index, name="index")
    benchmark = values.iloc[rows]
    if len(rows) == 4:
        benchmark.iloc[1] += 5.0
    with pytest.warns(UserWarning) as caught:
        report = corvex.simulate(prices.iloc[:1] / 300, prices, benchmark=benchmark)
    messages = [str(one.message) for one in caught if "covers" not in str(one.message)]
    assert [re.search(*pair) is not None for pair in zip(told, messages, strict=True)] == [True]
    if values.iloc[rows].notna().any():
        assert report.benchmark.tolist() == values.iloc[:3].tolist()


def test_crossed_bars_are_refused_where_stops_read_them(prices):
    weights = pd.DataFrame({"AAA": [1.0]}, index=prices.index[:1])
    bars = {"close": prices, "high": prices + 1, "low": prices - 1}
    bars["low"] = with_cell(bars["low"], 3, "AAA", 200.0)

    with pytest.raises(ValueError, match="low of 'AAA' on 2024-01-05 is above its high"):
        corvex.simulate(weights, bars, stop_loss=0.1, touched_exit=True)


def test_what_is_mended_is_said(prices):
    weights = pd.DataFrame(0.5, index=prices.index[:3], columns=prices.columns)
    clean = corvex.simulate(weights[["AAA"]], prices)

    with pytest.warns(UserWarning, match="prices was not in order of date.*it was sorted"):
        unsorted = corvex.simulate(weights[["AAA"]], prices.iloc[::-1])
    with pytest.warns(UserWarning, match="first that of 'BBB' on 2024-01-03.*never held") as caught:
        unheld = corvex.simulate(weights.assign(BBB=0.0), with_cell(prices, 1, "BBB", 0.0))
    with pytest.warns(UserWarning, match="no prices for 'ZZZ'; they are never held"):
        unpriced = corvex.simulate(weights[["AAA"]].assign(ZZZ=0.0), prices)
    with pytest.warns(UserWarning, match="2 dates of 'open' that the close table does not have"):
        corvex.simulate(weights, {"close": prices.drop(prices.index[[3, 4]]), "open": prices},
                        trade_at="open")  # fmt: skip

    assert caught[0].filename == __file__
    for report in (unsorted, unheld, unpriced):
        pd.testing.assert_series_equal(report.creturn, clean.creturn, check_freq=False)
    assert unpriced.position.columns.tolist() == ["AAA", "ZZZ"]


def test_forms_of_signals_and_dates(prices):
    signals = prices > prices.iloc[0]
    expected = corvex.simulate(signals, prices).creturn

    shifted = signals.astype(object).where(signals, None)
    nullable = signals.astype("boolean").where(signals, pd.NA)
    fractions = signals.div(signals.sum(axis=1).replace(0, np.nan), axis=0)
    texts = signals.set_axis(signals.index.strftime("%Y-%m-%d"))

    for form in (shifted, nullable, fractions, fractions.astype("Float64"), texts):
        pd.testing.assert_series_equal(corvex.simulate(form, prices).creturn, expected)
    one = corvex.simulate(prices["AAA"].notna(), prices["AAA"])
    assert one.creturn.iloc[-1] == pytest.approx(1.21)


def test_a_table_in_another_zone_meets_the_closes_by_date(prices):
    weights = pd.DataFrame(0.5, index=prices.index[:3], columns=prices.columns)
    expected = corvex.simulate(weights, {"close": prices, "open": prices + 1}, trade_at="open")

    for zone in ("UTC", "Asia/Taipei"):
        opens = (prices + 1).tz_localize(zone)
        report = corvex.simulate(weights, {"close": prices, "open": opens}, trade_at="open")
        pd.testing.assert_series_equal(report.creturn, expected.creturn)


def test_guesses_beside_bars_are_pointed_out(days):
    prices = pd.DataFrame({"AAA": 1.0}, pd.date_range(days[0], periods=48, freq="h"))

    with pytest.warns(UserWarning, match="each row counts from the end of its day") as caught:
        report = corvex.simulate(pd.DataFrame({"AAA": [1.0]}, index=days[:1]), prices)
    moved = prices.shift(30, "min")  # no bar at midnight: nothing to take a date for
    silent = corvex.simulate(pd.DataFrame({"AAA": [1.0]}, index=days[:1]), moved)

    times = prices.index[[3]]
    with pytest.warns(UserWarning, match="read on the clock of the prices"):
        corvex.simulate(pd.DataFrame({"AAA": [1.0]}, times), prices.tz_localize("UTC"))

    assert caught[0].filename == __file__
    assert report.trades.entry_date.tolist() == [days[1]]
    assert silent.trades.entry_date.tolist() == [days[1] + pd.Timedelta("30min")]


@pytest.mark.parametrize(
    ("rows", "options", "message"),
    [
        ((30.0, 20.0), {}, "2024-01-02 sum to 50 and were scaled to 1; .*leverage=True"),
        ((2.0, -0.7), {}, "sum to 2.7 and were scaled"),
        ((2.0, -0.7), {"leverage": True}, None),
        ((1.0, 1.0), {}, None),  # a table of ones is a table of signals
        ((0.334, 0.67), {}, None),
        ((0.5, 0.5), {"stop_loss": 5}, "stop_loss=5 never fires, as no long .* lose .*fractions"),
        ((0.5, 0.5), {"trail_stop": 8.0}, "trail_stop=8 never fires"),
        ((0.5, 0.5), {"take_profit": 10}, "take_profit=10 waits for a gain of 1000%"),
        ((-0.5, 0.0), {"take_profit": 10}, "take_profit=10 never fires, as no short .* win"),
        ((-0.5, 0.5), {"stop_loss": 1.5}, None),
        ((0.5, 0.5), {"stop_loss": 1, "take_profit": float("inf")}, None),
        ((0.5, 0.5), {"days": -30}, "weights begin on 2024-01-02, after the last price"),
    ],
)
def test_settings_that_are_hardly_meant_are_told_once(prices, rows, options, message):
    weights = pd.DataFrame([rows, rows], prices.index[[0, 3]], prices.columns)
    prices = prices.shift(options.pop("days", 0), freq="D")

    with warnings.catch_warnings(record=True) as told:
        warnings.simplefilter("always")
        corvex.simulate(weights, prices, **options)

    assert len(told) == (message is not None)
    assert message is None or re.search(message, str(told[0].message))


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
@pytest.mark.parametrize("hours", [[0], [10, 14]])
def test_a_span_may_be_given_by_year_month_or_number(zone, hours):
    days = pd.bdate_range("2023-11-20", "2024-03-08", tz=zone)
    bars = pd.DatetimeIndex([day + pd.Timedelta(hours=hour) for day in days for hour in hours])
    prices = pd.DataFrame({"AAA": np.linspace(9.0, 11.0, len(bars))}, bars)
    for (start, end), (first, last) in {
        ("2024", "2024-02"): ("2024-01-01", "2024-02-29"),
        (20240105, "2024"): ("2024-01-05", "2024-03-08"),
        ("2023-12", 20231229): ("2023-12-01", "2023-12-29"),
    }.items():
        given = corvex.simulate(prices > 0, prices, market="us_stock", start=start, end=end)
        plain = corvex.simulate(prices > 0, prices, market="us_stock", start=first, end=last)
        assert given.creturn.equals(plain.creturn)
        assert zone is not None or str(given.creturn.index[-1].date()) == last
