"""Weights and prices from files, simulated; sweeps of a user's own strategy file."""

import json
import re
import shlex
import warnings
from pathlib import Path
from unittest import mock

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.cli.parameter_texts import read_options, read_values
from corvex.cli.readers import table_layout
from corvex.cli.readers.wide_file import read_wide
from corvex.cli.sweep_command import SweepCommand

GUIDE = Path(__file__).parents[3] / "docs" / "command-line.md"
STRATEGY = """
def momentum(prices, lookback, top=2):
    change = prices.pct_change(lookback, fill_method=None)
    return change.rank(axis=1, ascending=False) <= top
"""


@pytest.fixture
def prices(run):
    draw = np.random.default_rng(4)
    days = pd.bdate_range("2015-01-01", "2019-12-31", name="date")
    steps = draw.normal(0.0005, 0.015, (len(days), 4)).cumsum(axis=0)
    table = pd.DataFrame(100 * np.exp(steps), days, ["A", "B", "0050", "D"])
    table.to_csv("prices.csv")
    with open("momentum.py", "w", encoding="utf-8") as file:
        file.write(STRATEGY)
    return table


def test_weights_and_signals_from_files_are_those_of_simulate(run, prices):
    marks = prices.pct_change(63).rank(axis=1) > 2
    weights = (marks / 2.0).iloc[::21]
    marks.to_csv("marks.csv")
    weights.to_csv("weights.csv", sep=";", decimal=",")
    (prices * 1.01).to_parquet("high.parquet")
    (prices * 0.98).to_csv("low.csv")
    prices["A"].to_csv("index.csv")
    options = {"market": "us_stock", "fee_ratio": 0.001, "tax_ratio": 0.0}
    shared = ["--market", "us_stock", "--fee", "0.001", "--tax", "0", "--out", "."]
    tables = {"close": prices, "high": prices * 1.01, "low": prices * 0.98}
    touched = ["--prices", "close=prices.csv", "--prices", "high=high.parquet"]
    for name, arguments, table, given, more in (
        ("marks.csv", ["--prices", "prices.csv", "--resample", "ME"], marks, prices,
         {"resample": "ME"}),
        ("weights.csv",
         [*touched, "--prices", "low=low.csv", "--trail-stop", "0.1", "--touched-exit",
          "--benchmark", "index.csv", "--start", "2016-02-01"], weights, tables,
         {"trail_stop": 0.1, "touched_exit": True, "benchmark": prices["A"],
          "start": "2016-02-01"}),
    ):  # fmt: skip
        status, out, err = run("simulate", name, *arguments, *shared)
        assert status == 0, err
        expected = corvex.simulate(table, given, **options, **more)
        saved = corvex.load(f"{name.partition('.')[0]}.corvex")
        np.testing.assert_allclose(saved.creturn, expected.creturn, rtol=1e-12)
        np.testing.assert_allclose(saved.benchmark, expected.benchmark, rtol=1e-12)
        assert f"{expected.get_stats()['cagr']:.2%}" in out


def test_wide_files_of_signals_are_looked_at_little(run, tmp_path, monkeypatch):
    tried = mock.Mock(side_effect=table_layout.are_dates)
    monkeypatch.setattr(table_layout, "are_dates", tried)
    days = pd.bdate_range("2020-01-01", periods=120, name="date")
    marks = pd.DataFrame(np.arange(120 * 300).reshape(120, 300) % 7 == 0, days)
    marks.to_csv("marks.csv")
    table, notes = read_wide(tmp_path / "marks.csv")
    assert tried.call_count < 100  # each cell of the head as a date would take ten seconds
    assert notes == []
    assert np.array_equal(table.to_numpy(), marks.to_numpy())


def test_long_form_is_read_like_wide(run, prices):
    marks = prices.pct_change(63).rank(axis=1) > 2
    form = {"id_vars": "date", "var_name": "stock_id"}
    bars = prices.reset_index().melt(**form, value_name="Close")
    bars = bars.assign(High=bars["Close"] * 1.01, Low=bars["Close"] * 0.98)
    bars.to_csv("bars.csv", index=False)
    marks.reset_index().melt(**form, value_name="signal").to_csv("signals.csv", index=False)
    more = ["--resample", "ME", "--market", "us_stock", "--trail-stop", "0.1", "--touched-exit"]
    status, _, err = run("simulate", "signals.csv", "--prices", "bars.csv", *more, "--out", ".")
    assert status == 0, err
    tables = {"close": prices, "high": prices * 1.01, "low": prices * 0.98}
    expected = corvex.simulate(
        marks, tables, resample="ME", market="us_stock", trail_stop=0.1, touched_exit=True
    )
    saved = corvex.load("signals.corvex")
    np.testing.assert_allclose(saved.creturn, expected.creturn, rtol=1e-12)
    assert set(saved.trades["symbol"]) == {"A", "B", "0050", "D"}  # ids keep their zeros
    twice = ("--prices", "bars.csv", "--prices", "open=prices.csv")
    assert "give it alone" in run("simulate", "signals.csv", *twice)[2]


def test_accounts_come_from_files(run, prices, tmp_path):
    paid = pd.DataFrame({"A": [1.0]}, prices.index[40:41].rename("date"))
    paid.to_csv("paid.csv")
    guide = re.search(r"```toml\n(.*?)```", GUIDE.read_text(encoding="utf-8"), re.S)[1]
    guide = guide.replace("dividends.csv", "paid.csv").replace("AAPL", "A").replace("MSFT", "B")
    (tmp_path / "broker.toml").write_text(guide)
    lots, quoted = (
        {"A": 1, "B": 2, "0050": 1, "D": 1},
        {"A": "USD", "B": "HKD", "0050": "TWD", "D": "USD"},
    )
    fx = pd.DataFrame({"USDTWD": 30.0 + np.arange(len(prices)) % 7}, prices.index.rename("date"))
    fx.to_csv("fx.csv")
    terms = {
        "capital": 1000,
        "lot_size": lots,
        "fee_ratio": {"2000-01-01": 0.001},
        "flows": "flow.csv",
        "base": "USD",
        "currency": quoted,
        "fx": {"USD/TWD": "fx.csv", "USDHKD": dict.fromkeys(map(str, prices.index[::9]), 7.8)},
    }
    (tmp_path / "other.json").write_text(json.dumps(terms))
    (tmp_path / "flow.csv").write_text("date,amount\n2016-01-04,500\n2017-01-03,-100\n")
    marks = prices.pct_change(63).rank(axis=1) > 2
    marks.to_csv("marks.csv")
    rates = pd.Series([0.015, 0.0025], pd.to_datetime(["2020-01-01", "2020-03-16"]))
    accounts = {
        "broker.toml": corvex.Account(
            capital=100_000, cash_rate=rates, lot_size=1, min_fee=1, max_fee_ratio=0.01,
            fee_table={0: 0.001, 50_000: 0.0005}, borrow_rate=pd.Series({"A": 0.003, "B": 0.004}),
            dividends=paid,
        ),
        "other.json": corvex.Account(
            capital=1000, lot_size=pd.Series(lots), base="USD", currency=quoted,
            fee_ratio=pd.Series([0.001], [pd.Timestamp("2000-01-01")]),
            fx={"USDTWD": fx["USDTWD"], "USDHKD": 7.8},
            flows=pd.Series([500.0, -100.0], pd.to_datetime(["2016-01-04", "2017-01-03"])),
        ),
    }  # fmt: skip
    for file, account in accounts.items():
        arguments = ("--account", file, "--resample", "ME", "--market", "us_stock", "--out", ".")
        status, _, err = run("simulate", "marks.csv", "--prices", "prices.csv", *arguments)
        assert status == 0, err
        with warnings.catch_warnings(action="ignore"):
            expected = corvex.simulate(
                marks, prices, resample="ME", market="us_stock", account=account
            )
        np.testing.assert_allclose(corvex.load("marks.corvex").account, expected.account)
    varied = ("--option", "account=none,broker.toml,other.json", "--store", "kept", *SWEEP[1:6])
    status, out, err = run("sweep", *varied)
    assert (status, {"none", "broker", "other"} <= set(out.split())) == (0, True), err
    for one, capital in (("other", 1000), ("none", None)):
        where = ("--train", "2YE", "--where", f"account={one}", "--out", "walk.corvex")
        assert run("walk-forward", "kept", *where)[0] == 0
        told = corvex.load("walk.corvex").settings.get("account") or {}
        assert told.get("capital") == capital
    for text, message in (
        ("lot_sise = 1", "broker.toml has an unknown term 'lot_sise'; did you mean 'lot_size'?"),
        ("capital = -1", "broker.toml: capital must be a number above 0"),
        ("capital = ", "broker.toml cannot be read"),
        ('lot_size = { A = "x" }', "broker.toml: lot_size must hold numbers"),
        ('flows = "prices.csv"', "prices.csv holds 4 columns of values; flows is one"),
    ):
        (tmp_path / "broker.toml").write_text(text)
        status, _, err = run("simulate", "marks.csv", "--prices", "prices.csv", *arguments[:1],
                             "broker.toml")  # fmt: skip
        assert (status, message in err) == (1, True), err


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["absent.csv", "--prices", "prices.csv"], "there is no file absent.csv"),
        (["prices.csv", "--prices", "absent"], "no file and no known table; known are us_stocks"),
        (["prices.csv", "--prices", "prices.csv", "--prices", "close=prices.csv"], "two tables"),
        (
            ["words.csv", "--prices", "prices.csv"],
            "column 'B' of words.csv holds 'x' on 2020-01-03",
        ),
        (["prices.csv", "--prices", "prices.csv", "--stop-loss", "-1"], "stop_loss must be"),
    ],
)
def test_simulate_says_what_is_wrong_with_its_files(run, prices, tmp_path, arguments, message):
    (tmp_path / "words.csv").write_text("date,A,B\n2020-01-02,1,0\n2020-01-03,1,x\n")
    status, _, err = run("simulate", *arguments)
    assert (status, message in err) == (1, True), err


def test_values_of_parameters_are_read_as_they_are_written():
    assert read_values("63,126", "x") == [63, 126]
    assert read_values("3:7,10:2:-4", "x") == [3, 4, 5, 6, 10, 6]
    assert read_values("none, True,0.1,-1e3,fast", "x") == [None, True, 0.1, -1000.0, "fast"]
    assert read_values('["a,b", 2]', "x") == ["a,b", 2]
    varying, fixed = read_options(["trail_stop=none,0.1", "start=20200101", "resample=ME"])
    assert (varying, fixed) == (
        {"trail_stop": [None, 0.1]},
        {"start": "20200101", "resample": "ME"},
    )
    assert read_options(["benchmark=0050, none", "start=[2015.10]"]) == (
        {"benchmark": ["0050", None]},
        {"start": "2015.1"},
    )
    for wrong in ("", "1,,2", "1:3:0", "3:1", "[1", "[]"):
        with pytest.raises(ValueError):
            read_values(wrong, "x")


SWEEP = (
    *("sweep", "momentum.py:momentum", "--prices", "prices.csv"),
    *("--signal", "lookback=21,63", "--signal", "top=1:3", "--option", "resample=ME"),
    *("--option", "market=us_stock", "--option", "trail_stop=none,0.2"),
)


def test_a_sweep_is_kept_shown_and_walked_forward(run, prices, tmp_path):
    status, out, err = run(*SWEEP, "--store", "runs", "--html", ".", "--check-lookahead")
    assert (status, "look-ahead" in err) == (0, False), err
    names: dict = {}
    exec(STRATEGY, names)
    found = corvex.sweep(
        names["momentum"], prices, signal={"lookback": [21, 63], "top": [1, 2]},
        options={"trail_stop": [None, 0.2]}, resample="ME", market="us_stock", keep="curves",
    )  # fmt: skip
    assert "the best 8 of 8 runs by daily_sharpe" in out
    shown = [line.split() for line in out.splitlines() if re.match(r"  (21|63) ", line)]
    expected = found.best(count=8)
    assert [row[3:5] for row in shown] == [
        [f"{row['daily_sharpe']:.2f}", f"{row['cagr']:.2%}"] for _, row in expected.iterrows()
    ]
    assert "none" in {row[2] for row in shown}
    assert (tmp_path / "momentum.html").stat().st_size > 100_000
    again = run("show", "runs")[1]
    assert again.partition("Runs kept")[0] == out.partition("Runs kept")[0]

    arguments = ("--train", "2YE", "--where", "trail_stop=none", "--out", "walk.corvex")
    status, out, err = run("walk-forward", "runs", *arguments)
    assert status == 0, err
    assert f"{tmp_path / 'momentum.py'}:momentum runs" in err
    walk = corvex.walk_forward(found, "2YE", "1YE", where={"trail_stop": None})
    np.testing.assert_allclose(corvex.load("walk.corvex").creturn, walk.report.creturn, rtol=1e-12)
    assert out.count("2015-01-01/2016-12-30") == 1
    assert f"{walk.efficiency:.2f}" in out

    for name in ("ME", "a=b.csv"):  # what looks like a file's name, and the other way round
        prices.to_csv(name)
    given = {"prices": ["close=prices.csv", "a=b.csv"], "option": ["resample=ME", "benchmark=ME"]}
    shared = {"signal": [], "curves": True, "riskfree": 0.0, "max_size": 1}
    SweepCommand(strategy="momentum.py:momentum", **shared, **given).write(tmp_path)
    kept = SweepCommand.read(tmp_path)
    assert kept.prices == [f"close={tmp_path}/prices.csv", f"{tmp_path}/a=b.csv"]
    assert kept.option == ["resample=ME", f'benchmark=["{tmp_path}/ME"]']

    command = json.loads((tmp_path / "runs/command.json").read_text())
    # A value means what it meant to the sweep: the text of a date, or a number.
    read = SweepCommand(**{**command, "option": ["start=2015,2016"]})
    assert read.labels(["start=2015", "lookback=21"]) == {"start": "2015", "lookback": 21}
    assert "no run has top=7; there are 1, 2" in run("walk-forward", "runs", "--where", "top=7")[2]
    for changed, message in (
        ({"strategy": f"{tmp_path}/runs/momentum.py:momentum"}, "brings its strategy along"),
        ({"curves": False}, "keeps no curves"),
        ({"strange": 1}, "cannot be read"),
    ):
        (tmp_path / "runs/command.json").write_text(json.dumps(command | changed))
        assert message in run("walk-forward", "runs")[2]


@pytest.mark.slow
def test_a_sweep_runs_on_a_cluster(run, prices):
    distributed = pytest.importorskip("distributed")
    options = {"processes": True, "threads_per_worker": 1, "dashboard_address": None}
    here = run(*SWEEP)
    with distributed.LocalCluster(n_workers=2, silence_logs="CRITICAL", **options) as cluster:
        assert run(*SWEEP, "--dask", cluster.scheduler_address) == here


@pytest.mark.slow
def test_the_guides_commands_run(run, prices, tmp_path):
    text = GUIDE.read_text(encoding="utf-8")
    (weights,) = re.findall(r"```csv\n(.*?)```", text, re.S)
    (tmp_path / "weights.csv").write_text(weights)
    corvex.data.sample("us_stocks").loc["2020":"2021"].to_csv("prices.csv")
    blocks = re.findall(r"```\n(corvex (?:simulate|sweep) .*?)```", text, re.S)
    assert len(blocks) == 2
    for block in blocks:
        status, out, err = run(*shlex.split(block.replace("\\\n", " "))[1:])
        assert (status, "Page written to" in out) == (0, True), err
    assert run("show", "runs/momentum", "--best", "1")[0] == 0


def test_an_interrupted_sweep_shows_what_is_done(run, prices, tmp_path):
    stop = "def stopped(prices, lookback, top):\n    if lookback == 63:\n"
    stop += "        raise KeyboardInterrupt\n    return momentum(prices, lookback, top)\n"
    (tmp_path / "momentum.py").write_text(STRATEGY + stop)
    words = [word.replace(":momentum", ":stopped") for word in SWEEP]
    status, out, err = run(*words, "--store", "runs")
    assert (status, "failed" in out) == (130, False)
    assert ("interrupted: 4 of 8" in err, "Runs kept in runs" in out) == (True, True)
    status, out, _ = run("walk-forward", "runs", "--train", "2YE", "--where", "trail_stop=none")
    assert (status, out) == (130, "")  # nothing is chosen among half of the runs


def test_sweep_says_what_cannot_be_swept(run, prices):
    for changed, message in (
        ({1: "momentum.py"}, "is named FILE.py:function"),
        ({1: "absent.py:f"}, "there is no file absent.py"),
        ({1: "momentum.py:momentun"}, "it has momentum"),
        ({5: "lokback=3"}, "did you mean 'lookback'?"),
        ({13: "trailstop=1,2"}, "did you mean 'trail_stop'?"),
        ({5: "lookback"}, "name=value,value"),
        ({13: "store=x"}, "options name an unknown argument 'store'"),
        ({5: "top=1,2"}, "'top' is given twice"),
        ({5: "lookback=x"}, "no run came to an end"),
    ):
        status, _, err = run(*(changed.get(at, word) for at, word in enumerate(SWEEP)))
        assert (status, message in err) == (1, True), err
    assert "no figure 'cagi' ranks runs" in run(*SWEEP, "--figure", "cagi", "--store", "no")[2]
    assert not Path("no").exists()
    assert "exclude each other" in run(*SWEEP, "--workers", "2", "--dask", "tcp://x")[2]


@pytest.mark.slow
def test_a_sweep_in_other_processes_is_the_same(run, prices):
    here = run(*SWEEP)[1]
    assert run(*SWEEP, "--workers", "2")[1] == here
    with open("momentum.py", "a") as file:
        file.write("one = momentum\ndef momentum(prices, lookback, top):\n")
        file.write("    return [one(prices, *pair) for pair in zip(lookback, top, strict=True)]\n")
    assert run(*SWEEP, "--batched", "--store", "runs")[1].startswith(here)
    walk = ("walk-forward", "runs", "--train", "2YE", "--where", "trail_stop=none")
    assert run(*walk)[0] == 0
