import io
import os
import pickle
import re
import shlex
import subprocess
import sys
import time

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.cli.console import Steps
from corvex.plaintext import PlainStream
from corvex.sweeping.progress import Progress


def _csv(path, values, column="equity", start="2024-01-01"):
    index = pd.bdate_range(start, periods=len(values), name="date")
    pd.Series(values, index=index, name=column).to_csv(path)
    return path


@pytest.mark.slow
def test_demo_prints_saves_and_show_prints_it_again(run, tmp_path):
    status, out, err = run("demo")
    assert (status, err) == (0, "")
    assert out.startswith("Momentum 12-1\nUS stocks, 1990-12-31 to 2022-12-28, 32.0 years\n")
    rows = [line for line in out.splitlines() if re.match(r" *[-\d.]+% ┤", line)]
    assert {len(row) for row in rows} == {100}
    steps = re.findall(r"^  (\w[^\n]*?) +[\d.]+ s$", out, re.M)
    later = ["compute the statistics", "sweep 200 variants", "keep three accounts"]
    written = ["write the report", "write its page", "publish and read back"]
    assert steps[2:] == ["simulate", *later, *written, "all"]
    assert "read back from it:\n  held CVX, LLY, MRK, RRC, XOM\n" in out
    saved = tmp_path / "corvex-demo.corvex"
    page = tmp_path / "corvex-demo.html"
    assert sorted(tmp_path.iterdir()) == [saved, page]
    assert f"Report written to {saved}" in out
    assert out.endswith(f"Page written to {page}\n")
    assert "<title>Momentum 12-1</title>" in page.read_text(encoding="utf-8")

    report = corvex.load(saved)
    assert (report.fee_ratio, report.trail_stop) == (0.001, 0.25)
    assert set(report.trades["exit_reason"]) == {"", "rebalance", "trail_stop"}
    held = (report.position > 0).sum(axis=1)
    assert held.max() == 5  # fewer while a stopped one is out
    assert held[held > 0].eq(5).mean() > 0.8
    status, again, _ = run("show", saved)
    assert status == 0
    worth = run("show", saved, "--confidence")[1]
    assert f"{again.strip()}\n\n{worth.strip()}" == out.partition("An account of")[0].strip()
    assert run("show", saved, "--width", 30)[1] != again


def test_demo_writes_where_it_is_told(run, tmp_path):
    (tmp_path / "sub").mkdir()
    assert run("demo", "--out", "sub/mine.pkl")[0] == 0
    assert sorted(os.listdir("sub")) == ["mine.html", "mine.pkl"]
    status, out, err = run("demo", "--out", "absent/mine.pkl")
    assert (status, out) == (1, "")
    assert err.startswith("corvex: error: there is no folder ")


@pytest.mark.parametrize(
    ("content", "message"),
    [
        (None, "there is no file r.pkl"),
        (b"no pickle", "is not a report that this version can read: UnpicklingError"),
        (pickle.dumps([1]), "holds a list, not a report"),
    ],
)
def test_show_says_what_is_wrong_with_the_file(run, tmp_path, content, message):
    if content is not None:
        (tmp_path / "r.pkl").write_bytes(content)
    status, out, err = run("show", "r.pkl")
    assert (status, out) == (1, "")
    assert message in err
    assert err.count("\n") == 1


def test_report_on_equity_prices_and_returns_agree(run, tmp_path):
    values = 100 * np.cumprod(1 + np.random.default_rng(1).normal(0.001, 0.01, 60))
    _csv(tmp_path / "a.csv", values)
    frame = pd.read_csv("a.csv", parse_dates=["date"], index_col="date")
    frame["equity"].pct_change().to_frame("ret").reset_index()[["ret", "date"]].to_csv(
        "b.csv", sep=";", decimal=",", index=False
    )
    frame.to_parquet("c.parquet")
    status, out, err = run("report", "a.csv", "--name", "x")
    assert (status, err) == (0, "")
    assert out.startswith("x\nUS stocks, 2024-01-01 to ")
    status, parquet, err = run("report", "c.parquet", "--name", "x")
    assert (status, parquet) == (0, out)
    status, returns, err = run("report", "b.csv", "--name", "x", "--out", ".")
    assert status == 0
    assert "column 'ret' is read as returns" in err
    assert returns.partition("Report written to")[0].strip() == out.strip()
    saved = corvex.load("x.corvex")
    np.testing.assert_allclose(saved.creturn, values / values[0], rtol=1e-12)


def test_report_takes_a_benchmark_from_a_column_a_file_or_a_sample(run, tmp_path):
    dates = pd.bdate_range("2020-01-01", periods=50, name="date")
    pd.DataFrame({"nav": np.linspace(1, 2, 50), "index": 3.0}, index=dates).to_csv("a.csv")
    _csv(tmp_path / "b.csv", np.zeros(50), "return", "2020-01-01")
    for given in (["INDEX"], ["b.csv"], ["sp500"], []):
        chosen = ["--benchmark", *given] if given else []
        status, out, err = run("report", "a.csv", "--column", "NAV", *chosen)
        assert status == 0, err
        assert "·· benchmark" in out
        assert ("·· benchmark +0.0%" in out) == (given not in (["sp500"], []))
        assert ("(the default of its market)" in out) == (not given)
    status, _, err = run("report", "a.csv", "--column", "nav", "--benchmark", "nothing")
    assert status == 1
    assert "is no column of a.csv, no file and no known table; known are us_stocks" in err


def test_warnings_become_notes(run, tmp_path):
    (tmp_path / "a.csv").write_text("date,equity\n2024-01-04,120\n2024-01-02,100\n2024-01-03,9\n")
    status, out, err = run("report", "a.csv")
    assert (status, "strategy +20.0%" in out) == (0, True)
    assert err.startswith("corvex: note: ")
    assert "sorted" in err


@pytest.mark.parametrize(
    ("text", "args", "message"),
    [
        (None, [], "there is no file a.csv"),
        ("", [], "cannot be read as a table of text"),
        ("x,y\n1,2\n", [], "a.csv has no column of dates; its columns are x ('1' ...), y"),
        ("date,nav\n2024-01-02,1\nsoon,2\n", [], "holds 'soon' in data row 2"),
        ("date,nav\n2024-01-02,1\n2024-01-03,up\n", [], "holds 'up' on 2024-01-03 (data row 2)"),
        ("date,a,b\n2024-01-02,1,2\n", [], "say with --column which one counts: a, b"),
        ("date,a,b\n2024-01-02,1,2\n", ["--column", "c"], "no column 'c'; it has a, b"),
        ("date,nav\n2024-01-02,1,234\n", [], "rows with more cells than its header"),
        ("date,nav\n2024-01-02,-5\n2024-01-03,900\n", [], "must start above zero"),
        ("date,ret\n2024-01-02,-3\n2024-01-03,1\n", [], "a return is a fraction of at least"),
    ],
)
def test_report_says_what_is_wrong_with_a_file(run, tmp_path, text, args, message):
    if text is not None:
        (tmp_path / "a.csv").write_text(text)
    status, out, err = run("report", "a.csv", *args)
    assert (status, out) == (1, "")
    assert err.splitlines()[-1].startswith("corvex: error: ")
    assert message in err


@pytest.mark.slow
def test_the_installed_command():
    def command(*args, **env):
        return subprocess.run(
            [sys.executable, "-W", "error", "-m", "corvex", *args], env={**os.environ, **env},
            capture_output=True, text=True, check=False,
        )  # fmt: skip

    done = command("--version")
    assert (done.returncode, done.stdout) == (0, f"corvex {corvex.__version__}\n")
    done = command("report", "absent.csv")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "corvex: error: there is no file absent.csv\n"
    done = command("--traceback", "report", "absent.csv")
    assert "Traceback" in done.stderr
    assert command("dance").returncode == 2
    for where, status, told in ((">/dev/full", 1, "No space left"), (">&-", 0, "")):
        line = f"{shlex.quote(sys.executable)} -m corvex --version {where}"
        done = subprocess.run(line, shell=True, capture_output=True, text=True, check=False)
        assert (done.returncode, told in done.stderr, "Traceback" in done.stderr) == (
            status, True, False,
        )  # fmt: skip
    assert command("demo", "--out", os.devnull, PYTHONIOENCODING="ascii").returncode == 0


class Terminal(io.StringIO):
    encoding = "utf-8"

    def isatty(self):
        return True


def test_the_progress_of_a_sweep_moves_the_cursor_of_a_guarded_terminal(monkeypatch):
    terminal = Terminal()
    monkeypatch.setattr(sys, "stderr", PlainStream(terminal))
    progress = Progress(None, 2, 0)
    progress.add(2)
    progress.close()
    assert re.fullmatch(r"\r\033\[K2 of 2 runs, .* left\r\033\[K", terminal.getvalue())


@pytest.mark.parametrize(("patience", "shown"), [(0.01, True), (60.0, False)])
def test_progress_appears_only_when_the_work_takes_long(monkeypatch, patience, shown):
    stream = Terminal()
    monkeypatch.setattr("sys.stderr", stream)
    monkeypatch.setattr("corvex.cli.console._PATIENCE", patience)
    end = time.monotonic() + 30.0
    with Steps(2) as steps:
        with steps.step("think"):
            while shown and "think" not in stream.getvalue() and time.monotonic() < end:
                time.sleep(0.01)
        with steps.step("write"):
            pass
    assert ("think" in stream.getvalue()) == shown
    assert [name for name, _ in steps.times] == ["think", "write"]
    assert shown == (steps.times[0][1] >= patience)


def test_show_prints_whole_tables_of_figures_trades_and_the_live_state(run, tmp_path):
    dates = pd.bdate_range("2023-01-02", periods=320)
    draw = np.random.default_rng(5)
    steps = draw.normal(0.001, 0.02, (320, 3)).cumsum(axis=0)
    prices = pd.DataFrame(50 * np.exp(steps), dates, ["A [x]", "B", "C"])
    report = corvex.simulate(
        prices.rank(axis=1) >= 2, prices, resample="ME", market="us_stock", benchmark=prices["B"],
        stop_loss=0.1, live_performance_start=dates[200],
    )  # fmt: skip
    report.to_pickle(str(tmp_path / "r.pkl"))
    status, out, err = run("show", "r.pkl", "--metrics", "--trades", "--live")
    assert (status, err) == (0, "")
    lines = [line.split() for line in out.splitlines()]
    figures = report.get_metrics()
    for section in figures.values():
        for name in section:
            assert any(line[:1] == [name] for line in lines), name
    assert ["endDate", f"{dates[-1]:%Y-%m-%d}"] in lines
    assert ["annualReturn", f"{figures['profitability']['annualReturn']:.2%}"] in lines
    reasons = {"rebalance", "stop-loss", "open"}
    assert sum(line[-1:] != [] and line[-1] in reasons for line in lines) == len(report.trades)
    assert "A [x]" in out
    live = corvex.live_figures(report)
    assert ["days", *(f"{value:.0f}" for value in live.loc["days"])] in lines
    assert any(line[:1] == ["rebalance"] and line[-1] in ("yes", "no") for line in lines)
