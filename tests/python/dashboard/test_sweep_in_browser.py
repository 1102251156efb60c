"""The page of a sweep in a real Chromium."""

import numpy as np
import pandas as pd
import pytest
from dashboard_reports import HOSTILE

import corvex
from corvex.sweeping.sweep_page import sweep_html

pytestmark = [
    pytest.mark.slow,
    pytest.mark.filterwarnings("ignore:.*runs failed", "ignore:no rebalance has a weight"),
]


def ranked(prices, lookback, top, kind="rank"):
    if kind == "raises":
        raise ValueError(HOSTILE)
    held = prices.pct_change(lookback, fill_method=None).rank(axis=1, ascending=False) <= top
    return held * (kind != "nothing")


def swept(prices, **signal):
    return corvex.sweep(
        ranked, prices, signal=signal, options={"trail_stop": [None, 0.1]}, resample="ME",
        market="us_stock", name=HOSTILE,
    )  # fmt: skip


@pytest.fixture(scope="module")
def prices():
    return corvex.data.sample("us_stocks").loc["2019":]


def test_runs_are_searched_mapped_and_set_beside_their_neighbours(open_page, prices):
    found = swept(prices, lookback=[5, 21, 63], top=[2, 3, 5, 30])
    figures = found.figures
    page = open_page(sweep_html(found, "daily_sharpe", simulate=True, title=None))
    names = page.locator("main > section").evaluate_all("all => all.map(one => one.id)")
    assert names == (
        "tried ranking heatmap plateau parallel spread best_curves confidence fixed".split()
    )
    assert page.locator(".chart:not([data-drawn])").count() == 0
    assert page.locator("h1").inner_text().startswith("</script><script>alert(1)")
    assert page.evaluate("document.documentElement.scrollWidth") == 1200

    def rows():
        return page.locator("#run-table tbody tr").count()

    page.get_by_role("searchbox").fill("top=3 lookback=5")
    assert rows() == 2  # not those of top 30
    page.get_by_role("searchbox").fill("")
    page.locator("#run-table [data-key=max_drawdown]").click()
    shown = page.locator("#run-table tbody tr > :nth-child(6)").all_inner_texts()
    assert shown == [f"{one:.2%}" for one in sorted(figures["max_drawdown"], reverse=True)]

    def traces(section):
        return page.locator(f"#{section} .chart").first.evaluate("node => node.data")

    section = page.locator("#heatmap")
    section.get_by_role("combobox", name="Across").select_option(label="top")
    section.get_by_role("combobox", name="Figure").select_option(label="CAGR")
    mean = figures["cagr"].groupby(level=["lookback", "top"]).mean().unstack("top")
    assert np.array(traces("heatmap")[0]["z"], float) == pytest.approx(mean.to_numpy(), rel=1e-4)
    section.get_by_role("combobox", name="trail_stop").select_option(label="0.1")
    one = figures["cagr"].xs(0.1, level="trail_stop").unstack("top")
    assert np.array(traces("heatmap")[0]["z"], float) == pytest.approx(one.to_numpy(), rel=1e-4)

    # 21 and 3, without a stop: those beside it by brute force.
    near = [(5, 3), (63, 3), (21, 2), (21, 5)]
    sharpe = figures["daily_sharpe"].xs(np.nan, level="trail_stop", drop_level=True)
    points = [xy for one in traces("plateau")[1:] for xy in zip(one["x"], one["y"], strict=True)]
    own, beside = sharpe.loc[21, 3], np.mean([sharpe.loc[one] for one in near])
    assert any(xy == pytest.approx((beside, own), rel=1e-3) for xy in points)
    page.get_by_role("button", name="繁體中文").click()
    page.wait_for_selector("body[data-ready]")
    assert "24 個組合" in page.locator("#subtitle").inner_text()


def test_runs_that_are_no_grid_stand_beside_the_nearest(open_page, prices):
    draw = np.random.default_rng(3)
    lookbacks, tops = draw.permutation(np.arange(5, 125, 10)), draw.permutation(np.arange(2, 14))
    rows = [
        {"lookback": int(lookback), "top": int(top), "kind": "ab"[at % 2]}
        for at, (lookback, top) in enumerate(zip(lookbacks, tops, strict=True))
    ]
    found = corvex.sweep(ranked, prices, signal=rows, resample="ME", market="us_stock")
    page = open_page(sweep_html(found, "daily_sharpe", simulate=False, title=None))
    ranks = np.column_stack([lookbacks.argsort().argsort(), tops.argsort().argsort()]) / 11
    apart = ((ranks[:, None] - ranks) ** 2).sum(axis=2)
    apart[np.add.outer(np.arange(12), np.arange(12)) % 2 == 1] = np.inf  # of the other kind
    np.fill_diagonal(apart, np.inf)
    near = np.argsort(apart, axis=1, kind="stable")[:, :4]
    sharpe = found.figures["daily_sharpe"].to_numpy()
    shown = page.locator("#plateau .chart").evaluate("node => node.data")[1:]
    points = sorted(yx for one in shown for yx in zip(one["y"], one["x"], strict=True))
    expected = sorted(zip(sharpe, sharpe[near].mean(axis=1), strict=True))
    np.testing.assert_allclose(points, expected, rtol=1e-3)
    assert "nearest" in page.locator("#plateau p.note").inner_text()
    assert "runs nearest to it" in page.locator("#tried").inner_text()


@pytest.mark.parametrize(
    "kinds", [["raises"], ["nothing"], ["rank"], [HOSTILE, "raises", "-1", "=1"]]
)
def test_few_runs_failed_ones_and_hostile_values_show(open_page, prices, kinds):
    found = swept(prices.iloc[:, :3], lookback=[21], top=[1], kind=kinds)
    page = open_page(sweep_html(found, "daily_sharpe", simulate=True, title=None))
    assert page.locator("p.state.bad", has_text="could not be shown").count() == 0
    assert page.locator("#run-table tbody tr").count() == len(found)
    failed = page.locator("#errors tbody tr")
    assert failed.count() == ("raises" in kinds)
    assert page.locator(".chart:not([data-drawn])").count() == 0
    assert page.evaluate("document.querySelectorAll('script').length") == 6
    with page.expect_download() as download:
        page.get_by_role("button", name="Download CSV").click()
    table = pd.read_csv(download.value.path(), keep_default_na=False)
    if len(kinds) > 1:  # a text is no formula, and a number stays one
        assert set(table["kind"]) == {HOSTILE, "raises", "-1", "'=1"}


def test_windows_of_a_walk_are_marked_and_listed(open_page, prices):
    found = corvex.sweep(
        ranked, prices, signal={"lookback": [5, 21], "top": [2]}, resample="ME",
        market="us_stock", keep="curves",
    )  # fmt: skip
    walk = corvex.walk_forward(found, "1YE", "1YE")
    page = open_page(walk.report)
    shapes = page.locator("#equity .chart").evaluate("node => node.layout.shapes")
    dotted = [shape["x0"] for shape in shapes if shape["line"].get("dash") == "dot"]
    assert dotted == [f"{day:%Y-%m-%d}" for day in walk.choices["test_start"]]
    assert page.locator("#walk tbody tr").count() == len(walk.choices)
    assert page.locator("#walk .chart[data-drawn]").count() == 1
