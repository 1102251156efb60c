"""The tables of a report as a spreadsheet shows them."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Mapping, Sequence
from dataclasses import dataclass, replace
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.core.dashboard.figures.curve_series import Curves, read_curves
from corvex.core.dashboard.figures.dataset import collect
from corvex.exporting.headings import MONTHS, Language, word
from corvex.ffn_core.catalogue import catalogue
from corvex.trades.reasons import action_text, reason_text

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["Cell", "Form", "Sheet", "sheets_of"]

type Form = Literal["text", "percent", "ratio", "count", "price", "money", "date"]

_FORMS: dict[str, Form] = {"fraction": "percent", "count": "count", "days": "ratio", "date": "date"}
_FRACTIONS = {
    *("position", "return", "currency_return"),
    *("mae", "mfe", "mfe_before_mae", "max_drawdown"),
}
_RUN = {
    "name": "Name", "market": "Market", "start": "First date", "end": "Last date",
    "benchmark": "Benchmark", "riskfree": "Risk-free rate", "bar": "Bars",
    "fee_ratio": "Fee on each side", "tax_ratio": "Tax on sales", "slippage_ratio": "Slippage",
    "generated": "Written at (UTC)",
}  # fmt: skip
_RATE_TEXTS = (
    "by asset",
    "by value",
    "by date",
    "a table",
)  # of an account, where others have a ratio
_OF_RUN: dict[str, Form] = {
    "start": "date", "end": "date", "generated": "date", "riskfree": "percent",
    "fee_ratio": "percent", "tax_ratio": "percent", "slippage_ratio": "percent",
}  # fmt: skip


@dataclass(frozen=True, slots=True)
class Cell:
    """A value and how it is shown."""

    value: Any
    form: Form


@dataclass(frozen=True, slots=True)
class Sheet:
    """One sheet.

    Attributes
    ----------
    title : str
        On its tab.
    header : sequence of str
        Names of the columns.
    rows : iterable of sequences of Cell
        Of the columns each.
    length : int
        How many rows there are.
    shaded : tuple of int or None
        First and last column of fractions whose size colours show.
    """

    title: str
    header: Sequence[str]
    rows: Iterable[Sequence[Cell]]
    length: int
    shaded: tuple[int, int] | None = None


def sheets_of(report: Report, language: Language = "en") -> list[Sheet]:
    """Return the sheets: figures, monthly returns, holdings, trades and the daily equity.

    Of a run that kept an account also its money by session.
    """
    facts = collect(report, confidence=False).facts
    sheets = [
        _figures(facts, language),
        _months(facts["returns"]["years"]),
        _holdings(facts["holdings"], language),
        _trades(report.trades, language),
        _equity(read_curves(report)),
        *_account(getattr(report, "account", None), language),
    ]
    return [_named(sheet, language) for sheet in sheets]


def _named(sheet: Sheet, language: Language) -> Sheet:
    header = [word(name, language) for name in sheet.header]
    return replace(sheet, title=word(sheet.title, language), header=header)


def _figures(facts: Mapping[str, Any], language: Language) -> Sheet:
    stats, costs = facts["stats"], facts["costs"] or {}
    own: dict[str, Any] = {**(facts["exposure"] or {}), **(stats["relative"] or {})}
    own |= {**(stats["trades"] or {}), **costs, **stats["strategy"]}
    market = stats["benchmark"] or {}
    rows = [
        [Cell(word("Run", language), "text"), Cell(word(label, language), "text"),
         _of_run(name, value, language),
         Cell(None, "text"), Cell(name, "text")]
        for name, label in _RUN.items()
        if (value := {**costs, **facts["meta"]}.get(name)) is not None
    ]  # fmt: skip
    groups = catalogue().groups
    for name, figure in catalogue().figures.items():
        if name not in own or not figure.texts:
            continue
        form = _FORMS.get(figure.unit, "ratio")
        rows.append(
            [
                Cell(groups[figure.group][language], "text"),
                Cell(figure.label(language), "text"),
                Cell(own[name], form),
                Cell(market.get(name), form),
                Cell(name, "text"),
            ]
        )
    return Sheet("Figures", ("group", "figure", "strategy", "benchmark", "name"), rows, len(rows))


def _of_run(name: str, value: Any, language: Language) -> Cell:
    if value in _RATE_TEXTS:
        return Cell(word(value, language), "text")
    if name == "market":
        value = word(f"market: {value}", language).removeprefix("market: ")
    return Cell(value, _OF_RUN.get(name, "text"))


def _months(years: Sequence[Mapping[str, Any]]) -> Sheet:
    rows = []
    for row in years:
        beside = row["benchmark"]["total"] if row["benchmark"] else None
        cells = [*row["months"], row["total"], beside]
        rows.append([Cell(row["year"], "text"), *(Cell(cell, "percent") for cell in cells)])
    header = ("year", *MONTHS, "whole year", "benchmark")
    return Sheet("Monthly returns", header, rows, len(rows), shaded=(2, 13))


def _holdings(held: Mapping[str, Any], language: Language) -> Sheet:
    rows = [
        [Cell(row["asset"], "text"), Cell(row["weight"], "percent"), Cell(row["next"], "percent"),
         Cell(row["action"] if language == "en" else action_text(row["action"], language), "text"),
         Cell(row["entry"], "date"), Cell(row["return"], "percent"),
         Cell(row["shares"], "price"), Cell(row["money"], "money")]
        for row in held["rows"]
    ]  # fmt: skip
    blank = Cell(None, "text")
    cash = Cell(held["cash"], "percent"), Cell(held["next_cash"], "percent")
    money = Cell(held["cash_money"], "money")
    rows.append([Cell(word("cash", language), "text"), *cash, blank, blank, blank, blank, money])
    header = ("asset", "weight", "next weight", "action", "entry date", "return", "shares", "money")
    width = len(header) if held["cash_money"] is not None else len(header) - 2
    return Sheet("Holdings", header[:width], [row[:width] for row in rows], len(rows))


def _account(account: pd.DataFrame | None, language: Language) -> Iterator[Sheet]:
    if account is None:
        return
    rows = (
        [Cell(date, "date"), *(Cell(float(value), "money") for value in values)]
        for date, values in zip(account.index, account.to_numpy(), strict=True)
    )
    date = _dated(word("date", language), account.index.to_series())
    yield Sheet("Account", (date, *account.columns), rows, len(account))


def _trades(trades: pd.DataFrame, language: Language) -> Sheet:
    header, columns = [], []
    for name in trades.columns:
        column = trades[name]
        header.append(_dated(word(str(name), language, "Trades"), column))
        if name == "exit_reason" and language != "en":
            column = column.map(lambda reason: reason_text(reason, language), na_action="ignore")
        columns.append([Cell(value, _form(str(name), column)) for value in column])
    return Sheet("Trades", header, list(zip(*columns, strict=True)), len(trades))


def _dated(heading: str, column: pd.Series) -> str:
    """Add to a heading the zone whose clock the cells show, which no cell can tell."""
    zone = getattr(column.dtype, "tz", None)
    return heading if zone is None else f"{heading} ({zone})"


def _form(name: str, column: pd.Series) -> Form:
    if name in _FRACTIONS:
        return "percent"
    if pd.api.types.is_datetime64_any_dtype(column.dtype):
        return "date"
    if pd.api.types.is_float_dtype(column.dtype):
        return "count" if name in ("period", "days_in_profit") else "price"
    return "text"


def _equity(curves: Curves) -> Sheet:
    dates = curves.days.astype("datetime64[D]").tolist()
    header = ["date", "equity (100 at the start)", "drawdown"]
    columns: list[np.ndarray] = [curves.strategy, _engine.drawdown_curve(curves.strategy)]
    forms: list[Form] = ["price", "percent"]
    if curves.benchmark is not None:
        header.append("benchmark")
        columns.append(curves.benchmark)
        forms.append("price")
    rows = [
        [Cell(date, "date"), *(Cell(float(value), form) for value, form in zip(row, forms,
                                                                               strict=True))]
        for date, row in zip(dates, np.column_stack(columns), strict=True)
    ]  # fmt: skip
    return Sheet("Equity", header, rows, len(rows))
