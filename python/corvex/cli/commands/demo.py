"""``corvex demo``: a strategy on the built-in prices."""

from __future__ import annotations

from pathlib import Path
from typing import TYPE_CHECKING, Any, cast

from corvex.cli.console import Steps
from corvex.cli.parameters import Lang, Out, Text, Width
from corvex.cli.saved import is_special, save_page, save_report, target_file

if TYPE_CHECKING:
    import pandas as pd

    from corvex.core.report import Report

__all__ = ["NAME", "STEPS", "SURVIVORS", "best_by_momentum", "demo", "publish_demo", "run_demo"]

NAME = "Momentum 12-1"
STEPS = 5
_MONTH = 21  # sessions

#: What the sweep varies: 200 combinations.
SIGNALS = {"count": [3, 4, 5, 6, 8], "months": [6, 9, 12, 15]}
OPTIONS = {"trail_stop": [None, 0.15, 0.2, 0.25, 0.3], "resample": ["ME", "QE"]}

#: What a reader of the result is to know, by language.
SURVIVORS = {
    "en": "The prices are those of stocks that survived: for examples, not for investment.",
    "zh-Hant": "價格僅含存續至今的股票：供示範之用，不宜作為投資依據。",
}


#: What an account of the same strategy says of each of its terms, by language.
_ACCOUNTS = {
    "en": ("An account of 100,000 in whole shares", "CAGR", "fees a year", "interest a year"),
    "zh-Hant": ("資金 100,000、以整股交易的帳戶", "年化報酬率", "每年手續費", "每年利息"),
}
_SHARED = {"en": "fee 0.1% of the value", "zh-Hant": "手續費 0.1%"}
_CASH = {"en": "and 3% a year on cash", "zh-Hant": "另計現金年利率 3%"}
_PER_SHARE = {
    "en": "and 0.005 a share instead of 0.1%",
    "zh-Hant": "另改為每股 0.005",
}
_FEES = {"fee_per_share": 0.005, "min_fee": 1.0, "max_fee_ratio": 0.01}
_TERMS: tuple[tuple[dict[str, str], dict[str, Any]], ...] = (
    (_SHARED, {"fee_ratio": 0.001}),
    (_CASH, {"fee_ratio": 0.001, "cash_rate": 0.03}),
    (_PER_SHARE, {**_FEES, "cash_rate": 0.03}),
)


def demo(
    out: Out = None,
    width: Width = None,
    text: Text = False,
    lang: Lang = None,
) -> None:
    """Run a momentum strategy on the built-in prices and show its report.

    Each month it holds the five of twenty US stocks with the best 12-1 momentum, with fees and a
    trailing stop. The report is saved to corvex-demo.corvex in the current folder, or to --out, and
    its page beside it.
    """
    from corvex.cli.shown import print_report
    from corvex.cli.summary import language

    chosen = language(lang)
    target = target_file(out or Path(), "corvex-demo.corvex")
    page = None if is_special(target) else _beside(target)
    with Steps(STEPS + 4) as steps:
        report = run_demo(steps)
        with steps.step("keep three accounts"):
            accounts = account_lines(chosen)
        with steps.step("write the report"):
            save_report(report, target)
        if page is not None:
            with steps.step("write its page"):
                save_page(report, page)
        with steps.step("publish and read back"):
            published = publish_demo(report)
    print_report(report, NAME, width, chosen, text=text, confidence=not text)
    if not text:
        print(f"{accounts}\n")
    print(f"{SURVIVORS[chosen]}\n")
    steps.print_times()
    print(f"\n{published}")
    again = target.name if target.parent == Path.cwd() else target
    print(f"\nReport written to {target}; corvex show {again} prints it again.")
    if page is not None:
        print(f"Page written to {page}")


def _beside(saved: Path) -> Path:
    """Return where the page of a saved report goes."""
    return saved.with_suffix(".page.html" if saved.suffix == ".html" else ".html")


def best_by_momentum(prices: pd.DataFrame, count: int = 5, months: int = 12) -> pd.DataFrame:
    """Mark the assets with the best momentum, 12-1 by default.

    Parameters
    ----------
    prices : DataFrame
        Adjusted daily closes, dates x assets.
    count : int, default 5
        How many to hold.
    months : int, default 12
        How far back it looks.

    Returns
    -------
    DataFrame
        True for the `count` assets of each date whose price a month ago stood highest above that
        of `months` ago. The last month is left out since it tends to revert (Jegadeesh, 1990;
        Jegadeesh and Titman, 1993). No asset is marked before that many months of
        prices.
    """
    momentum = prices.shift(_MONTH) / prices.shift(months * _MONTH) - 1
    rank = momentum.rank(axis=1, ascending=False, method="first")
    return rank <= count


def run_demo(steps: Steps) -> Report:
    """Simulate the strategy on the built-in prices, step by step.

    Monthly, equal weights, 0.1 % fee on each side. A stock that falls a quarter from its best
    close since entry is sold, and stays out until the next month. Its variants are swept too.
    """
    import corvex
    from corvex.cli.shown import keep_rank

    fixed: dict[str, Any] = {"fee_ratio": 0.001, "benchmark": "sp500", "market": "us_stock"}
    with steps.step("read the built-in prices"):
        prices = corvex.data.get_frame("us_stocks")
    with steps.step("rank by momentum"):
        best = best_by_momentum(prices)
    with steps.step("simulate"):
        report = corvex.simulate(best, prices, resample="ME", trail_stop=0.25, name=NAME, **fixed)
    report.notes = [SURVIVORS]
    with steps.step("compute the statistics"):
        report.get_stats()
        keep_rank(report)
    with steps.step("sweep 200 variants"):
        corvex.sweep(
            best_by_momentum, prices, signal=SIGNALS, options=OPTIONS, progress=False, **fixed
        )
    return report


def account_lines(lang: str) -> str:
    """Keep an account of the strategy on several terms, and say what each of them changes.

    A fee per share is at least 1 and at most 1 % of an order. The prices are adjusted ones, so
    early shares are cheaper and more than they were: without that most, fees would be too large.
    """
    import corvex
    from corvex.explain.account_figures import account_drag
    from corvex.plaintext import text_table

    prices = corvex.data.get_frame("us_stocks")
    best = best_by_momentum(prices)
    rows = []
    for told, terms in _TERMS:
        account = corvex.Account(capital=100_000, lot_size=1, **terms)
        report = corvex.simulate(
            best, prices, resample="ME", trail_stop=0.25, market="us_stock", account=account
        )
        drag = account_drag(cast("pd.DataFrame", report.account))["yearly"]
        figures = report.get_stats()["cagr"], drag["fees"], drag["interest"]
        rows.append([told[lang], *(f"{figure:.2%}" for figure in figures)])
    return text_table(_ACCOUNTS[lang], rows, wide=40, head=20)


def publish_demo(report: Report) -> str:
    """Publish the report to a server on this machine, read its state back, and say what came."""
    from corvex.testing.trial import publish_for_trial

    try:
        execution = publish_for_trial(report, NAME)
    except OSError as error:
        return f"No server can run on this machine's own address, so nothing was published: {error}"
    held = ", ".join(str(asset) for asset, weight in execution.weights.items() if weight)
    return (
        "Published to a trial server on this machine, gone by now, and read back from it:\n"
        f"  held {held}\n  next session {execution.next_trading_date:%Y-%m-%d}"
    )
