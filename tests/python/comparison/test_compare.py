import json
import re
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.cli.summary import summary
from corvex.comparison.comparison_page import MODULES
from corvex.core.dashboard.page import report_page as page

HOSTILE = "</script><script>alert(1)</script><b> & \u2028 {returns}"


def walk(start, periods, seed, freq="B", tz=None):
    days = pd.date_range(start, periods=periods, freq=freq, tz=tz)
    steps = np.random.default_rng(seed).normal(4e-4, 0.01, periods)
    return pd.Series(np.cumprod(1 + steps), index=days)


@pytest.fixture(scope="module")
def reports():
    """Two on the exchange's days, one of them longer and with a zone, and one with weekends."""
    return [
        corvex.from_equity(walk("2020-06-01", 600, 1, tz="Asia/Taipei"), name="a"),
        corvex.from_equity(walk("2019-01-02", 1500, 2), name="a"),
        corvex.from_equity(walk("2020-12-31", 500, 3, freq="D"), name=HOSTILE),
    ]


def test_figures_are_those_of_the_common_dates(reports):
    result = corvex.compare(reports)
    assert list(result.curves) == ["a", "a (2)", HOSTILE]
    dates = result.curves.index
    assert (str(dates[0].date()), str(dates[-1].date())) == ("2020-12-31", "2022-05-13")
    assert (dates.day_of_week < 5).all()

    # A report on the same piece of the curve knows the same figures.
    piece = walk("2019-01-02", 1500, 2).loc[dates]
    alone = corvex.from_equity(piece).get_stats()
    for key in ("total_return", "cagr", "daily_vol", "daily_sharpe", "max_drawdown", "calmar"):
        assert result.figures.loc[key, "a (2)"] == pytest.approx(alone[key], rel=1e-12), key
    assert result.runs.loc["a (2)", "start"] == "2019-01-02"

    # The year that holds the start alone has no return; the others make up the whole.
    assert list(result.yearly_returns.index) == [2021, 2022]
    total = (1 + result.yearly_returns).prod() - 1
    assert total.to_numpy() == pytest.approx(result.figures.loc["total_return"].to_numpy())
    other = walk("2020-06-01", 600, 1).loc[dates]
    expected = np.corrcoef(piece.pct_change()[1:], other.pct_change()[1:])[0, 1]
    assert result.correlation.loc["a", "a (2)"] == pytest.approx(expected, rel=1e-9)


def test_the_page_is_one_file_in_which_a_name_is_text(reports, tmp_path):
    result = corvex.compare(reports)
    result.to_html(tmp_path / "page.html")
    text = (tmp_path / "page.html").read_text(encoding="utf-8")
    facts = re.search(r'<script type="application/json" id="facts">(.*?)</script>', text, re.S)
    assert json.loads(facts[1])["names"][2] == HOSTILE
    assert [row.get("to") for row in json.loads(facts[1])["years"]] == [None, "2022-05-13"]
    assert "alert(1)" in text
    assert "<script>alert" not in text
    frame = result._repr_html_()
    assert frame.startswith("<iframe title=")
    assert frame.count("<") == 2
    used = set(re.findall(r"""\bt\("(\w+)\"""", page.page_script(MODULES)))
    assert used <= json.loads(page._texts())["texts"]["en"].keys()


def test_many_reports_are_ranked_and_their_names_wrapped(tmp_path):
    named = {
        f"a very long name of strategy_number_{i} ☂": walk("2020-01-01", 700, i) for i in range(60)
    }
    result = corvex.compare({name: corvex.from_equity(curve) for name, curve in named.items()})
    ratios = result.figures.loc["daily_sharpe", result.ranking]
    assert ratios.is_monotonic_decreasing
    text = result.to_text()
    assert max(map(len, text.splitlines())) <= 80
    best = result.figures[result.ranking[0]]
    assert re.search(rf"^1 +a very long name of +{100 * best['cagr']:.2f}%", text, re.M)
    heads = re.findall(r"^(?:year)?( +1 +2 .*)$", text, re.M)
    assert [head.split() for head in heads] == [[str(i + 1) for i in range(10)]] * 2
    result.to_html(tmp_path / "page.html")
    page_text = (tmp_path / "page.html").read_text(encoding="utf-8")
    facts = re.search(r'<script type="application/json" id="facts">(.*?)</script>', page_text, re.S)
    order = json.loads(facts[1])["order"]
    assert [list(named)[i] for i in order] == result.ranking
    assert len(re.search("<title>(.*?)</title>", page_text)[1]) < 300


def test_what_is_not_known_is_left_open(reports):
    ruined = walk("2020-06-01", 600, 4)
    ruined.iloc[50:] = 0.0
    prices = pd.DataFrame({"A": walk("2020-06-01", 600, 5), "B": walk("2020-06-01", 600, 6)})
    fee = pd.Series([0.001, 0.002], prices.index[[0, 50]])
    kept = corvex.simulate(
        prices > 0, prices, market="us_stock", account=corvex.Account(capital=1e4, fee_ratio=fee)
    )
    named = {"ruined": corvex.from_equity(ruined), "kept": kept, "late": reports[2]}
    result = corvex.compare(named)
    assert result.figures["ruined"].isna().all()
    assert result.runs.loc["kept", ["fee_ratio", "tax_ratio"]].isna().tolist() == [True, False]
    assert "fee by date on each side" in summary(kept, None, "en")
    assert re.search(r"^2021 +- +-?\d", result.to_text(), re.M)


def test_what_cannot_be_compared_is_said(reports):
    far = corvex.from_equity(walk("2001-01-01", 50, 4), name="far")
    with pytest.raises(ValueError, match="'far' covers 2001-01-01 to 2001-03-09"):
        corvex.compare([reports[0], far])
    with pytest.raises(ValueError, match="at least two reports, got 1"):
        corvex.compare({"one": reports[0]})
    with pytest.raises(TypeError, match="'b' is a Series, not a Report"):
        corvex.compare({"a": reports[0], "b": reports[0].creturn})
    with pytest.raises(TypeError, match="mapping or a list, got a Report"):
        corvex.compare(reports[0])


def test_the_guides_example_runs(tmp_path, monkeypatch, capsys):
    guide = Path(__file__).parents[3] / "docs" / "compare.md"
    (example,) = re.findall(r"```python\n(.*?)```", guide.read_text(encoding="utf-8"), re.S)
    monkeypatch.chdir(tmp_path)
    exec(compile(example, str(guide), "exec"), {})
    assert "S&P 500" in capsys.readouterr().out
    assert (tmp_path / "comparison.html").stat().st_size > 500_000
