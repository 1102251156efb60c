"""The tables of ``corvex show``: figures, trades, and what a live trader needs."""

from __future__ import annotations

import math
import shutil
import sys
from collections.abc import Callable, Iterable
from typing import TYPE_CHECKING, Any, Literal

import pandas as pd

from corvex.cli.table_words import told
from corvex.ffn_core.catalogue import show
from corvex.plaintext import printable

if TYPE_CHECKING:
    from corvex.core.report import Report, ReportExecution

__all__ = ["count", "percent", "print_live", "print_metrics", "print_table", "print_trades"]

_LEAST_WIDTH = 112  # for what goes into a file or a pipe
_NONE = "-"


def print_metrics(report: Report, lang: str = "en") -> None:
    """Print every figure of the metrics, a table for each section."""
    from corvex.core.dashboard.figures.curve_series import riskfree_of

    for section, figures in report.get_metrics(riskfree_rate=riskfree_of(report)).items():
        rows = [(name, show(name, value)) for name, value in figures.items()]
        print_table(section, ["figure", "value"], rows, right=[1], lang=lang)


def print_trades(report: Report, lang: str = "en") -> None:
    """Print every round trip, the open ones at the end of their own dates."""
    from corvex.trades.reasons import reason_text

    trades = report.trades
    columns: dict[str, tuple[str, Callable[[Any], str]]] = {
        "symbol": ("asset", str),
        "entry_date": ("entry", _date),
        "exit_date": ("exit", _date),
        "position": ("weight", percent),
        "period": ("bars", count),
        "return": ("return", percent),
        "currency_return": ("FX return", percent),
        "mae": ("MAE", percent),
        "mfe": ("MFE", percent),
        "money": ("money", amount),
        "exit_reason": (
            "reason",
            lambda reason: reason_text(str(reason), lang) or told("open", lang),
        ),
    }
    known = [name for name in columns if name in trades.columns]
    cells = [[columns[name][1](value) for value in trades[name]] for name in known]
    numbers = (percent, count, amount)
    right = [i for i, name in enumerate(known) if columns[name][1] in numbers]
    print_table(
        told("trades ({count})", lang, count=len(trades)),
        # A terminal is narrow: its English headings are shorter than a workbook's.
        [columns[name][0] if lang == "en" else told(name, lang, "Trades") for name in known],
        zip(*cells, strict=True),
        right=right,
        lang=lang,
    )


def print_live(report: Report, lang: str = "en") -> None:
    """Print the state of a report for live trading, and how the live part has done."""
    from corvex.core.dashboard.figures.curve_series import riskfree_of

    execution = report.execution
    parts = execution if isinstance(execution, dict) else {"": execution}
    answers = {
        "data fresh enough to trade (is_tradable)": report.is_tradable(),
        "rebalance due (is_rebalance_due)": report.is_rebalance_due(),
        "next weights count now (uses_next_weights)": report.uses_next_weights(),
        "stop triggered (is_stop_triggered)": report.is_stop_triggered(),
    }
    rows = [
        (told(question, lang), told("yes" if answer else "no", lang))
        for question, answer in answers.items()
    ]
    rows += [
        (told(name.replace("_", " "), lang), _date(getattr(report, name, None)))
        for name in ("current_rebalance_date", "next_rebalance_date", "next_trading_date")
    ]
    print_table(told("live", lang), ["question", "answer"], rows, lang=lang)
    for name, part in parts.items():
        title = told("execution {name}", lang, name=name) if name else told("execution", lang)
        _print_execution(title, part, lang)
    _print_current_trades(report, lang)
    if getattr(report, "live_performance_start", None) is not None:
        from corvex.explain.live_performance import live_figures

        figures = live_figures(report, riskfree_of(report))
        print_table(
            told("since {date}", lang, date=_date(report.live_performance_start)),
            ["figure", *(str(column) for column in figures.columns)],
            [
                (name, *(show(str(name), float(v)) for v in row))
                for name, row in zip(figures.index, figures.to_numpy(), strict=True)
            ],
            right=range(1, len(figures.columns) + 1),
            lang=lang,
        )


def _print_execution(title: str, execution: ReportExecution, lang: str) -> None:
    from corvex.trades.reasons import action_text

    now, following, actions = execution.weights, execution.next_weights, execution.actions
    assets = now.index.union(following.index, sort=False).union(actions.index, sort=False)
    rows = [
        (
            str(asset),
            percent(now.get(asset, 0.0)),
            percent(following.get(asset, 0.0)),
            action_text(str(actions.get(asset, _NONE)), lang),
        )
        for asset in assets
    ]
    print_table(title, ["asset", "weight", "next weight", "action"], rows, right=[1, 2], lang=lang)


def _print_current_trades(report: Report, lang: str) -> None:
    trades = getattr(report, "current_trades", None)
    if not isinstance(trades, pd.DataFrame):
        return
    wanted = ("entry_date", "weight", "next_weights", "return")
    known = [name for name in wanted if name in trades.columns]
    shown = {"entry_date": _date}
    rows = [
        (str(asset), *(shown.get(name, percent)(trades[name].iloc[at]) for name in known))
        for at, asset in enumerate(trades.index)
    ]
    print_table(
        told("current trades", lang),
        ["asset", *(name.replace("_", " ") for name in known)],
        rows,
        right=[i + 1 for i, name in enumerate(known) if name != "entry_date"],
        lang=lang,
    )


def _missing(value: Any) -> bool:
    return value is None or value is pd.NaT or (isinstance(value, float) and math.isnan(value))


def amount(value: Any) -> str:
    """Write money with its decimals, a large sum without them."""
    return _NONE if _missing(value) else f"{value:,.{2 if abs(value) < 1000 else 0}f}"


def percent(value: Any) -> str:
    """Write a fraction in percent."""
    return _NONE if _missing(value) else f"{float(value):.2%}"


def count(value: Any) -> str:
    """Write a whole number."""
    return _NONE if _missing(value) else f"{value:.0f}"


def _date(value: Any) -> str:
    if _missing(value):
        return _NONE
    stamp = pd.Timestamp(value)
    bare = stamp == stamp.normalize()
    return str(stamp.strftime("%Y-%m-%d" if bare else "%Y-%m-%d %H:%M"))


def print_table(
    title: str,
    header: list[str],
    rows: Iterable[Iterable[str]],
    right: Iterable[int] = (),
    lang: str = "en",
) -> None:
    """Print a table as wide as the terminal; columns `right` stand at the right.

    The headings are looked up in `lang`; all else is as it is given.
    """
    from rich import box
    from rich.console import Console
    from rich.markup import escape
    from rich.table import Table

    table = Table(
        title=escape(printable(title)), title_justify="left", box=box.SIMPLE_HEAD, padding=(0, 1)
    )
    at_right = set(right)
    for at, name in enumerate(header):
        justify: Literal["left", "right"] = "right" if at in at_right else "left"
        table.add_column(escape(printable(told(name, lang))), justify=justify, overflow="fold")
    for row in rows:
        table.add_row(*(escape(printable(cell)) for cell in row))
    if not table.rows:
        table.caption = told("none", lang)
    columns = shutil.get_terminal_size((_LEAST_WIDTH, 24)).columns
    width = columns if sys.stdout.isatty() else max(columns, _LEAST_WIDTH)
    Console(file=sys.stdout, width=width, highlight=False).print(table)
