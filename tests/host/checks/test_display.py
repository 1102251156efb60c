"""Showing a report in a notebook and writing it as a page."""

import logging
import sys
from types import ModuleType, SimpleNamespace
from unittest import mock

import numpy as np
import pandas as pd
import pytest

NO_NOTEBOOK = (
    "IPython is not installed, so the interactive report cannot be shown; printed a text summary "
    "instead. Install it with `pip install ipython`, or save the report with "
    'report.to_html("report.html"). 未安裝 IPython，已改印文字摘要；可 pip install ipython，或用 '
    'report.to_html("report.html") 輸出網頁報告。'
)


@pytest.fixture
def report(make_report, monkeypatch):
    from corvex.core import dashboard

    dashboard.pages.clear()
    for variable in ("COLAB_GPU", "VSCODE_PID", "JUPYTERHUB_SERVICE_PREFIX", "JPY_PARENT_PID"):
        monkeypatch.delenv(variable, raising=False)
    report = make_report()
    report.trades = pd.DataFrame({"stock_id": ["A"], "return": [0.1]})
    return report


@pytest.fixture
def shown(monkeypatch):
    """What a notebook is given to show."""
    shown = []
    display = SimpleNamespace(HTML=lambda page: ("HTML", page), display=shown.append)
    monkeypatch.setitem(sys.modules, "IPython", ModuleType("IPython"))
    monkeypatch.setitem(sys.modules, "IPython.display", display)
    return shown


@pytest.fixture
def warned(caplog):
    return lambda: [(r.name, r.levelno, r.getMessage()) for r in caplog.records]


def warning(text):
    return ("corvex.host", logging.WARNING, text)


@pytest.fixture
def pages():
    from corvex.core import dashboard

    return dashboard.pages


def test_page_is_written_for_a_file_and_framed_for_a_notebook(
    report, module, pages, monkeypatch, tmp_path
):
    path = tmp_path / "report.html"
    path.write_text("older and longer " * 10)
    with monkeypatch.context() as patch:
        patch.setattr(module, "generate_html", lambda *_, **__: 1 / 0)
        with pytest.raises(ZeroDivisionError):
            report.to_html(path)
    assert path.read_text() == "older and longer " * 10
    assert report.to_html(path) is None
    assert path.read_text(encoding="utf-8") == "<html>報告 False</html>"
    report.to_html(str(path), title="mine")
    assert report._repr_html_() == "<html>報告 True</html>"
    assert pages == [(report, False, None), (report, False, "mine"), (report, True, None)]
    with pytest.raises(FileNotFoundError):
        report.to_html(tmp_path / "missing" / "report.html")


def test_display_shows_the_framed_page(report, shown, pages, warned, tmp_path, capsys):
    path = tmp_path / "report.html"
    assert report.display() is None
    assert shown == [("HTML", "<html>報告 True</html>")]
    assert report.display(save_report_path=path) is None
    assert len(shown) == 2
    assert path.read_text(encoding="utf-8") == "<html>報告 False</html>"
    assert [framed for _, framed, _ in pages] == [True, False, True]
    assert (warned(), capsys.readouterr()) == ([], ("", ""))


def test_colab_is_asked_for_the_whole_height(report, shown, warned, monkeypatch):
    output = SimpleNamespace(no_vertical_scroll=mock.Mock(side_effect=[None, ZeroDivisionError]))
    monkeypatch.setitem(sys.modules, "google", ModuleType("google"))
    monkeypatch.setitem(sys.modules, "google.colab", SimpleNamespace(output=output))
    monkeypatch.setenv("VSCODE_PID", "1")
    report.display()
    assert not output.no_vertical_scroll.called
    monkeypatch.setenv("COLAB_GPU", "0")
    report.display()
    assert output.no_vertical_scroll.call_count == 1
    assert warned() == []
    report.display()
    monkeypatch.setitem(sys.modules, "google.colab", None)
    report.display()
    assert len(shown) == 4
    assert warned() == [warning("Cannot cancel cell scrolling")] * 2


def test_without_a_notebook_the_text_is_printed(
    report, pages, warned, monkeypatch, capsys, tmp_path
):
    monkeypatch.setitem(sys.modules, "IPython", None)
    monkeypatch.setitem(sys.modules, "IPython.display", None)
    assert report.display(save_report_path=tmp_path / "report.html") is None
    assert capsys.readouterr().out == report.to_text() + "\n"
    assert warned() == [warning(NO_NOTEBOOK)]
    assert [framed for _, framed, _ in pages] == [False]
    report.display(lagacy=True)
    assert capsys.readouterr().out == report.to_text() + "\n"
    assert warned()[1:] == [warning("lagacy mode will be deprecated"), warning(NO_NOTEBOOK)]


def test_older_view(report, shown, warned, pages, tmp_path, monkeypatch):
    stats = report.get_stats() | {
        "cagr": 0.12346, "daily_sharpe": 1.23456, "max_drawdown": -0.5, "win_ratio": 1 / 3,
        "return_table": {2024: {1: 0.1, "YTD": 0.2}},
    }  # fmt: skip
    report.get_stats = lambda: stats
    report.current_trades = pd.DataFrame({"return": [0.1]})
    report.daily_benchmark = report.daily_benchmark.iloc[2:8] / 2
    figure = mock.Mock(wraps=type(report).create_performance_figure)
    monkeypatch.setattr(type(report), "create_performance_figure", figure)
    path = tmp_path / "report.html"
    assert report.display(lagacy=True, save_report_path=path) is None
    assert not path.exists()
    assert pages == []
    assert warned() == [
        warning("save_report_path is not supported in lagacy mode."),
        warning("lagacy mode will be deprecated"),
    ]
    summary, performance, yearly, monthly, trades, latest = shown
    names = ["annualized_rate_of_return", "sharpe", "max_drawdown", "win_ratio"]
    expected = pd.DataFrame([["12.35%", 1.23, "-50.0%", "33.33%"]], [""], names)
    pd.testing.assert_frame_equal(summary, expected, check_dtype=False)
    assert len(performance.data) == 7
    titles = [figure.layout.title.text for figure in (yearly, monthly)]
    assert titles == ["yearly return", "monthly return"]
    assert trades is report.current_trades
    pd.testing.assert_series_equal(latest, report.position.iloc[-1])
    detail, held = figure.call_args.args
    assert held.tolist() == [2] * 3 + [1] * 7
    assert detail.columns.tolist() == ["strategy", "benchmark"]
    assert detail.index.tolist() == report.position.index[2:].tolist()
    np.testing.assert_allclose(detail.iloc[0], 100)
    np.testing.assert_allclose(detail["strategy"].iloc[-1], 100 * 2 / report.creturn.iloc[2])

    # Reports of older versions may lack a benchmark and the current trades.
    report.benchmark = None
    report.creturn = report.creturn.iloc[3:]
    del report.current_trades
    shown.clear()
    report.display(True)
    assert len(shown) == 5
    detail, _ = figure.call_args.args
    assert (detail.columns.tolist(), len(detail)) == (["strategy"], 7)
    assert warned()[2:] == [warning("lagacy mode will be deprecated")]
