"""The summary that ``corvex show``, ``report`` and ``demo`` print of a report."""

from __future__ import annotations

import os
import re
import sys
from collections.abc import Iterator, Mapping
from typing import TYPE_CHECKING, Any

import numpy as np

from corvex.cli.report_tables import count, percent
from corvex.ffn_core.catalogue import catalogue, show
from corvex.plaintext import display_width, padded, printable

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["LANGUAGES", "confidence_summary", "language", "summary"]

LANGUAGES = ("en", "zh-Hant")
_WIDTH = 80
_MOST_NAMES = 12  # of assets in one line of the last rebalance

_WORDS: dict[str, dict[str, str]] = {
    "en": {
        "unnamed": "Unnamed strategy",
        "us_stock": "US stocks",
        "tw_stock": "Taiwan stocks",
        "span": "{start} to {end}, {years:.1f} years",
        "strategy": "strategy",
        "benchmark": "benchmark",
        "fall": "from {start} to its low on {valley}, ",
        "recovered": "recovered on {end}",
        "open": "not recovered yet",
        "trades": "Winning trades",
        "of_trades": "{share} of {closed} closed, {open} open",
        "against": "Benchmark",
        "against_span": "{name}, {start} to {end}",
        "against_default": "{name} (the default of its market), {start} to {end}",
        "unnamed_benchmark": "without a name",
        "no_benchmark": "none",
        "converted": "in {to}",
        "as_quoted": "as quoted, the account in {to}",
        "costs": "Costs",
        "fee": "fee {fee} on each side",
        "tax": "tax {tax} on sales",
        "slippage": "slippage {slippage}",
        "no_costs": "no fee, no tax",
        "by asset": "by asset",
        "by value": "by value",
        "by date": "by date",
        "a table": "by date and asset",
        "paid": "in all {total} of the first equity",
        "turnover": "turnover {turnover} a year",
        "rate": "Risk-free rate",
        "rate_text": "{rate} a year",
        "rebalance": "Last rebalance",
        "more": "and {count} more",
        "comma": ", ",
        "colon": ": ",
    },
    "zh-Hant": {
        "unnamed": "未命名的策略",
        "us_stock": "美股",
        "tw_stock": "台股",
        "crypto": "加密貨幣",
        "span": "{start} 至 {end}，{years:.1f} 年",
        "strategy": "策略",
        "benchmark": "基準",
        "fall": "自 {start} 至 {valley} 的低點，",
        "recovered": "{end} 回復",
        "open": "尚未回復",
        "trades": "勝率",
        "of_trades": "{share}，共 {closed} 筆已出場，{open} 筆未出場",
        "against": "基準",
        "against_span": "{name}，{start} 至 {end}",
        "against_default": "{name}（該市場的預設基準），{start} 至 {end}",
        "unnamed_benchmark": "未命名",
        "no_benchmark": "無",
        "converted": "以 {to} 計",
        "as_quoted": "以報價幣別計，帳戶以 {to} 計",
        "costs": "成本",
        "fee": "手續費每邊 {fee}",
        "tax": "賣出交易稅 {tax}",
        "slippage": "滑價 {slippage}",
        "no_costs": "無手續費、無交易稅",
        "by asset": "依標的",
        "by value": "依金額",
        "by date": "依日期",
        "a table": "依日期與標的",
        "paid": "累計為期初淨值的 {total}",
        "turnover": "年週轉率 {turnover}",
        "rate": "無風險利率",
        "rate_text": "每年 {rate}",
        "rebalance": "最近換股",
        "more": "等共 {count} 檔",
        "comma": "，",
        "colon": "：",
    },
}


def language(wanted: str | None) -> str:
    """Return the language to print: the one asked for, else that of the locale.

    Raises
    ------
    ValueError
        When another one than English or Chinese is asked for.
    """
    if wanted is not None:
        for known in LANGUAGES:
            if wanted.lower().replace("_", "-").split("-")[0] == known.split("-")[0]:
                return known
        raise ValueError(f"--lang must be one of {', '.join(LANGUAGES)}, got {wanted!r}")
    names = (os.environ.get(name, "") for name in ("LC_ALL", "LC_MESSAGES", "LANG"))
    chinese = next((name for name in names if name), "").lower().startswith("zh")
    return "zh-Hant" if chinese and _can_print("策略") else "en"


def _can_print(text: str) -> bool:
    try:
        text.encode(getattr(sys.stdout, "encoding", None) or "ascii")
    except (UnicodeError, LookupError):
        return False
    return True


def summary(report: Report, name: str | None, lang: str, riskfree_rate: float | None = None) -> str:
    """Describe a report in a few lines.

    Parameters
    ----------
    report : Report
        It is not changed.
    name : str or None
        Its title.
    lang : {"en", "zh-Hant"}
        Language of the labels.
    riskfree_rate : float, optional
        A year, for the Sharpe ratios; by default the report's own ``riskfree_rate``, else 0.02.

    Returns
    -------
    str
        Growth, volatility, Sharpe ratio and largest drawdown beside the benchmark's, the dates
        of that drawdown, trades, costs and the last rebalance; ends with a line break.
    """
    from corvex.core.dashboard.figures.curve_series import riskfree_of

    words = _WORDS[lang]
    riskfree = riskfree_of(report, riskfree_rate)
    stats = report.get_stats(riskfree_rate=riskfree)
    columns, span = _benchmark(report, riskfree)
    lines = [_heading(report, name, stats, words), "", *_figures(stats, columns, lang)]
    rows = [
        ("trades", _trades(report, words)),
        ("against", _against(report, span, words)),
        ("costs", _costs(report, words)),
        ("rate", words["rate_text"].format(rate=_rate(riskfree, words))),
        *(("rebalance", line) for line in _actions(report, lang)),
    ]
    rows = [(words[key], text) for key, text in rows if text]
    wide = max(display_width(label) for label, _ in rows) + 2
    shown = ""
    for label, text in rows:
        lines += _wrapped("" if label == shown else label, text, wide)
        shown = label
    return "\n".join([*lines, ""])


def confidence_summary(report: Report, lang: str, riskfree_rate: float | None = None) -> str:
    """Say in a few lines how far chance alone could have gone; ends with a line break.

    Parameters
    ----------
    report : Report
        Its own attribute `trials_statistics` tells how many trials it was chosen from.
    lang : {"en", "zh-Hant"}
    riskfree_rate : float, optional
        As for `summary`.
    """
    from corvex.core.dashboard.figures.curve_series import riskfree_of
    from corvex.significance.uncertainty import confidence
    from corvex.significance.words import limits, nothing, rows, section

    found = confidence(report, riskfree_rate=riskfree_of(report, riskfree_rate))
    told = [(catalogue().figures[key].label(lang), text) for key, text in rows(found, lang)]
    wide = max((display_width(label) for label, _ in told), default=0) + 2
    lines = [section(lang), ""]
    for label, text in told:
        lines += _wrapped(label, text, wide)
    lines += ["", *_wrapped("", limits(lang), 0)] if told else [nothing(lang)]
    return "\n".join([*lines, ""])


def _heading(
    report: Report, name: str | None, stats: Mapping[str, Any], words: Mapping[str, str]
) -> str:
    title = printable(name) if name else words["unnamed"]
    market = printable(report.market.get_name())
    facts = [words.get(market, market)]
    if stats.get("start") and stats.get("end"):
        start, end = (np.datetime64(stats[key], "D") for key in ("start", "end"))
        years = float((end - start).astype(int)) / 365.25
        facts.append(words["span"].format(start=start, end=end, years=years))
    return f"{title}\n{words['comma'].join(facts)}"


def _benchmark(
    report: Report, riskfree_rate: float
) -> tuple[Mapping[str, Any] | None, tuple[str, str] | None]:
    """Return the benchmark's figures and the dates that they cover; None where it has none."""
    from corvex.core.dashboard.figures.curve_series import benchmark_figures, iso_day, read_curves

    curves = read_curves(report)
    if curves.benchmark is None:
        return None, None
    known = curves.days[np.isfinite(curves.benchmark)]
    figures = benchmark_figures(report, riskfree_rate)
    return figures, (iso_day(known[0]), iso_day(known[-1]))


def _figures(
    stats: Mapping[str, Any], benchmark: Mapping[str, Any] | None, lang: str
) -> Iterator[str]:
    """Yield the table of the figures, with the dates of the largest drawdown under it."""
    words = _WORDS[lang]
    both = [stats] if benchmark is None else [stats, benchmark]
    heads = ["strategy", "benchmark"][: len(both)]
    rows = [("", [words[head] for head in heads])]
    for key in catalogue().views["summary"]:
        label = catalogue().figures[key].label(lang)
        rows.append((label, [show(key, figures.get(key)) for figures in both]))
    wide = max(display_width(label) for label, _ in rows) + 2
    column = max(display_width(cell) for _, cells in rows for cell in cells) + 2
    for label, cells in rows:
        yield padded(label, wide) + "".join(padded(cell, column, right=True) for cell in cells)
    details = stats.get("drawdown_details")
    if isinstance(details, list) and details:
        worst = min(details, key=lambda row: row["depth"])
        end = words["open"] if worst["end"] is None else words["recovered"].format(**worst)
        yield "  " + words["fall"].format(**worst) + end
    yield ""


def _trades(report: Report, words: Mapping[str, str]) -> str:
    from corvex.core.dashboard.figures.trade_series import trade_figures

    found = trade_figures(report.trades)
    if found is None:
        return ""
    return words["of_trades"].format(
        share=percent(found["win_rate"]),
        closed=f"{found['trades']:,}",
        open=count(found["open_trades"]),
    )


def _against(report: Report, span: tuple[str, str] | None, words: Mapping[str, str]) -> str:
    from corvex.core.dashboard.figures.account_money import benchmark_money

    if span is None:
        return words["no_benchmark"]
    name = getattr(report.benchmark, "name", None)
    known = printable(name) if isinstance(name, str) and name else words["unnamed_benchmark"]
    default = getattr(report.market, "benchmark_source", "own") == "default"
    form = words["against_default" if default else "against_span"]
    text = form.format(name=known, start=span[0], end=span[1])
    money = benchmark_money(report)
    if money is None:
        return text
    kind = words["converted" if "from" in money else "as_quoted"]
    return text + words["comma"] + kind.format(to=printable(money["to"]))


def _costs(report: Report, words: Mapping[str, str]) -> str:
    from corvex.core.dashboard.figures.activity import costs

    found = costs(report)
    rates = [
        words[key].format(**{key: _rate(found[name], words)})
        for key, name in (
            ("fee", "fee_ratio"),
            ("tax", "tax_ratio"),
            ("slippage", "slippage_ratio"),
        )
        if found[name]
    ]
    parts = rates or ([] if found["total"] else [words["no_costs"]])
    if found["total"]:
        parts.append(words["paid"].format(total=percent(found["total"])))
    if found["turnover"] is not None:
        parts.append(words["turnover"].format(turnover=percent(found["turnover"])))
    return words["comma"].join(parts)


def _actions(report: Report, lang: str) -> Iterator[str]:
    """Yield what the last rebalance does, a line for each kind of action."""
    from corvex.trades.reasons import action_text

    words = _WORDS[lang]
    actions = getattr(report, "actions", None)
    if actions is None or not len(actions):
        return
    for action in dict.fromkeys(action for action in actions if action):
        names = [printable(asset) for asset in actions.index[actions == action]]
        shown = words["comma"].join(names[:_MOST_NAMES])
        if len(names) > _MOST_NAMES:
            rest = len(names) if lang == "zh-Hant" else len(names) - _MOST_NAMES
            shown += words["comma"] + words["more"].format(count=rest)
        yield printable(action_text(str(action), lang)) + words["colon"] + shown


def _wrapped(label: str, text: str, wide: int) -> list[str]:
    """Return a row as lines that fit, broken behind blanks and Chinese commas."""
    lines = [padded(label, wide)]
    for part in re.findall("[^ ，]+[ ，]*|[ ，]+", text):
        if display_width(lines[-1] + part.rstrip()) > _WIDTH and lines[-1].strip():
            lines.append(" " * wide)
        lines[-1] += part
    return [line.rstrip() for line in lines]


def _rate(value: float | str, words: Mapping[str, str]) -> str:
    if isinstance(value, str):  # an account's, which is no single number
        return words[value]
    return f"{round(value * 100, 4):g}%"
