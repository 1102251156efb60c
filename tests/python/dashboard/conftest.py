import sys
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.core.dashboard import generate_html

sys.path.insert(0, str(Path(__file__).parent))
sys.path.insert(0, str(Path(__file__).parents[3] / "tools"))
import chromium as installed
from dashboard_reports import HOSTILE, bare_report


@pytest.fixture(scope="module")
def chromium():
    program = installed.find()
    if program is None:
        pytest.skip("no Chromium is installed, so the page was not opened in a browser")
    sync_api = pytest.importorskip("playwright.sync_api", reason="playwright is not installed")
    with sync_api.sync_playwright() as playwright:
        browser = playwright.chromium.launch(executable_path=program, args=installed.ARGUMENTS)
        yield browser
        browser.close()


@pytest.fixture
def open_page(chromium, tmp_path):
    """Open a report's page; at the end nothing may have been logged, asked for or run."""
    contexts, complaints = [], []

    def open_(report, ready="body[data-ready]", before="", fragment="", **settings):
        path = tmp_path / f"{len(contexts)}.html"
        text = report if isinstance(report, str) else generate_html(report)
        path.write_text(text, encoding="utf-8")
        settings = {"viewport": {"width": 1200, "height": 900}, "locale": "en-US", **settings}
        context = chromium.new_context(offline=True, reduced_motion="reduce", **settings)
        contexts.append(context)
        page = context.new_page()
        page.add_init_script(before)
        page.set_default_timeout(60_000)
        page.on("console", lambda message: complaints.append(message.text))
        page.on("pageerror", lambda error: complaints.append(str(error)))
        page.on("dialog", lambda dialog: (complaints.append(dialog.message), dialog.dismiss()))
        page.on("request", lambda request: complaints.append(request.url))
        page.goto(path.as_uri() + fragment)
        page.wait_for_selector(ready)
        complaints[:] = [text for text in complaints if text.split("#")[0] != path.as_uri()]
        return page

    yield open_
    for context in contexts:
        context.close()
    assert [text for text in complaints if not text.startswith(("blob:", "data:"))] == []


@pytest.fixture(scope="session")
def simulated():
    """A momentum strategy on the built-in prices; its assets and its name are hostile."""
    prices = corvex.data.sample("us_stocks").loc["2016-06-01":]
    prices.columns = [f"{HOSTILE}{name}" if name == "AMD" else name for name in prices.columns]
    best = prices.pct_change(126, fill_method=None).rank(axis=1, ascending=False) <= 5
    benchmark = corvex.data.sample("sp500").rename(HOSTILE)
    return corvex.simulate(
        best,
        prices,
        resample="ME",
        fee_ratio=0.001,
        stop_loss=0.15,
        market="us_stock",
        benchmark=benchmark,
        live_performance_start="2021-06-01",
        name=HOSTILE,
    )


@pytest.fixture(scope="session")
def with_account():
    """Half a year long and short of prices that stay about where they are."""
    days = pd.bdate_range("2024-01-02", periods=130)
    swings = np.random.default_rng(3).normal(0, 0.2, (130, 3))
    prices = pd.DataFrame(50.0 + swings, days, ["AAA", "BBB", "CCC"])
    prices.iloc[-3:, 2] /= 2
    weights = pd.DataFrame({"AAA": [0.8, 0.4] * 6, "BBB": -0.3, "CCC": 0.3}, index=days[::11])
    account = corvex.Account(
        capital=10_000, lot_size=1, cash_rate=0.03, financing_rate=0.05, borrow_rate=0.02,
        fee_table={0: 0.001, 5_000: 0.0005}, slippage_ratio=0.001, withholding_tax=0.3,
        splits=pd.DataFrame({"CCC": [2.0]}, days[-3:-2]),
        dividends=pd.DataFrame({"AAA": [0.5]}, days[60:61]),
    )  # fmt: skip
    return corvex.simulate(weights, prices, market="us_stock", leverage=True, account=account)


@pytest.fixture
def many_trades(simulated):
    """Ten years with 10,000 trades."""
    days = pd.bdate_range("2013-01-02", periods=2520)
    rng = np.random.default_rng(5)
    curve = pd.Series(np.cumprod(1 + rng.normal(4e-4, 0.01, days.size)), index=days)
    market = pd.Series(np.cumprod(1 + rng.normal(3e-4, 0.01, days.size)), index=days)
    report = bare_report(curve, market)
    n = 10_000
    entry = np.sort(rng.integers(0, days.size - 60, n))
    length = rng.integers(1, 60, n)
    trades = pd.DataFrame(
        {
            "symbol": rng.choice([f"{code} company" for code in range(1101, 1601)], n),
            "entry_sig_date": days[entry],
            "entry_date": days[entry + 1],
            "exit_sig_date": days[entry + length - 1],
            "exit_date": days[entry + length],
            "position": rng.choice([0.05, 0.1], n),
            "period": length,
            "return": rng.normal(0.005, 0.06, n),
            "trade_price@entry_date": rng.lognormal(4, 1, n),
            "trade_price@exit_date": rng.lognormal(4, 1, n),
        }
    )
    for name in ("mae", "mfe", "mfe_before_mae", "max_drawdown"):
        trades[name] = rng.normal(0, 0.04, n)
    report.trades = trades.assign(days_in_profit=length // 2, exit_reason="rebalance")
    return report
