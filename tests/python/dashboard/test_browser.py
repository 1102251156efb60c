"""The page in a real Chromium: from a file, with the network off."""

import base64
import re

import numpy as np
import pandas as pd
import pytest
from dashboard_reports import HOSTILE, bare_report

import corvex
from corvex import _engine
from corvex.comparison import compare
from corvex.comparison.comparison_page import comparison_html
from corvex.core.dashboard import generate_html
from corvex.core.dashboard.page import notebook
from corvex.core.dashboard.page.report_page import asset
from corvex.significance.words import limits, rows

pytestmark = pytest.mark.slow

CHART = "#{} .chart[data-drawn] svg.main-svg"


def sections(page):
    return " ".join(page.locator("main > section").evaluate_all("all => all.map(one => one.id)"))


def column(page, number):
    return page.locator(f"#trade-table tbody tr > :nth-child({number})").all_inner_texts()


def test_charts_are_drawn_and_hostile_names_are_text(open_page, simulated):
    page = open_page(simulated)
    assert sections(page) == (
        "summary equity returns rolling drawdowns distribution confidence live holdings trades "
        "excursions costs assumptions periods statistics"
    )
    charts = "equity returns rolling distribution confidence holdings excursions"
    for name in charts.split():
        assert page.locator(CHART.format(name)).count()
    assert page.locator(".chart:not([data-drawn])").count() == 0
    assert page.locator("thead th:empty").count() == 0
    # The library draws a kind of chart that the page's copy of it lacks as lines.
    kinds = "all => all.map(one => [one.data, one._fullData].map(l => l.map(t => t.type).join()))"
    for asked, drawn in page.locator(".chart").evaluate_all(kinds):
        assert drawn == asked
    assert page.locator("h1").inner_text().startswith("</script><script>alert(1)")
    page.get_by_role("searchbox").fill("alert(1)")
    assert all(name.endswith("AMD") for name in column(page, 1))
    assert page.evaluate("document.querySelectorAll('script').length") == 6
    # The chart library would also offer to send the data to its makers' service.
    buttons = page.locator("#equity .modebar-btn")
    tools = buttons.evaluate_all("all => all.map(b => b.dataset.title)")
    assert tools[0].startswith("Download")
    assert not re.search("cloud|share|edit", str(tools), re.IGNORECASE)
    # Chart texts know some markup: the benchmark's name must show as it is there too.
    legend = page.locator("#equity .legendtext").all_text_contents()
    assert any(text.startswith("</script><script>") for text in legend)
    assert page.evaluate("document.documentElement.scrollWidth") == 1200


def test_range_buttons_rebase_both_curves_and_the_scale_changes(open_page, simulated):
    page = open_page(simulated)
    chart = page.locator("#equity .chart")
    state = """node => ({type: node.layout.yaxis.type, range: node.layout.xaxis.range,
        at: node.data.slice(0, 2).map(one => one.y[one.x.indexOf(node.layout.xaxis.range[0])])})"""
    days = simulated.daily_creturn.index
    assert chart.evaluate(state)["range"] == [f"{days[0]:%Y-%m-%d}", f"{days[-1]:%Y-%m-%d}"]
    assert chart.evaluate(state)["type"] == "log"
    page.get_by_role("button", name="1Y", exact=True).click()
    year = chart.evaluate(state)
    assert year["range"] == ["2021-12-28", "2022-12-28"]
    assert year["at"] == [100, 100]
    told = page.locator("#equity .view").inner_text()
    curve = simulated.daily_creturn
    gain = curve.iloc[-1] / curve["2021-12-28"] - 1
    assert f"strategy {gain:+.2%}" in told
    page.get_by_role("button", name="Linear").click()
    assert chart.evaluate(state)["type"] == "linear"
    assert page.get_by_role("button", name="Linear").get_attribute("aria-pressed") == "true"
    page.evaluate("""() => Plotly.relayout(document.querySelector('#equity .chart'),
        {'xaxis.range[0]': '2020-01-04 12:00', 'xaxis.range[1]': '2020-06-30'})""")
    assert chart.evaluate(state)["range"] == ["2020-01-03", "2020-06-30"]
    assert chart.evaluate(state)["at"] == [100, 100]


def test_trades_are_searched_sorted_paged_and_shown(open_page, simulated):
    page = open_page(simulated)
    closed = simulated.trades[simulated.trades["exit_date"].notna()]
    assert page.locator("#trades .found").inner_text().startswith(f"{len(simulated.trades)} of")
    page.get_by_label("Rows").select_option("10")
    pages = -(-len(simulated.trades) // 10)
    assert page.get_by_text(f"Page 1 of {pages}").count()
    first = column(page, 2)
    assert first == sorted(first, reverse=True)
    page.get_by_role("button", name="Next").click()
    assert column(page, 2)[0] <= first[-1]
    page.locator("#trade-table [data-key=return]").click()
    returns = [float(text.rstrip("%")) for text in column(page, 4)]
    best = simulated.trades["return"].sort_values(ascending=False).head(10) * 100
    assert returns == pytest.approx(best.tolist(), abs=0.006)
    assert page.locator("#trade-table th[aria-sort=descending]").count() == 1
    page.locator("#trade-table [data-key=return]").click()
    assert float(column(page, 4)[0].rstrip("%")) == pytest.approx(
        simulated.trades["return"].min() * 100, abs=0.006
    )
    page.get_by_label("Status").select_option("lost")
    lost = int((simulated.trades["return"] <= 0).sum())
    assert page.locator("#trades .found").inner_text().startswith(f"{lost} of")
    page.get_by_role("searchbox").fill("nothing like it")
    assert column(page, 1) == []
    page.get_by_label("Status").select_option("closed")
    page.get_by_role("searchbox").fill("aapl rebalance")
    known = closed[(closed["symbol"] == "AAPL") & (closed["exit_reason"] == "rebalance")]
    assert set(column(page, 1)) == {"AAPL"}
    assert page.locator("#trades .found").inner_text().startswith(f"{len(known)} of")
    page.locator("#trade-table tbody tr").nth(1).click()
    page.wait_for_selector("#trades .detail .chart[data-drawn] svg.main-svg")
    assert page.locator("#trade-title").inner_text().startswith("AAPL, ")
    with page.expect_download() as download:
        page.get_by_role("button", name="Download CSV").click()
    table = pd.read_csv(download.value.path())
    assert sorted(table["return"]) == pytest.approx(sorted(known["return"]), abs=1e-5)


def test_definitions_languages_and_keyboard(open_page, simulated):
    page = open_page(simulated)
    tip = page.locator("#tip")
    assert tip.is_hidden()
    page.locator('#statistics [data-key="daily_skew"]').focus()
    assert "skewness (G1) of daily returns" in tip.inner_text()
    page.keyboard.press("Escape")
    assert tip.is_hidden()
    unlabelled = page.evaluate("""() => [...document.querySelectorAll('button,input,select')]
        .filter(one => !(one.textContent.trim() || one.labels?.length || one.ariaLabel)).length""")
    assert unlabelled == 0
    assert not page.locator(":is([role=img], [role=figure]):not([aria-label])").count()
    assert not page.locator("table:not(:has(caption))").count()
    page.get_by_role("button", name="繁體中文").click()
    page.wait_for_selector("body[data-ready]")
    assert page.evaluate("document.documentElement.lang") == "zh-Hant"
    headings = page.locator("h2").all_inner_texts()
    assert headings[:3] == ["摘要", "淨值與回撤", "年報酬與月報酬"]
    assert not re.search(r"\{\w+\}|undefined|NaN", page.locator("main").inner_text())


def test_the_confidence_shown_is_the_one_computed(open_page, simulated):
    found = corvex.confidence(simulated)
    page = open_page(simulated)
    part = page.locator("#confidence")
    shown = part.locator(".sentences td").all_inner_texts()
    assert shown == [text for _, text in rows(found)]
    part.locator('[data-key="psr"]').focus()
    assert "Probabilistic Sharpe ratio" in page.locator("#tip").inner_text()
    fan = part.locator(".chart").first.evaluate("node => node.data.map(one => one.y.at(-1))")
    drawn = 100 * found.fan.iloc[-1].to_numpy()[[0, 4, 1, 3, 2]]
    own = simulated.daily_creturn
    assert fan == pytest.approx([*drawn, 100 * own.iloc[-1] / own.iloc[0]], rel=1e-4)
    depths = part.locator(".narrow td").all_inner_texts()[1::4]
    assert depths == [f"{depth:.2%}" for depth in found.drawdowns["depth_95"]]
    assert limits() in part.inner_text()
    page.get_by_role("button", name="繁體中文").click()
    page.wait_for_selector("body[data-ready]")
    assert part.locator(".sentences td").all_inner_texts() == [t for _, t in rows(found, "zh-Hant")]


def test_an_account_is_shown_in_money(open_page, with_account):
    page = open_page(with_account)
    assert page.locator(CHART.format("costs")).count()
    cash = with_account.account["cash"].iloc[-1]
    assert f"{cash:,.0f}" in page.locator("#holdings tfoot").inner_text()
    assert "Fees, each side\tby value" in page.locator("#costs tbody").first.inner_text()
    texts = page.locator("main").inner_text()
    assert not re.search("account_|undefined|NaN", texts)


def test_trades_tell_their_currency_and_what_its_rate_did(open_page):
    days = pd.bdate_range("2024-01-02", periods=8)
    prices = pd.DataFrame({"AAA": 100.0, "BBB": 50.0}, index=days)
    weights = pd.DataFrame({"AAA": [0.5, 0.0], "BBB": [0.5, 0.5]}, index=days[[0, 4]])
    rate = pd.Series(30.0 + np.arange(8), days, name="USDTWD")
    account = corvex.Account(
        capital=6e4, lot_size=1, currency={"AAA": "USD", "BBB": "TWD"}, base="TWD",
        fx=rate,
    )  # fmt: skip
    report = corvex.simulate(weights, prices, market="us_stock", account=account)
    page = open_page(report)
    table = page.locator("#trade-table")
    head = [
        text.split("\n")[0].rstrip(" ↕↓↑")
        for text in table.locator("th[scope=col]").all_inner_texts()
    ]
    cells = {
        row.locator("th").inner_text(): dict(
            zip(head[1:], row.locator("td").all_inner_texts(), strict=True)
        )
        for row in table.locator("tbody tr").all()
    }
    assert (cells["AAA"]["Quoted in"], cells["BBB"]["Quoted in"]) == ("USD", "TWD")
    moved = 35.0 / 31.0 - 1.0
    assert (cells["AAA"]["FX return"], cells["BBB"]["FX return"]) == (f"+{moved:.2%}", "0.00%")
    page.locator("#trade-search").fill("usd")
    table.locator("tbody button").click()
    detail = table.locator("tr.detail").inner_text()
    trade = report.trades.set_index("symbol").loc["AAA"]
    assert f"{trade['shares']:,.0f}" in detail
    assert f"{trade['money']:,.0f}" in detail


@pytest.mark.parametrize("width", [390, 740, 1200])
def test_a_long_value_stays_in_its_card(open_page, width):
    curve = pd.Series(np.geomspace(1, 1_234_567, 500), pd.bdate_range("2020-01-01", periods=500))
    page = open_page(bare_report(curve), viewport={"width": width, "height": 900})
    total = page.locator("#summary dd.big").first
    assert total.inner_text() == "123,456,600.00%"
    assert total.evaluate("node => node.scrollWidth <= node.clientWidth")


def test_a_report_with_nothing_but_a_curve_has_no_holes(open_page):
    days = pd.bdate_range("2024-01-01", periods=30, tz="Asia/Taipei")
    page = open_page(bare_report(pd.Series(range(30, 0, -1), index=days, dtype=float)))
    assert sections(page) == (
        "summary equity returns drawdowns distribution confidence holdings costs assumptions "
        "periods statistics"
    )
    text = page.locator("main").inner_text()
    assert not re.search(r"\{\w+\}|undefined|NaN|null|Infinity", text)
    assert page.locator("#drawdowns td strong").inner_text() == "open"


def test_ten_thousand_trades_are_paged_and_counted_in_fields(open_page, many_trades):
    # One far off the others is a point: fields up to it would be millions.
    many_trades.trades.loc[5000, ["return", "mfe"]] = 19.0
    page = open_page(many_trades)
    assert page.locator("#trades .found").inner_text().startswith("10,000 of 10,000")
    shown = page.locator("#excursions .chart").evaluate_all("""all => all.map(
        ({data: [fields, far]}) => [fields.text.flat().length,
            fields.text.flat().reduce((sum, n) => sum + n, far.x.length), Math.max(...far.y)])""")
    assert shown == [[4900, 10_000, 19]] * 2
    page.locator("#trade-table tbody tr").first.click()
    assert page.locator("#trades .excursion").get_attribute("aria-label")


@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_a_phone_sized_page_does_not_scroll_sideways(open_page, simulated, scheme, tmp_path):
    size = {"width": 390, "height": 844}
    page = open_page(simulated, viewport=size, color_scheme=scheme, has_touch=True, is_mobile=True)
    assert page.evaluate("document.documentElement.scrollWidth") <= 390
    background = page.evaluate("getComputedStyle(document.body).backgroundColor")
    assert background == {"light": "rgb(255, 255, 255)", "dark": "rgb(18, 22, 29)"}[scheme]
    assert len(page.screenshot()) > 10_000


def test_print_is_light_and_fits_the_sheet(open_page, simulated):
    page = open_page(simulated, color_scheme="dark")
    page.evaluate("""() => {
        addEventListener('afterprint', () => { window.printed = true; });
        window.widths = () => [...document.querySelectorAll('.chart')]
            .map(one => one.querySelector('svg.main-svg').clientWidth);
        addEventListener('beforeprint', () => { window.wide = Math.max(...widths()); });
    }""")
    sheet = page.pdf(format="A4", print_background=True)
    assert sheet.startswith(b"%PDF")
    assert page.evaluate("window.wide") <= 680
    note = page.get_by_text("In print, rows 1 to 25 of")
    assert note.count() == 1
    assert note.is_hidden()
    page.emulate_media(media="print")
    assert note.is_visible()
    assert page.evaluate("getComputedStyle(document.body).backgroundColor") == "rgb(255, 255, 255)"


def test_what_is_not_drawn_yet_is_drawn_for_print(open_page, many_trades):
    # Where the browser is never idle, only the first chart stands.
    first = "#equity .chart[data-drawn]"
    page = open_page(many_trades, ready=first, before="window.requestIdleCallback = () => {}")
    assert sections(page) == "summary equity"
    page.pdf(format="A4")
    assert page.locator("#excursions .chart[data-drawn] svg.main-svg").count()
    kinds = page.locator(".chart").evaluate_all(
        "all => all.flatMap(one => one._fullData.map(trace => trace.type))"
    )
    assert set(kinds) == {"scatter", "bar", "heatmap"}
    assert page.locator(".chart:not([data-drawn])").count() == 0


def test_an_address_with_a_section_opens_there_and_is_drawn_there(open_page, simulated):
    page = open_page(simulated, fragment="#excursions")
    top = page.locator("#excursions").evaluate("one => one.getBoundingClientRect().top")
    assert 0 < top < 100
    assert page.locator(CHART.format("excursions")).count()


def test_another_language_while_the_page_is_made_makes_it_once(open_page, simulated):
    page = open_page(simulated, ready="#tools button")
    page.get_by_role("button", name="繁體中文").click()
    page.wait_for_selector("body[data-ready]")
    names = sections(page).split()
    assert len(names) == len(set(names)) == page.locator("#contents li").count()
    assert page.locator("h2").first.inner_text() == "摘要"


def test_the_page_in_a_frame_is_drawn(chromium, simulated):
    page = chromium.new_page()
    page.set_content(f"<body>{generate_html(simulated, with_iframe=True)}")
    frame = page.frame_locator("iframe")
    frame.locator("body[data-ready]").wait_for(timeout=60_000)
    assert frame.locator(CHART.format("equity")).count()
    assert frame.locator("h1").inner_text().startswith(HOSTILE[:9])
    page.close()


def test_frames_of_a_notebook_share_the_library_and_wait_for_it(chromium, simulated, monkeypatch):
    outputs = []
    for cell, run in (("a", 1), ("a", 1), ("b", 2), ("a", 3), ("b", 4)):
        monkeypatch.setattr(notebook, "_place", lambda at=(cell, run): at)
        outputs.append(generate_html(simulated, with_iframe=True))
    notebook.carry_charts()
    assert ["window.corvexCharts" in text for text in outputs] == [True, False, False, True, False]
    shared, holder = outputs[1], outputs[0].partition("</iframe>")[2]
    page = chromium.new_page()
    page.set_content(f"<body>{shared}")
    waiting = page.frame_locator("iframe")
    waiting.locator("#elsewhere").wait_for(timeout=60_000)
    assert waiting.locator("#trade-table").count()  # tables need no library
    assert not waiting.locator(".chart[data-drawn]").count()
    append = "text => document.body.append(document.createRange().createContextualFragment(text))"
    page.evaluate(append, holder)
    waiting.locator("body[data-ready]").wait_for(timeout=60_000)
    assert waiting.locator(CHART.format("equity")).count()
    assert not waiting.locator("#elsewhere").count()
    page.close()


def test_mathematics_of_the_charts_agree_with_the_engine(chromium):
    rng = np.random.default_rng(3)
    curve, market = np.cumprod(1 + rng.normal(5e-4, 0.01, (2, 400)), axis=1)
    size, outside = 63, [-9.0, *rng.normal(0, 1, 3000), 40.0]
    page = chromium.new_page()
    code = base64.b64encode(asset("js/maths.js").encode()).decode()
    found = page.evaluate(
        """async ([code, curve, market, size, outside]) => {
            const m = await import(`data:text/javascript;base64,${code}`);
            const [own, other] = [m.changes(curve), m.changes(market)];
            const ticks = [[3, 5], [95, 105.2], [40, 9000], [1e-3, 1e9], [99.99, 100.01]];
            return { falls: m.drawdowns(curve), beta: m.rollingBeta(own, other, size),
                ...m.rollingRisk(own, size, 252, 0.02), fields: m.countedFields(outside, outside),
                late: m.rebased([null, 4, 5], 0, [100, 120, 90]),
                gains: [m.gain([null, 2, 3, null], 0, 3), m.gain([null, null], 0, 1)],
                ticks: ["log", "linear"].map((scale) =>
                    ticks.map(([a, b]) => [a, b, m.axisTicks(a, b, scale)])) };
        }""",
        [code, curve.tolist(), market.tolist(), size, outside],
    )
    page.close()
    assert found["falls"] == pytest.approx(_engine.drawdown_curve(curve))
    assert found["sharpe"][:size] == found["beta"][:size] == [None] * size
    days = pd.date_range("2024-01-01", periods=400).as_unit("ns").asi8
    for row in (size, 200, 399):
        window = slice(row - size, row + 1)
        record = _engine.performance_record(curve[window], days[window], 0.02, 252)[0]
        own = dict(zip(_engine.FIGURE_NAMES, record, strict=True))
        assert found["sharpe"][row] == pytest.approx(own["daily_sharpe"])
        assert found["volatility"][row] == pytest.approx(own["daily_vol"])
        beta = _engine.benchmark_fit(curve[window], market[window], 252)[1]
        assert found["beta"][row] == pytest.approx(beta)
    counted = np.array(found["fields"]["counts"])
    assert counted.shape == (70, 70)
    assert counted.sum() + len(found["fields"]["outside"]) == len(outside)
    assert {0, len(outside) - 1} <= set(found["fields"]["outside"])
    assert found["late"] == [None, 120, 150]
    assert found["gains"] == [0.5, None]
    for place, scale in zip((np.log, np.asarray), found["ticks"], strict=True):
        for low, high, ticks in scale:
            gaps = np.diff(place(ticks)) / (place(high) - place(low))
            assert 3 <= len(ticks) <= 16
            assert low <= ticks[0] < ticks[-1] <= high * (1 + 1e-12)
            assert gaps.min() > 1 / 15.01


def test_comparison_draws_its_curves_and_rebases_the_range_chosen(open_page, simulated):
    other = bare_report(simulated.daily_creturn.iloc[200:] ** 0.5)
    result = compare({HOSTILE: simulated, "half": other})
    page = open_page(comparison_html(result))
    assert sections(page) == "figures equity years correlation runs"
    assert page.locator("#figures thead th").all_inner_texts()[1:] == [HOSTILE, "half"]
    assert page.locator(CHART.format("equity")).count() > 0
    page.get_by_role("button", name="3Y").click()
    curves = result.curves
    start = curves.index[-1] - pd.DateOffset(years=3)
    gain = curves["half"].iloc[-1] / curves["half"][:start].iloc[-1] - 1
    assert f"half {gain:+.2%}" in page.locator("#equity .view").inner_text()
    page.get_by_role("button", name="繁體中文").click()
    assert page.locator("#years h2").inner_text() == "各年報酬"
