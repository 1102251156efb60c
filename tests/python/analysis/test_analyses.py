import json
import os
import subprocess
import sys

import numpy as np
import pandas as pd
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import corvex
from corvex.analysis import Analysis, add_folder
from corvex.analysis.maeMfeAnalysis import MaeMfeAnalysis
from corvex.markets import get_market_by_name

DATES = pd.bdate_range("2024-01-01", periods=40)


def _report(volume=True, **columns):
    """A falling and rising curve; three closed trades, one of them lost, and an open one."""
    close = pd.DataFrame({"A": 10.0, "B": 20.0}, index=DATES)
    tables = {"close": close, "volume": close * 10} if volume else close
    curve = pd.Series([100.0, 110, 99, 88, 105, 121] + [121.0] * 34, index=DATES)
    position = pd.DataFrame(0.5, index=DATES, columns=["A", "B"])
    market = get_market_by_name("us_stock").bound_to(tables, benchmark=close["A"])
    report = corvex.Report(curve, position, 0.001, 0, "close", DATES[-1], market)
    entry, left = DATES[[1, 2, 3, 20]], DATES[[5, 6, 7]].append(pd.DatetimeIndex([pd.NaT]))
    report.trades = pd.DataFrame(
        {
            "symbol": ["A Alpha", "B", "B", "A Alpha"],
            "entry_sig_date": entry,
            "exit_sig_date": left,
            "entry_date": entry,
            "exit_date": left,
            "return": [0.1, -0.2, 0.3, 0.0],
            "position": 0.5,
            **columns,
        }
    )
    return report


def test_the_largest_drawdowns_are_plain_json():
    result = _report().run_analysis("Drawdown", display=False, n=1)
    fall = {
        "start": "2024-01-02",
        "end": "2024-01-08",
        "valley": "2024-01-04",
        "length": 6,
        "depth": pytest.approx(88 / 110 - 1),
    }
    assert result == {
        "strategy": {"largest_drawdown": [fall]},
        "benchmark": {"largest_drawdown": []},
    }
    json.dumps(result, allow_nan=False)


def test_liquidity_describes_the_fills_and_leaves_the_win_ratio_alone(capsys):
    report = _report()
    result = report.run_analysis("liquidity")
    # A trades 10 x 100 a day, B 20 x 200; entries in A, B, B, A and exits in A, B, B.
    assert report.trades["turnover@entry_date"].tolist() == [1000, 4000, 4000, 1000]
    assert [row["fills"] for row in result["turnover"]] == [4, 3]
    assert result["turnover"][0]["median"] == 2500
    assert result["capacity"][0] == {"share": 0.01, "capital": pytest.approx(0.01 * 1000 / 0.5)}
    assert result["warning_stock_ratio"] is None
    assert "Capital by share" in capsys.readouterr().out
    assert report.get_stats()["win_ratio"] == pytest.approx(2 / 3)


@pytest.mark.parametrize(
    "rows", [DATES, DATES.append(DATES[[1]]), DATES.append(pd.DatetimeIndex([pd.NaT]))]
)
@pytest.mark.parametrize("labels", [["1", "2"], [1, 2], ["1 Alpha", "2"], ["1 Other", "2 Beta"]])
def test_liquidity_reads_tables_however_they_are_labelled(labels, rows):
    report = _report()
    expected = report.run_analysis("liquidity", display=False)
    report = _report(symbol=["1 Alpha", "2", "2", "1 Alpha"])
    close = pd.DataFrame([[10.0, 20.0]], index=rows, columns=labels)
    report.market = report.market.bound_to({"close": close, "volume": close * 10})
    assert report.run_analysis("liquidity", display=False) == expected
    assert report.trades["turnover@exit_date"].iloc[:3].tolist() == [1000, 4000, 4000]
    assert report.get_stats()["win_ratio"] == pytest.approx(2 / 3)


def test_liquidity_reads_the_trading_restrictions(monkeypatch):
    report = _report()
    listed = pd.DataFrame({"B": np.nan}, index=DATES)
    listed.loc[DATES[2]] = 1.0
    kinds = {"disposal": listed, "warning": listed.iloc[[2, 3]]}
    monkeypatch.setattr(
        type(report.market), "get_status", lambda self, kind: kinds.get(kind, pd.DataFrame())
    )
    result = report.run_analysis("Liquidity", display=False)
    assert report.trades["disposal_stock@entry_date"].tolist() == [0, 1, 0, 0]
    assert result["disposal_stock_ratio"] == 0.25
    # A date that is not in the table is not known to be free of the restriction.
    assert "warning_stock@entry_date" not in report.trades
    assert result["warning_stock_ratio"] == 0.5


@pytest.mark.parametrize("name", ["Liquidity", "MaeMfe", "Drawdown"])
def test_analyses_say_what_is_missing(name, capsys):
    report = _report(volume=False)
    for trades in (report.trades, pd.DataFrame()):
        report.trades = trades
        columns = list(trades.columns)
        json.dumps(report.run_analysis(name), allow_nan=False)
        assert list(report.trades.columns) == columns
        shown = capsys.readouterr().out
        assert name == "Drawdown" or "No traded volume" in shown or "Not in this report" in shown


def test_excursions_by_outcome():
    report = _report(mae=[-0.1, -0.3, -0.2, -9.0], mfe=[0.4, 0.0, 0.6, 9.0])
    result = report.display_mae_mfe_analysis(quantiles=[0.5])
    groups = {row["group"]: row for row in result["groups"]}
    assert groups["all"]["edge_ratio"] == pytest.approx((1.0 / 3) / 0.2)
    assert groups["winners"]["mfe"] == pytest.approx(0.5)
    assert groups["losers"] == {
        "group": "losers",
        "trades": 1,
        "return": -0.2,
        "mae": -0.3,
        "mfe": 0.0,
        "edge_ratio": 0.0,
    }
    assert result["distribution"][0]["mae"] == pytest.approx(-0.2)
    assert result["missing"] == ["mfe_before_mae", "max_drawdown", "days_in_profit"]
    # The driver's own table serves where the trades have no such columns.
    bare = _report()
    bare.mae_mfe = report.trades[["mae", "mfe"]]
    assert bare.run_analysis("MaeMfe", display=False, quantiles=[0.5]) == result


def test_the_edge_ratio_follows_the_prices_since_entry():
    close = pd.DataFrame({"A": 10.0, "B": 20.0}, index=DATES)
    # A is entered at 10 on the second day and goes 11, 9, 12, 6; its trade ends on the sixth.
    close.loc[DATES[2:6], "A"] = [11.0, 9.0, 12.0, 6.0]
    report = _report(mae=-0.4, mfe=0.2)
    report.market = report.market.bound_to(close)
    report.trades = report.trades.iloc[[0, 1]].assign(position=[0.5, -0.5])
    analysis = MaeMfeAnalysis(bars=[3, 1, 9])
    rows = analysis.analyze(report)["edge"]
    # B's price never moves: it halves the means, until it ends with what its trade records.
    assert [row["bars"] for row in rows] == [1, 3, 9]
    assert [row["held"] for row in rows] == [2, 2, 0]
    assert [row["mfe"] for row in rows] == pytest.approx([0.05, 0.1, 0.2])
    assert [row["mae"] for row in rows] == pytest.approx([0.0, -0.05, -0.4])
    assert [row["edge_ratio"] for row in rows] == [None, pytest.approx(2.0), pytest.approx(0.5)]
    report.trades = report.trades.drop(columns=["mae", "mfe"])
    assert MaeMfeAnalysis(bars=[1]).analyze(report)["edge"][-1]["mae"] == pytest.approx(-0.2)
    figures = analysis.figures()
    assert next(iter(figures)) == "Edge ratio by bars since entry"
    assert list(figures["Return by MAE"].data[0].y) == [0.1]


@settings(max_examples=15, deadline=None)
@given(holes=st.lists(st.tuples(st.integers(0, 39), st.sampled_from(["A", "B"])), max_size=12))
def test_no_analysis_or_market_table_moves_the_win_ratio(holes):
    report = _report(mae=-0.1, mfe=0.2)
    tables = {field: report.market.get_price(field).copy() for field in ("close", "volume")}
    tables["market_value"] = tables["close"].copy()
    for row, asset in holes:
        tables["volume"].loc[DATES[row], asset] = np.nan
        tables["market_value"].loc[DATES[row], asset] = np.nan
    report.market = report.market.bound_to(tables)
    before = len(report.trades), report.get_stats()["win_ratio"]
    for name in ("Liquidity", "MaeMfe", "Drawdown"):
        report.run_analysis(name, display=False)
    report.get_metrics()
    after = len(report.trades), corvex.Report._get_stats.__wrapped__(report, 0.02)["win_ratio"]
    assert after == before
    valued = report.trades.pop("market_value@entry_date")
    closed = report.trades[report.trades["exit_date"].notna()]
    assert not closed.isna().any().any()
    first = tables["market_value"].loc[DATES[1], "A"]
    np.testing.assert_equal(valued.iloc[0], first)


def test_the_edge_ends_where_the_trades_did():
    dates = pd.bdate_range("2023-01-02", periods=120)
    moves = np.random.default_rng(5).normal(0, 0.03, (120, 3))
    close = pd.DataFrame(50 * np.exp(moves.cumsum(axis=0)), dates, list("ABC"))
    bars = {"open": close.shift(1).bfill() * 1.01, "close": close}
    bars |= {"high": np.maximum(*bars.values()) * 1.02, "low": np.minimum(*bars.values()) * 0.98}
    weights = pd.DataFrame([[0.5, -0.3, 0.0], [0.0, -0.3, 0.5]] * 6, dates[:120:10], list("ABC"))
    options = {"stop_loss": 0.05, "touched_exit": True, "trade_at": "open", "slippage_ratio": 0.002}
    result = corvex.simulate(weights, bars, **options).run_analysis("MaeMfe", display=False)
    last, means = result["edge"][-1], result["groups"][0]
    assert {key: last[key] for key in ("mae", "mfe")} == pytest.approx(
        {key: means[key] for key in ("mae", "mfe")}
    )
    assert last["edge_ratio"] == pytest.approx(means["edge_ratio"])


OWN = """
from corvex.analysis import Analysis

class HoldingAnalysis(Analysis):
    def analyze(self, report):
        self.result = report
        return self.result
"""


@pytest.mark.slow
def test_folders_of_the_user_join_the_package(tmp_path):
    (tmp_path / "holdingAnalysis.py").write_text(OWN)
    (tmp_path / "drawdownAnalysis.py").write_text("raise RuntimeError('not ours')")
    code = (
        "import pkgutil, corvex.analysis as a\n"
        "from corvex.analysis.holdingAnalysis import HoldingAnalysis\n"
        "from corvex.analysis.drawdownAnalysis import DrawdownAnalysis\n"
        "HoldingAnalysis().analyze(1)\n"
        "print(sorted({m.name for m in pkgutil.iter_modules(a.__path__) if '_' not in m.name}))\n"
    )
    path = os.pathsep.join([str(tmp_path / "absent"), str(tmp_path)])
    done = subprocess.run(
        [sys.executable, "-W", "error", "-c", code],
        env={**os.environ, "CORVEX_ANALYSIS_PATH": path},
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stderr
    names = ["drawdownAnalysis", "holdingAnalysis", "liquidityAnalysis", "maeMfeAnalysis"]
    assert done.stdout.strip() == str(names)


def test_a_folder_can_be_added_late(tmp_path):
    import corvex.analysis as package

    before = list(package.__path__)
    try:
        add_folder(tmp_path)
        add_folder(tmp_path)
        (tmp_path / "lateAnalysis.py").write_text(OWN.replace("Holding", "Late"))
        report = _report()
        assert report.run_analysis("Late", display=False) is report
        assert package.__path__ == [*before, str(tmp_path)]
    finally:
        package.__path__[:] = before
        sys.modules.pop("corvex.analysis.lateAnalysis", None)


def test_display_renders_in_a_notebook_and_needs_a_result(monkeypatch, capsys):
    shown = []
    shell = type("Shell", (), {"kernel": object()})()
    fake = type(sys)("IPython")
    fake.get_ipython = lambda: shell
    fake.display = type(sys)("IPython.display")
    fake.display.display = shown.append
    monkeypatch.setitem(sys.modules, "IPython", fake)
    monkeypatch.setitem(sys.modules, "IPython.display", fake.display)
    _report().run_analysis("Drawdown")
    assert [type(table) for table in shown] == [pd.DataFrame, pd.DataFrame]

    class Unfinished(Analysis):
        def analyze(self, report):
            return None

    with pytest.raises(RuntimeError, match=r"call Unfinished\.analyze\(report\) before display"):
        Unfinished().display()
    capsys.readouterr()
