"""A sweep's runs are those of `simulate`, whatever varies; what fails is told."""

import concurrent.futures
import datetime
import functools
import itertools
import math
import multiprocessing
import warnings
from unittest import mock

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex import _engine
from corvex.sweeping import values
from corvex.sweeping.run_results import EXTRAS

FIXED = {"market": "us_stock", "fee_ratio": 0.001, "tax_ratio": 0.0}
HOLIDAYS = pd.offsets.CustomBusinessDay(holidays=["2021-01-05"])


def daily(zone=None, count=260, assets="ABCD"):
    draw = np.random.default_rng(7)
    dates = pd.bdate_range("2021-01-04", periods=count, tz=zone)
    steps = draw.normal(0.0005, 0.02, (count, len(assets)))
    return pd.DataFrame(100 * np.exp(steps.cumsum(axis=0)), dates, list(assets))


def intraday(zone="America/New_York"):
    prices = daily(count=6 * 40)
    days = pd.bdate_range("2021-01-04", periods=40, tz=zone)
    bars = [day + pd.Timedelta(hours=10 + hour) for day in days for hour in range(6)]
    return prices.set_axis(pd.DatetimeIndex(bars))


def best_of(prices, lookback, top=2):
    close = prices["close"] if isinstance(prices, dict) else prices
    return close.pct_change(lookback, fill_method=None).rank(axis=1, ascending=False) <= top


def assert_same(found, run, report):
    row, stats = found.figures.iloc[run], report.get_stats()
    assert row["error"] is None
    told = {name: (row[name], stats[name]) for name in [*_engine.FIGURE_NAMES, "win_ratio"]}
    told |= {kind: (row[kind], report.costs[kind]) for kind in ("fees", "tax", "slippage")}
    for name, (own, single) in told.items():
        assert own == single or (math.isnan(own) and math.isnan(single)), (name, own, single)
    assert row["turnover"] == pytest.approx(report.yearly_turnover, rel=1e-12, nan_ok=True)
    assert row["costs"] == report.costs["total"]
    assert row["trades"] == report.trades["exit_date"].notna().sum()


def ohlc(prices):
    return {"close": prices, "open": prices * 0.999, "high": prices * 1.01, "low": prices * 0.99}


WORLDS = {
    "daily": (daily(), {}),
    "in a zone": (daily("Asia/Taipei"), {"start": "2021-03-01", "end": "2021-11-30"}),
    "weekly": (daily("America/New_York")[::5], {}),
    "month ends": (daily(count=1500).resample("ME").last(), {}),
    "intraday": (intraday(), {}),
    "intraday without zone": (intraday(None), {"trade_at": "open"}),
    "one session after another": (daily(count=12), {}),
}
OPTIONS = {
    "trail_stop": [None, 0.03],
    "resample": [None, "W"],
    "touched_exit": [False, True],
    "position_limit": [None, 0.3],
}


@pytest.mark.parametrize("world", WORLDS)
def test_each_run_is_that_of_simulate(world):
    prices, more = WORLDS[world]
    prices, fixed = ohlc(prices), {**FIXED, **more}
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        found = corvex.sweep(
            best_of, prices, signal={"lookback": [1, 3], "top": [1, 2]}, options=OPTIONS, **fixed
        )
        assert len(found) == 64
        assert found.figures.index.names == ["lookback", "top", *OPTIONS]
        for run in range(0, 64, 5):
            signal, options = found.source.grid.parameters(run)
            report = corvex.simulate(best_of(prices, **signal), prices, **fixed, **options)
            assert_same(found, run, report)
            again = found.report(**signal, **options)
            pd.testing.assert_series_equal(again.creturn, report.creturn, check_exact=True)


ACCOUNTS = {
    "none": None,
    "cash": corvex.Account(capital=10_000, cash_rate=0.03, lot_size=1, min_fee=1, fee_ratio=0.002),
    "margin": corvex.Account(
        capital=50_000, financing_rate=0.05, borrow_rate=pd.Series({"A": 0.02, "B": 0.1}),
        slippage_ratio=pd.Series({"A": 0.001, "B": 0.0, "C": 0.0, "D": 0.0}),
    ),
}  # fmt: skip


@pytest.mark.parametrize("world", ["daily", "in a zone", "intraday", "one session after another"])
def test_runs_with_accounts_are_those_of_simulate(world, tmp_path):
    prices, more = WORLDS[world]
    fixed = {"market": "us_stock", "leverage": True, "keep": "curves", **more}
    varied = {"account": ACCOUNTS, "trail_stop": [None, 0.03]}

    def strategy(prices, size):
        return pd.DataFrame({"A": [size, size, 0.1], "B": -0.4}, prices.index[[2, 5, 9]])

    swept = {"prices": prices, "signal": {"size": [0.5, 1.2]}, "options": varied, **fixed}
    found = corvex.sweep(strategy, store=tmp_path, **swept)
    del fixed["keep"]
    for run in range(len(found)):
        signal, options = found.source.grid.parameters(run)
        options = {name: values.unwrap(value) for name, value in options.items()}
        report = corvex.simulate(strategy(prices, **signal), prices, **fixed, **options)
        assert_same(found, run, report)
        assert found.curve_of(run).iloc[-1] == report.creturn.iloc[-1]
    alone = {"account": ACCOUNTS["cash"], "options": {"trail_stop": [None, 0.03]}}
    once = corvex.sweep(strategy, **{**swept, **alone})
    same = found.figures.xs("cash", level="account").drop(columns="seconds")
    pd.testing.assert_frame_equal(once.figures.drop(columns="seconds"), same)
    # A second call reads what the store has, of the same accounts alone.
    again = corvex.sweep(strategy, store=tmp_path, **swept)
    pd.testing.assert_frame_equal(again.figures, found.figures)
    other = {**varied, "account": {"cash": corvex.Account(cash_rate=0.04)}}
    changed = corvex.sweep(strategy, store=tmp_path, **{**swept, "options": other})
    assert (changed.figures["cagr"] != same["cagr"].to_numpy()).all()


def test_accounts_need_names_and_go_to_workers_and_through_windows():
    prices = daily(count=600)
    run = {"signal": {"lookback": [1, 20]}, "keep": "curves", "market": "us_stock"}
    with pytest.raises(ValueError, match="of type Account, which cannot stand in an index; give"):
        corvex.sweep(best_of, prices, options={"account": [ACCOUNTS["cash"]]}, **run)
    alone = corvex.sweep(best_of, prices, account=ACCOUNTS["cash"], **run)
    context = multiprocessing.get_context("forkserver")  # polars may have come in by another test
    with concurrent.futures.ProcessPoolExecutor(1, mp_context=context) as pool:
        away = corvex.sweep(best_of, prices, account=ACCOUNTS["cash"], executor=pool, **run)
    pd.testing.assert_frame_equal(*(one.figures.drop(columns="seconds") for one in (alone, away)))
    walk = corvex.walk_forward(alone, train="1YE", test="1YE")
    assert (walk.report.account["interest"] > 0).any()
    both = corvex.sweep(best_of, prices, options={"account": ACCOUNTS}, **run)
    with pytest.raises(ValueError, match="account varies"):
        corvex.walk_forward(both, train="1YE", test="1YE")
    chosen = corvex.walk_forward(both, train="1YE", test="1YE", where={"account": "cash"})
    pd.testing.assert_series_equal(chosen.report.creturn, walk.report.creturn, check_names=False)
    with pytest.warns(
        UserWarning, match="2 of 2 runs failed, the first with ValueError: fee_ratio"
    ):
        corvex.sweep(best_of, prices, account=ACCOUNTS["cash"], fee_ratio=0.1, **run)


@pytest.mark.parametrize("zone", [None, "America/New_York"])
@pytest.mark.parametrize("world", [daily, intraday])
def test_a_signal_from_before_the_prices_trades_in_their_first_session(world, zone):
    prices = world(zone) if world is daily or zone else world()
    before = prices.index[:1] - pd.Timedelta(days=3)
    weights = pd.DataFrame(0.5, before.append(prices.index[20:21]), ["A", "B"])
    weights.iloc[1] = [0.9, 0.1]
    found = corvex.sweep(weights, prices, options={"slippage_ratio": [0.0, 0.01]}, **FIXED)
    for run, slippage in enumerate((0.0, 0.01)):
        assert_same(found, run, corvex.simulate(weights, prices, slippage_ratio=slippage, **FIXED))


def test_strategies_are_called_once_for_each_of_their_combinations():
    calls = []

    def strategy(prices, lookback, *, top):
        calls.append((lookback, top))
        return best_of(prices, lookback, top)

    prices = daily()
    grid = [{"lookback": 5, "top": 1}, {"lookback": 9, "top": 2}, {"lookback": 5, "top": 1}]
    found = corvex.sweep(
        strategy, prices, signal=grid, options={"resample": ["ME", "W", "ME"]}, **FIXED
    )
    assert calls == [(5, 1), (9, 2)]
    assert len(found) == 9  # repeated ones stand where the grid has them
    assert (found.figures["cagr"].iloc[[0, 2, 6, 8]].nunique(), found.errors.size) == (1, 0)
    assert found.trials_statistics.trials == 4
    as_table = corvex.sweep(
        functools.partial(strategy, top=1), prices, signal=pd.DataFrame({"lookback": [5]}), **FIXED
    )
    assert as_table.figures["cagr"].iloc[0] != found.figures["cagr"].iloc[0]  # never resampled
    tables = {"slow": best_of(prices, 40), "fast": best_of(prices, 3)}
    by_name = corvex.sweep(tables, prices, resample="ME", **FIXED)
    report = corvex.simulate(tables["fast"], prices, resample="ME", **FIXED)
    assert_same(by_name, 1, report)
    assert by_name.report(weights="fast").creturn.equals(report.creturn)


def batch_of(prices, lookback, top, form):
    """`best_of` for many combinations at once."""
    made = [best_of(prices, one, best) for one, best in zip(lookback.tolist(), top, strict=True)]
    assert lookback.dtype == np.int64
    if form[0] == "array":
        return np.stack([np.asarray(table) for table in made])
    return {"list": made, "mapping": dict(enumerate(made))}.get(form[0], iter(made))


@pytest.mark.parametrize("form", ["array", "list", "mapping", "iterator"])
@pytest.mark.parametrize("world", ["daily", "in a zone", "intraday"])
def test_a_batched_strategy_gives_the_runs_of_single_calls(form, world):
    prices, more = WORLDS[world]
    prices = ohlc(prices) if form == "list" else prices
    fixed = {**FIXED, **more, "options": {"trail_stop": [None, 0.03]}}
    grid = {"lookback": [1, 3, 5], "top": [1, 2, 20]}
    many = corvex.sweep(
        batch_of, prices, signal={**grid, "form": [form]}, batched=True, keep="curves", **fixed
    )
    single = corvex.sweep(best_of, prices, signal=grid, keep="curves", **fixed)
    numbers = [*_engine.FIGURE_NAMES, *EXTRAS]
    for name in numbers:
        np.testing.assert_array_equal(many.figures[name], single.figures[name], err_msg=name)
    report = many.report(lookback=3, top=2, trail_stop=0.03)
    assert_same(many, 9, report)
    pool = concurrent.futures.ThreadPoolExecutor(2)
    spread = corvex.sweep(
        batch_of, prices, signal={**grid, "form": [form]}, batched=True, executor=pool, **fixed
    )
    pd.testing.assert_frame_equal(spread.figures[numbers], many.figures[numbers], check_exact=True)
    window = {"intraday": "5D"}.get(world, "2ME")
    walk = corvex.walk_forward(many, window, window, where={"trail_stop": None})
    other = corvex.walk_forward(single, window, window, where={"trail_stop": None})
    assert walk.report.creturn.equals(other.report.creturn)


def test_what_a_batched_strategy_gets_wrong_is_told():
    prices, seen = daily(), []

    def strategy(prices, lookback, how=None):
        seen.append(len(lookback))
        if 7 in lookback:
            raise RuntimeError("seven")
        block = np.stack([np.asarray(best_of(prices, one)) for one in lookback])
        return block if how is None else how[0](block)

    def swept(lookback, how=None, **more):
        signal = {"lookback": lookback} | ({} if how is None else {"how": {"it": how}})
        return corvex.sweep(strategy, prices, signal=signal, batched=True, **FIXED, **more)

    with pytest.warns(UserWarning, match="1 of 4 runs failed"):
        found = swept([1, 3, 7, 5])
    assert seen == [4, 1, 1, 1, 1]  # one wrong argument does not cost the others their runs
    assert found.errors.tolist() == ["RuntimeError: seven"]
    with pytest.raises(RuntimeError, match="seven"):
        swept([1, 7], on_error="raise")
    for how, told in (
        (lambda block: block[0], r"must have the shape \(2, 260, 4\).*got \(260, 4\)"),
        (lambda block: block[:1], r"shape \(2, 260, 4\)"),
        (lambda block: (block * 1.0).astype(str), "must hold numbers"),
        (lambda block: np.ma.masked_array(block, True), "every value is missing"),
        (lambda block: [prices] * 3, "given 2 combinations.*returned more"),
        (lambda block: [prices], "returned 1 tables"),
        (lambda block: prices, "got DataFrame"),
    ):
        with pytest.warns(UserWarning, match="2 of 2 runs failed"):
            failed = swept([1, 3], how)
        assert failed.errors.str.contains(told).all(), failed.errors.iloc[0]
    with pytest.raises(ValueError, match="batched=True is for a strategy that is a function"):
        corvex.sweep(prices, prices, batched=True)


def test_parameters_of_any_kind_find_their_run():
    prices = daily()
    other = prices * 1.001
    days = [datetime.date(2021, 2, 1), datetime.date(2021, 3, 1)]

    def strategy(prices, since, floor, how, label=("x", 1)):
        return how(prices[prices.index >= pd.Timestamp(since)]) * (0.5 if floor is None else 0.25)

    found = corvex.sweep(
        strategy,
        prices,
        signal={
            "since": days,
            "floor": [None, float("nan"), np.float64(1.0)],
            "how": {"all": lambda prices: prices.notna() * 0.5},
            "label": [("x", 1), ("y", 2)],
        },
        options={"trade_at": {"close": "close", "own": other}, "start": ["2021-01-20"]},
        **FIXED,
    )
    assert len(found) == 24
    assert found.errors.empty
    one = found.report(since=days[1], floor=float("nan"), label=("y", 2), trade_at="own")
    none = found.report(since=days[1], floor=None, label=("y", 2), trade_at="own")
    assert one.creturn.iloc[-1] < none.creturn.iloc[-1] or one.creturn.iloc[-1] != 1
    assert not one.creturn.equals(none.creturn)
    with pytest.raises(ValueError, match="12 runs have these parameters; give floor, label, trade"):
        found.report(since=days[0])
    with pytest.raises(ValueError, match="no run has floor=2; there are None"):
        found.report(floor=2)
    for row in found.best("cagr", 3).index:
        assert found.report(row).get_stats()["cagr"] in found.figures["cagr"].to_numpy()


@pytest.mark.parametrize(
    ("changed", "error", "text"),
    [
        ({"signal": {"lookbak": [3]}}, ValueError, "no argument 'lookbak'; did you mean 'lookback"),
        ({"signal": {"prices": [3]}}, ValueError, "no argument 'prices'"),
        ({"signal": {}}, ValueError, "missing a required argument: 'lookback'"),
        ({"signal": {"lookback": [daily()]}}, ValueError, "give such values names"),
        ({"signal": {"lookback": daily()}}, ValueError, "give it a name"),
        ({"signal": {"lookback": [HOLIDAYS]}}, ValueError, "give such values names"),
        ({"signal": 3}, ValueError, "signal must be a mapping"),
        ({"signal": pd.DataFrame([[1, 2]], columns=["top"] * 2)}, ValueError, "two columns of one"),
        ({"options": {"trailstop": [1]}}, ValueError, "did you mean 'trail_stop'"),
        ({"options": {"upload": [True]}}, ValueError, "publishes nothing"),
        ({"options": {"fee_ratio": [0.0]}}, ValueError, "'fee_ratio' is in options and fixed"),
        ({"fee_rato": 0.1}, TypeError, "'fee_rato'; did you mean 'fee_ratio'"),
        ({"bached": True}, TypeError, "'bached'; did you mean 'batched'"),
        ({"keep": "all"}, ValueError, "keep must be"),
        ({"riskfree_rate": float("nan")}, ValueError, "riskfree_rate"),
        ({"riskfree_rate": "2%"}, ValueError, "above -1, got '2%'"),
        ({"threads": -1}, ValueError, "threads must be a whole number"),
    ],
)
def test_what_cannot_be_swept_is_told_before_anything_runs(changed, error, text):
    with pytest.raises(error, match=text):
        corvex.sweep(best_of, daily(), **{"signal": {"lookback": [3]}, **FIXED, **changed})


def test_a_run_that_fails_is_a_row_with_its_error(monkeypatch):
    prices = daily()
    steep = prices.copy()
    steep["A"] = np.geomspace(1e-300, 1e300, len(prices))

    def strategy(prices, lookback):
        if lookback == 0:
            raise RuntimeError("no lookback")
        return best_of(prices, lookback)

    arguments = {"signal": {"lookback": [0, 5]}, "options": {"stop_loss": [None, -1.0, 0.1]}}
    with pytest.warns(UserWarning, match=r"4 of 6 runs failed, the first with RuntimeError: no lo"):
        found = corvex.sweep(strategy, prices, **arguments, **FIXED)
    assert list(found.errors.iloc[:3]) == ["RuntimeError: no lookback"] * 3
    assert "stop_loss must be a fraction above 0" in found.errors.iloc[3]
    assert found.figures["cagr"].notna().sum() == 2
    assert len(found.best("cagr")) == 2
    assert found.trials_statistics.trials == 2
    with pytest.raises(RuntimeError, match="no lookback"):
        corvex.sweep(strategy, prices, **arguments, on_error="raise", **FIXED)
    # What has no finite equity says what a single run says, and harms no other.
    held = pd.DataFrame({"A": [1.0, 0.0], "B": [0.0, 1.0]}, index=prices.index[:2])
    tables = {"steep": held.iloc[:1], "calm": held.iloc[1:]}
    with pytest.warns(UserWarning, match="1 of 2 runs failed"):
        found = corvex.sweep(tables, steep, **FIXED)
    with pytest.raises(ValueError) as single:
        corvex.simulate(tables["steep"], steep, **FIXED)
    assert found.errors.iloc[0] == f"ValueError: {single.value}"
    # What the batch alone refuses is no run without a word.
    refusal = mock.Mock(side_effect=ValueError("no batch today"))
    monkeypatch.setattr("corvex.sweeping.runner._engine.simulate_many", refusal)
    with pytest.warns(UserWarning, match="2 of 2 runs failed, the first with ValueError: no batch"):
        assert math.isnan(corvex.sweep(tables, prices, **FIXED).trials_statistics.trials)


def test_warnings_of_single_runs_are_told_once():
    weights = {name: pd.DataFrame(2.0, daily().index[:3], ["A", "B"]) for name in "xyz"}
    with pytest.warns(UserWarning, match="were scaled to 1.*and so in 3 parts") as told:
        corvex.sweep(weights, daily(), options={"fee_ratio": [0.0, 0.1]}, market="us_stock")
    assert len(told) == 1


def test_tables_that_share_dates_and_labels_or_nearly_do_are_each_read_as_they_are():
    prices, draw = daily("Asia/Taipei"), np.random.default_rng(1)
    dates = prices.index[::20]
    plain = pd.DataFrame(draw.uniform(0, 0.4, (len(dates), 4)), dates, prices.columns)
    tables = {
        "plain": plain,
        "equal dates": plain.set_axis(dates.copy()) * 0.5,
        "shifted": plain.set_axis(dates + pd.Timedelta(days=1)),
        "another zone": plain.set_axis(dates.tz_convert("UTC")),
        "by day": plain.set_axis(dates.tz_localize(None)),
        "other labels": plain.set_axis(["A", "B", "D", "C"], axis=1),
        "signals": plain > 0.2,
        "whole": (plain > 0.2).astype(int),
        "holes": plain.where(plain > 0.1),
        "few rows": plain.iloc[:3],
        "after the end": plain.set_axis(dates + pd.Timedelta(days=4000)),
        "infinite": plain * np.inf,
        "plain again": plain * 1.0,
    }
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        found = corvex.sweep(tables, prices, options={"resample": [None, "ME"]}, **FIXED)
        for run, (name, rule) in enumerate(itertools.product(tables, [None, "ME"])):
            if name == "infinite":
                assert "is inf" in found.figures["error"].iloc[run]
                continue
            report = corvex.simulate(tables[name], prices, resample=rule, **FIXED)
            assert_same(found, run, report)


def test_arrays_are_read_with_the_assets_of_their_run():
    prices = daily()
    array, options = (
        np.full((len(prices), 2), 0.5),
        {"assets": {"first": ["A", "B"], "last": ["C", "D"]}},
    )
    found = corvex.sweep(array, prices, options=options, dates=prices.index, **FIXED)
    for run, assets in enumerate(options["assets"].values()):
        report = corvex.simulate(array, prices, assets=assets, dates=prices.index, **FIXED)
        assert_same(found, run, report)


def test_empty_grids_and_single_runs():
    empty = corvex.sweep(best_of, daily(), signal={"lookback": []}, **FIXED)
    assert (len(empty), len(empty.figures), len(empty.best())) == (0, 0, 0)
    assert "0 runs" in repr(empty)
    weights = best_of(daily(), 3)
    single = corvex.sweep(weights, daily(), keep="curves", **FIXED)
    report = corvex.simulate(weights, daily(), **FIXED)
    assert_same(single, 0, report)
    assert single.curves.shape == (260, 1)
    assert single.report().creturn.equals(report.creturn)
    assert single.trials_statistics.trials == 1


def test_ctrl_c_keeps_what_is_done(monkeypatch):
    monkeypatch.setattr("corvex.sweeping.runner._MOST_RUNS", 2)
    done = []

    def strategy(prices, lookback):
        if lookback == 4:
            raise KeyboardInterrupt
        return best_of(prices, lookback)

    with pytest.warns(UserWarning, match="interrupted: 3 of 5 runs are done"):
        found = corvex.sweep(
            strategy, daily(), signal={"lookback": range(1, 6)},
            progress=lambda runs, total: done.append((runs, total)), **FIXED,
        )  # fmt: skip
    assert found.figures["cagr"].notna().tolist() == [True, True, True, False, False]
    assert done == [(2, 5), (3, 5)]
    monkeypatch.undo()
    with pytest.warns(UserWarning, match="interrupted: 3 of 5 runs are done"):
        again = corvex.sweep(strategy, daily(), signal={"lookback": range(1, 6)}, **FIXED)
    pd.testing.assert_series_equal(again.figures["cagr"][:2], found.figures["cagr"][:2])


def test_progress_is_told_when_asked(capsys):
    corvex.sweep(best_of, daily(), signal={"lookback": [3, 4]}, **FIXED)
    assert capsys.readouterr().err == ""
    corvex.sweep(best_of, daily(), signal={"lookback": [3, 4]}, progress=True, **FIXED)
    assert "2 of 2 runs" in capsys.readouterr().err


def test_the_best_of_a_sweep_knows_its_trials():
    draw = np.random.default_rng(0)
    prices = daily(count=600)
    tables = {at: pd.DataFrame(draw.dirichlet(np.ones(4), 30), prices.index[::20], prices.columns)
              for at in range(12)}  # fmt: skip
    found = corvex.sweep(tables, prices, keep="curves", **FIXED)
    known = found.trials_statistics
    returns = found.curves.pct_change().iloc[1:]
    told = corvex.trial_statistics(returns, riskfree=1.02 ** (1 / 252) - 1)
    assert (known.trials, known.overfitting) == (12, pytest.approx(told.overfitting))
    assert known.effective_trials == pytest.approx(told.effective_trials)
    assert known.spread == pytest.approx(told.spread, rel=0.05)
    figures = found.confidence(draws=50).figures
    assert (figures["trials"], figures["pbo"]) == (12, pytest.approx(told.overfitting))
    assert figures["spa_p"] == pytest.approx(told.superiority, abs=0.01)
    last = found.report(weights=3)
    assert found.curves.iloc[-1, 3] == last.creturn.iloc[-1]


def test_heat_maps_show_each_run_in_its_cell():
    with pytest.warns(UserWarning, match="4 of 8 runs failed"):
        found = corvex.sweep(
            best_of, daily(), signal={"lookback": [9, 3], "top": [1, 2]},
            options={"resample": ["W", "<b>"]}, **FIXED,
        )  # fmt: skip
    assert len(found.errors) == 4
    chart = found.heatmap("lookback", "top", "cagr", resample="W")
    assert (list(chart.data[0].x), list(chart.data[0].y)) == (["3", "9"], ["1", "2"])
    for (lookback, top), cell in {(3, 1): (0, 0), (9, 1): (0, 1), (3, 2): (1, 0)}.items():
        assert chart.data[0].z[cell] == found.figures["cagr"].loc[lookback, top, "W"]
    sliding = found.heatmap("top", "resample", "trades")
    assert [step.label for step in sliding.layout.sliders[0].steps] == [
        "lookback = 9",
        "lookback = 3",
    ]
    assert "&lt;b&gt;" in sliding.data[0].y
    with pytest.raises(ValueError, match="did you mean 'lookback'"):
        found.heatmap("lookbak", "top")
    with pytest.raises(ValueError, match="no figure 'sharpe'; did you mean"):
        found.heatmap("lookback", "top", "sharpe")


def test_every_run_has_its_cell_in_xarray():
    found = corvex.sweep(
        best_of, daily(), signal={"lookback": [3, 1], "top": [1, 2]},
        options={"trail_stop": [None, 0.05]}, **FIXED,
    )  # fmt: skip
    cells = found.to_xarray()
    assert dict(cells.sizes) == {"lookback": 2, "top": 2, "trail_stop": 2}
    for place, (_, row) in enumerate(found.figures.iterrows()):
        own = cells.isel(lookback=place // 4, top=place // 2 % 2, trail_stop=place % 2)
        assert own["cagr"].item() == row["cagr"]
        assert own["trades"].item() == row["trades"]
    assert cells["cagr"].sel(lookback=1, top=2, trail_stop=0.05) == found.figures["cagr"].iloc[7]
    rows = corvex.sweep(
        best_of, daily(), signal=[{"lookback": 1, "top": 1}, {"lookback": 3, "top": 2}]
    )
    assert rows.to_xarray()["error"].shape == (2, 2)
    assert int(rows.to_xarray()["cagr"].isnull().sum()) == 2


def test_look_ahead_is_found_in_some_combination():
    def late(prices, shift):
        return prices.shift(shift) > prices.shift(shift + 1)

    with pytest.warns(UserWarning, match=r"shift=-1: look-ahead: .* \(1 of 3 checked"):
        found = corvex.sweep(
            late, daily(), signal={"shift": [-1, 0, 1]}, check_lookahead=True, **FIXED
        )
    kinds = {labels["shift"]: check.kind for labels, check in found.lookahead}
    assert kinds == {-1: "look-ahead", 0: "clean", 1: "clean"}
    with pytest.raises(ValueError, match="a strategy that is a function"):
        corvex.sweep(daily() > 100, daily(), check_lookahead=True, **FIXED)
