"""Live questions to a report: its execution, the freshness of its data, its metrics."""

import datetime
import re
from contextlib import nullcontext
from types import SimpleNamespace
from unittest import mock

import numpy as np
import pandas as pd
import pytest

COPIED = """weights next_weights actions resample next_trading_date trade_at market stop_loss
    take_profit trail_stop""".split()


@pytest.fixture
def record(module):
    def record(**fields):
        return module.ReportExecution(**dict.fromkeys(COPIED) | fields)

    return record


@pytest.fixture
def data():
    import corvex.data as data

    data.answers.clear()
    data.calls.clear()
    return data


def test_assigned_execution_is_kept_and_copied_onto_the_report(make_report, record, module):
    class Named(module.Report):
        order = ()

        def __setattr__(self, name, value):
            super().__setattr__(name, value)
            self.__dict__["order"] = (*self.order, name)

    report = make_report()
    report.__class__ = Named
    execution = record(weights={"A": 1.0}, stop_loss=0.1, resample="ME", trade_at="open")
    report.execution = execution
    assert report.execution is report._execution_override is execution
    assert report.order == ("_execution_override", *COPIED, "execution")
    assert all(getattr(report, name) is getattr(execution, name) for name in COPIED)

    several = {"a": execution, 2: record()}
    report.execution = several
    assert report.execution is several
    assert report.order[-2:] == ("_execution_override", "execution")
    assert len(report.order) == len(COPIED) + 4
    with pytest.raises(AttributeError):
        del report.execution


def test_what_is_no_execution_is_refused_before_anything_is_stored(make_report, record):
    report = make_report()
    report.execution = kept = record()
    expected = "should be ReportExecution, got <class"
    for value, message in [
        ({"a": record(), "b": 3, "c": "x"}, f"execution[b] {expected} 'int'>"),
        ({(1, 2): ""}, f"execution[(1, 2)] {expected} 'str'>"),
        (None, "execution should be ReportExecution or dict, got <class 'NoneType'>"),
    ]:
        with pytest.raises(ValueError, match=f"^{re.escape(message)}$"):
            report.execution = value
    assert report.execution is kept


def test_execution_is_built_afresh_from_the_report_at_each_read(make_report, module, monkeypatch):
    report = make_report()
    from_report = mock.Mock(side_effect=lambda *_, **__: object())
    monkeypatch.setattr(module.ReportExecution, "from_report", from_report)
    assert report.execution is not report.execution
    assert from_report.call_args_list == [mock.call(report, total_weight=1.0)] * 2


@pytest.mark.parametrize("question", ["is_rebalance_due", "is_stop_triggered"])
def test_several_executions_are_asked_until_one_says_yes(make_report, module, question):
    asked = []

    class Answer(module.ReportExecution):
        def __init__(self, answer):
            self.answer = answer

    setattr(Answer, question, lambda self: asked.append(self.answer) or self.answer)
    report = make_report()
    ask = getattr(report, question)
    for answers, expected, count in [([], False, 0), ([0, "", 0], False, 3), ([0, 1, 1], True, 2)]:
        asked.clear()
        report.execution = dict(enumerate(map(Answer, answers)))
        assert ask() is expected
        assert len(asked) == count
    report._execution_override = Answer("as it is")
    assert ask() == "as it is"


def test_uses_next_weights_hands_the_time_on(make_report):
    report = make_report()
    told = SimpleNamespace(uses_next_weights=lambda *given, **settings: (given, settings))
    report._execution_override = told
    assert report.uses_next_weights() == ((None,), {})
    assert report.uses_next_weights(now=3) == ((3,), {})
    report.execution = {}
    with pytest.raises(AttributeError, match="uses_next_weights"):
        report.uses_next_weights()


def test_freshness_is_the_data_modules_answer_but_for_historical_backtests(make_report, data):
    report = make_report()
    moment = datetime.datetime(2024, 1, 2, tzinfo=datetime.UTC)
    data.answers.update(
        next_future_expiry=moment, suggested_tradable_time=moment, is_tradable="fresh"
    )
    assert report.next_future_expiry() is report.suggested_tradable_time() is moment
    data.answers["next_data_expiry"] = moment
    with pytest.warns(DeprecationWarning):
        assert report.next_data_expiry() is moment
    data.calls.pop()
    assert report.is_tradable() == "fresh"
    for readiness in (None, {}, {"reason": "stale"}, {"reason": None}):
        report.data_readiness = readiness
        assert report.is_tradable() == "fresh"
    market = [("is_tradable", report.market)]
    suggested = ("suggested_tradable_time", report.market)
    assert data.calls == [("next_future_expiry",), suggested, *market * 5]
    report.data_readiness = {"reason": "historical_backtest"}
    assert report.is_tradable() is False
    assert len(data.calls) == 7


SECTIONS = {
    "backtest": """startDate endDate version feeRatio taxRatio tradeAt market freq expired
        updateDate nextTradingDate currentRebalanceDate nextRebalanceDate livePerformanceStart
        stopLoss takeProfit trailStop""",
    "profitability": "annualReturn* alpha beta avgNStock maxNStock",
    "risk": "maxDrawdown* avgDrawdown* avgDrawdownDays* valueAtRisk cvalueAtRisk",
    "ratio": "sharpeRatio* sortinoRatio* calmarRatio* volatility* profitFactor tailRatio",
    "winrate": "winRate m12WinRate* expectancy mae mfe",
    "liquidity": """capacity disposalStockRatio warningStockRatio fullDeliveryStockRatio buyHigh
        sellLow""",
}


def snake(key):
    key = key.replace("NStock", "_n_stock").replace("m12WinRate", "m12_win_rate")
    return "".join("_" + letter.lower() if letter.isupper() else letter for letter in key)


def test_metrics_ask_for_each_figure_in_order_and_under_its_key(make_report, module):
    report = make_report()
    assert report.metrics is report.metrics
    assert report.metrics.report is report
    asked = []

    class Asked(module.Metrics):
        def __getattr__(self, name):
            asked.append(name)
            return super().__getattr__(name)

    report.metrics = Asked(report)
    record = report.get_metrics({"anything": 1}, riskfree_rate=0.05)
    expected = {
        section: {key.rstrip("*"): [snake(key.rstrip("*")), 0.05][: 1 + key.count("*")]
                  for key in keys.split()}
        for section, keys in SECTIONS.items()
    }  # fmt: skip
    assert record == expected
    assert list(record) == list(SECTIONS)
    assert [list(part) for part in record.values()] == [list(part) for part in expected.values()]
    assert asked == [figure[0] for part in expected.values() for figure in part.values()]
    assert report.get_metrics()["risk"]["maxDrawdown"] == ["max_drawdown", 0.02]


def test_metrics_add_the_market_value_when_there_is_one(make_report):
    report = make_report()
    entries = pd.to_datetime(["2024-01-02", "2024-01-03"])
    report.trades = pd.DataFrame({"stock_id": ["A", "B"], "entry_date": entries})
    report.get_metrics()
    assert list(report.trades) == ["stock_id", "entry_date"]
    report.market.market_value = pd.DataFrame({"A": [1.0, 2.0], "B": [3.0, 4.0]}, index=entries)
    report.get_metrics()
    report.get_metrics()
    assert list(report.trades) == ["stock_id", "entry_date", "market_value@entry_date"]
    np.testing.assert_array_equal(report.trades["market_value@entry_date"], [1.0, 4.0])


@pytest.mark.parametrize("error", [None, LookupError("no market value")])
def test_metrics_leave_the_record_of_loaded_data_as_it_was(make_report, error):
    from corvex.data.context import _default_context as context

    report = make_report()
    before = context._loaded_datasets

    def load():
        assert type(context._loaded_datasets) is set
        assert context._loaded_datasets == set(before)
        context._loaded_datasets.add("new")
        if error:
            raise error
        return ()

    report.market.get_market_value = load
    with pytest.raises(LookupError, match="^no market value$") if error else nullcontext():
        report.get_metrics()
    assert context._loaded_datasets is before
    assert before == ["price"]
