"""Saving and loading, and the plain views."""

import pickle

import pandas as pd
import pytest


def test_report_is_written_and_read_back(make_report, module, tmp_path):
    report = make_report()
    report.weights = pd.Series([1.0], index=["A"])
    report.resample = "ME"
    report.metrics = metrics = module.Metrics(report)
    path = tmp_path / "report.pkl"
    assert report.to_pickle(path) is None
    assert report.metrics is metrics
    loaded = module.Report.from_pickle(str(path))
    assert type(loaded) is module.Report
    assert list(vars(loaded)) == [name for name in vars(report) if name != "metrics"]
    pd.testing.assert_frame_equal(loaded.position, report.position, check_freq=False)
    pd.testing.assert_series_equal(loaded.weights, report.weights)
    loaded.weights["A"] = 2.0
    assert report.weights["A"] == module.Report.from_pickle(path).weights["A"] == 1.0


def test_files_close_and_errors_come_through(make_report, module, tmp_path):
    report = make_report()
    path = tmp_path / "report.pkl"
    report.hook = lambda: None
    with pytest.raises((pickle.PicklingError, AttributeError)):
        report.to_pickle(path)
    assert not path.exists()
    with pytest.raises(FileNotFoundError):
        module.Report.from_pickle(path)
    path.write_bytes(b"no pickle")
    with pytest.raises(pickle.UnpicklingError):
        module.Report.from_pickle(path)
    del report.hook
    report.to_pickle(path)
    path.write_bytes(path.read_bytes()[:-100])
    with pytest.raises(pickle.UnpicklingError, match="damaged"):
        module.Report.from_pickle(path)
    assert [entry.name for entry in tmp_path.iterdir()] == ["report.pkl"]


def test_old_places_of_classes_are_mapped_one_by_one(module, tmp_path, capsys):
    def load(module_name, name):
        (tmp_path / "old.pkl").write_bytes(f"c{module_name}\n{name}\n.".encode())
        return module.Report.from_pickle(tmp_path / "old.pkl")

    import corvex.markets.tw as tw

    assert load("corvex.market_info", "TWMarketInfo") is tw.TWMarket
    assert load("corvex.market_info", "pd") is pd
    assert load("corvex.markets.tw", "TWMarketInfo") is tw.TWMarket
    assert capsys.readouterr().out == ""
    with pytest.raises(AttributeError, match="Other"):
        load("corvex.market_info", "Other")
    with pytest.raises(ModuleNotFoundError, match="nowhere"):
        load("nowhere", "TWMarketInfo")
    assert capsys.readouterr().out == (
        "Error finding class: module=corvex.market_info, name=Other\n"
        "Mapped module: corvex.markets.tw, Mapped name: Other\n"
        "Error finding class: module=nowhere, name=TWMarketInfo\n"
        "Mapped module: nowhere, Mapped name: TWMarket\n"
    )


HEAD = """📊 策略: {name}
========================================
回測期間: 2024-01-01 ~ 2024-01-10
年化報酬: 12.35%
夏普率: 0
最大回撤: 0.0%
勝率: 0%
----------------------------------------
"""


def test_text_report_in_its_three_forms(make_report):
    report = make_report()
    assert report.to_text() == report.to_text("") == HEAD.format(name="未命名")
    report.weights = pd.Series({"A": 0.12345, "B": 0.5})
    report.actions = pd.Series(dtype=object)
    assert report.to_text("動能") == HEAD.format(name="動能")
    report.actions = pd.Series({"A": "enter", "B": "sl_"})
    assert report.to_text("x") == HEAD.format(name="x") + "📋 換股動作:\n  A: enter\n  B: sl_\n"
    report.actions = pd.Series({"B": "tp", "A": "hold", "2330 台積電": "sl"})
    stops = "⚡ 停損停利動作:\n  B: 停利\n  2330 台積電: 停損\n"
    assert report.to_text("x") == (
        HEAD.format(name="x") + stops + "📦 調整權重:\n  A: 12.35%\n  B: 50.0%\n"
    )
    report.weights = None
    assert report.to_text("x") == HEAD.format(name="x") + stops
    del report.actions
    assert report.to_text("x") == HEAD.format(name="x")
    report.get_stats = dict
    assert "回測期間: N/A ~ N/A\n年化報酬: 0%\n夏普率: 0\n最大回撤: 0%\n" in report.to_text()


def test_terminal_report_draws_through_the_terminal_module(make_report):
    from corvex import terminal

    report = make_report()
    terminal.calls.clear()
    report.to_terminal()
    report.to_terminal(9, width=20, show_benchmark=False)
    report.to_terminal(show_drawdown=False)
    curve, falls, common = "Strategy Cumulative Return", "Drawdown", report.benchmark
    expected = [("return", curve, 12, 80, common), ("drawdown", falls, 6, 80, common),
                ("return", curve, 9, 20, None), ("drawdown", falls, 4, 20, None),
                ("return", curve, 12, 80, common)]  # fmt: skip
    for (kind, series, settings), (*words, benchmark) in zip(terminal.calls, expected, strict=True):
        assert [kind, settings["title"], settings["height"], settings["width"]] == words
        assert series is report.creturn
        assert settings["benchmark"] is benchmark
