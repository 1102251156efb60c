"""The page of a sweep: what it carries, and that no text of a user's is more than text."""

import json
import re
import time
from itertools import product

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.core.dashboard.page import report_page as page
from corvex.core.dashboard.page.plotly_script import plotly_script
from corvex.significance.words import rows
from corvex.sweeping.axes import axis_of
from corvex.sweeping.run_results import EXTRAS, FIGURES, Results
from corvex.sweeping.sweep_page import MODULES
from corvex.sweeping.swept import Sweep

HOSTILE = "</script><script>alert(1)</script><b> & \u2028 {runs}"


@pytest.fixture(scope="module")
def prices():
    return corvex.data.sample("us_stocks").loc["2019":, ["AAPL", "MSFT", "XOM", "LLY"]]


def hold(prices, lookback, kind):
    if kind == "raises":
        raise ValueError(HOSTILE)
    if kind == "nothing":
        return prices * 0.0
    return prices.pct_change(lookback, fill_method=None).rank(axis=1, ascending=False) <= 2


def written(sweep, tmp_path, **how):
    sweep.to_html(tmp_path / "sweep.html", **how)
    text = (tmp_path / "sweep.html").read_text(encoding="utf-8")
    facts = re.search(r'<script type="application/json" id="facts">(.*?)</script>', text, re.S)
    return text, json.loads(facts[1])


@pytest.mark.filterwarnings("ignore:.*runs failed")
def test_page_tells_figures_errors_and_luck_and_escapes_every_text(prices, tmp_path):
    sweep = corvex.sweep(
        hold,
        prices,
        signal={"lookback": [5, 21, 63], "kind": [HOSTILE, "raises", "nothing"]},
        market="us_stock",
        resample="ME",
        name=HOSTILE,
        keep="curves",
        benchmark="sp500",
    )
    text, facts = written(sweep, tmp_path)
    assert "alert(1)" in text
    assert "<script>alert" not in text
    lookback, kind = facts["parameters"]
    assert (lookback["texts"], lookback["ranks"]) == (["5", "21", "63"], [0, 1, 2])
    assert (set(kind["ranks"]), HOSTILE in kind["texts"]) == ({None}, True)
    (failed,) = facts["errors"]
    assert (failed["count"], HOSTILE in failed["text"]) == (3, True)
    assert (facts["meta"]["runs"], facts["meta"]["failed"]) == (9, 3)
    # What is told of the best run is what the library says of it.
    found = sweep.confidence()
    assert [tuple(row) for row in facts["confidence"]["rows"]["en"]] == rows(found)
    assert facts["luck"]["expected"] == pytest.approx(found.figures["expected_largest_sharpe"])
    assert facts["luck"]["effective"] == found.figures["effective_trials"]
    assert facts["curves"][-1] == {"benchmark": "SP500"}
    assert len(facts["curves"]) == 4  # a flat curve has no rank
    assert dict(facts["fixed"]) == {"market": "us_stock", "benchmark": "sp500"}
    used = set(re.findall(r"""\bt\("(\w+)\"""", page.page_script(MODULES)))
    assert used <= json.loads(page._texts())["texts"]["en"].keys()

    opened = written(Sweep(sweep.labels, sweep._results, title=None, riskfree_rate=0.02), tmp_path)
    assert opened[1]["confidence"]["rows"] != {}  # from the curve that was kept


def test_what_is_told_as_fixed_does_not_vary(prices, tmp_path):
    account = corvex.Account(capital=10_000, cash_rate=0.02)
    fixed = {"market": "us_stock", "live_performance_start": pd.Timestamp("2021-01-04")}
    for varies, options in (
        (True, {"options": {"account": {"none": None, "rich": account}}}),
        (False, {"account": account, "touched_exit": np.bool_(False)}),
    ):
        _, facts = written(corvex.sweep({"a": prices > 0}, prices, **fixed, **options), tmp_path)
        told = {row["key"] for row in facts["assumptions"]} & {
            "account_capital",
            "account_cash_rate",
        }
        assert len(told) == (0 if varies else 2)
        given = {"market": "us_stock", "weights": "a", "live_performance_start": "2021-01-04"}
        assert dict(facts["fixed"]) == given
    assert axis_of(["b", "c", "a", None]).texts == ["b", "c", "a", "None"]


def test_a_kept_curve_is_judged_from_its_first_fill_on(prices, tmp_path):
    bare, account = {"fee_ratio": 0.0}, {"account": corvex.Account(capital=1e6)}
    for at, (first, costs) in enumerate(product((0, 400), ({"fee_ratio": 0.001}, bare, account))):
        late = (prices > prices.shift(21)).iloc[first:]
        late.index = late.index - pd.Timedelta(days=3 * (first == 0))  # known before the prices
        fixed = {"market": "us_stock", "resample": "ME", "store": tmp_path / str(at), **costs}
        sweep = corvex.sweep({"late": late}, prices, keep="curves", **fixed)
        read = corvex.open_sweep(tmp_path / str(at))
        assert read.own_curve_of(0).index[0] == sweep.report_of(0).creturn.index[0]
        pages = [written(one, tmp_path)[1]["confidence"] for one in (sweep, read)]
        for name in ("daily_sharpe", "cagr"):
            told = [dict(page["rows"]["en"])[name].split(",")[0] for page in pages]
            assert told[0] == told[1]


@pytest.mark.filterwarnings("ignore:.*runs failed", "ignore:no rebalance has a weight")
@pytest.mark.parametrize("kinds", [["raises"], ["nothing"], ["rank"]])
def test_page_of_one_run_without_or_with_figures(prices, tmp_path, kinds):
    sweep = corvex.sweep(hold, prices, signal={"lookback": [21], "kind": kinds}, market="us_stock")
    _, facts = written(sweep, tmp_path, simulate=False)
    assert facts["luck"] is facts["overfitting"] is facts["confidence"] is None
    assert facts["curves"] == []
    with pytest.raises(ValueError, match="no figure 'daily_sharp' ranks runs; did you mean"):
        sweep.to_html(tmp_path / "none.html", figure="daily_sharp")


def test_page_of_very_many_runs_stays_small(tmp_path):
    count = 60_000
    rng = np.random.default_rng(1)
    results = Results.empty(np.arange(count))
    results.figures[:] = rng.normal(size=(count, len(FIGURES) + len(EXTRAS)))
    results.figures[:, -1] = 5  # whole numbers of trades
    results.calendar[:] = 0, 2000
    results.calendars[0, 2000] = pd.bdate_range("2015-01-01", periods=2000)
    labels = {"a": np.repeat(np.arange(300), 200).tolist(), "b": list(range(200)) * 300}
    sweep = Sweep(labels, results, title=None, riskfree_rate=0.02)
    start = time.process_time()
    text, facts = written(sweep, tmp_path)
    assert time.process_time() - start < 20
    assert len(text) - len(plotly_script().text) < 2_000_000
    assert facts["meta"]["carried"] == 50_000
    assert len(facts["figures"]) == 8


def test_values_stand_in_their_order_and_none_behind():
    dates = [pd.Timestamp("2021-01-01"), pd.Timestamp("2020-01-01")]
    cases = {
        (None, 0.2, 0.1): (["0.1", "0.2", "None"], [0, 1, None]),
        ("b", "a"): (["a", "b"], [None, None]),
        (True, False): (["False", "True"], [None, None]),
        (1, "1", "x"): (["1 (1)", "1 (2)", "x (3)"], [0, None, None]),
        (0.1234567, 0.1234568): (["0.1234567", "0.1234568"], [0, 1]),
        tuple(dates): (["2020-01-01", "2021-01-01"], [0, 1]),
        (pd.offsets.MonthEnd(), float("nan")): (["ME", "nan"], [None, None]),
    }
    for labels, (texts, ranks) in cases.items():
        axis = axis_of(labels)
        assert (axis.texts, axis.ranks) == (texts, ranks)
        assert [axis.values[place] for place in axis.places] == list(labels) or None in ranks
