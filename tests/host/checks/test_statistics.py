"""The statistics record, its cache, and the running of analyses."""

import numpy as np
import pandas as pd
import pytest

RETURNS = [0.1, -0.2, 0.0, 0.3]


def test_record_holds_the_figures_their_aliases_and_the_reports_own(make_report, module):
    report = make_report()
    report.trades = pd.DataFrame({"return": [*RETURNS, np.nan]})
    record = report.get_stats(riskfree_rate=0.07)
    assert list(record) == [
        *["start", "end", "rf", "cagr", "max_drawdown", "daily_mean", "return_table"],
        *["annualReturn", "maxDrawdown", "version", "win_ratio", "drawdown_details"],
    ]
    assert (record["start"], record["end"], record["rf"]) == ("2024-01-01", "2024-01-10", 0.07)
    assert record["annualReturn"] is record["cagr"]
    assert record["return_table"] == {2024: {1: 0.1, "YTD": 0.2}}
    assert (record["version"], record["win_ratio"]) == ("9.9.host", 0.5)
    assert record["drawdown_details"] == [{}]
    benchmark = report.get_benchmark_stats(0.03)
    assert benchmark["rf"] == 0.03
    assert set(record) - set(benchmark) == {"version", "win_ratio", "drawdown_details"}
    assert report.get_benchmark_stats() is not report.get_benchmark_stats()
    report.trades = pd.DataFrame({"return": [np.nan]})
    assert report.get_stats(riskfree_rate=0.01)["win_ratio"] == 0


def test_one_record_is_remembered_for_all_reports(make_report, module, monkeypatch):
    first, second = make_report(), make_report()
    record = first.get_stats()
    assert first.get_stats(resample=None) is first.get_stats(None, 0.02) is record
    assert first.get_stats(riskfree_rate=0.02) is record
    assert first.get_stats(riskfree_rate=0.0) is not record
    again = first.get_stats()
    assert again is not record
    second.get_stats()
    assert first.get_stats() is not again
    assert module.Report._get_stats.cache_info().maxsize == 1
    monkeypatch.setattr(first, "trades", pd.DataFrame({"x": [1]}), raising=True)
    for _ in range(2):
        with pytest.raises(KeyError, match="return"):
            first.get_stats(riskfree_rate=0.4)


def test_analyses_are_found_by_name_and_run_in_order(make_report):
    from corvex.analysis import drawdownAnalysis, maeMfeAnalysis

    class Recording:
        trades = pd.DataFrame({"symbol": ["A"], "entry_sig_date": [pd.Timestamp("2024-01-01")]})

    report, shown = make_report(), drawdownAnalysis.DrawdownAnalysis.shown
    report.trades = Recording.trades
    table = pd.DataFrame({"A": [5.0]}, index=[pd.Timestamp("2024-01-01")])
    info = [("x", table), ("y", table, ["entry_sig_date"])]
    for name in ("Drawdown", "DrawdownAnalysis", "drawdown", "drawdownAnalysis"):
        result = report.run_analysis(name, display=False, info=info)
        assert result["strategy"]["largest_drawdown"] == [{"info": info}]
    assert list(report.trades)[2:] == ["x@entry_sig_date", "y@entry_sig_date"]
    assert drawdownAnalysis.DrawdownAnalysis.shown == shown
    report.run_analysis("Drawdown")
    assert drawdownAnalysis.DrawdownAnalysis.shown == shown + 1
    result = report.display_mae_mfe_analysis(bins=5)
    assert result["strategy"]["largest_drawdown"] == [{"bins": 5}]
    assert maeMfeAnalysis.MaeMfeAnalysis.shown == 1


def test_unknown_analyses_are_told_with_the_known_ones(make_report):
    report = make_report()
    modules = {"Drawdwon": "drawdwonAnalysis", "": "analysis", "A.b": "a.bAnalysis"}
    for name, module_name in modules.items():
        with pytest.raises(ImportError) as unknown:
            report.run_analysis(name)
        assert str(unknown.value) == (
            f"Cannot find corvex.analysis.{module_name}. Possible candidates are "
            "['drawdown', 'liquidity', 'maeMfe']"
        )
    with pytest.raises(AttributeError, match="LiquidityAnalysis"):
        report.liquidity()
