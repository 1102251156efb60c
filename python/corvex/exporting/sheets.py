"""The tables of a report as a spreadsheet shows them."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Mapping, Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.core.dashboard.figures.curve_series import Curves, read_curves
from corvex.core.dashboard.figures.dataset import collect
from corvex.ffn_core.catalogue import catalogue

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["Cell", "Form", "Sheet", "sheets_of"]

type Form = Literal["text", "percent", "ratio", "count", "price", "money", "date"]

_FORMS: dict[str, Form] = {"fraction": "percent", "count": "count", "days": "ratio", "date": "date"}
_MONTHS = ("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec")
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
_RATE_TEXTS = ("by asset", "by value")  # of an account, where others have a ratio
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


def sheets_of(report: Report) -> list[Sheet]:
    """Return the sheets: figures, monthly returns, holdings, trades and the daily equity.

    Of a run that kept an account also its money by session.
    """
    facts = collect(report, confidence=False).facts
    return [
        _figures(facts),
        _months(facts["returns"]["years"]),
        _holdings(facts["holdings"]),
        _trades(report.trades),
        _equity(read_curves(report)),
        *_account(getattr(report, "account", None)),
    ]


def _figures(facts: Mapping[str, Any]) -> Sheet:
    stats, costs = facts["stats"], facts["costs"] or {}
    own: dict[str, Any] = {**(facts["exposure"] or {}), **(stats["relative"] or {})}
    own |= {**(stats["trades"] or {}), **costs, **stats["strategy"]}
    market = stats["benchmark"] or {}
    rows = [
        [Cell("Run", "text"), Cell(label, "text"),
         Cell(value, "text" if value in _RATE_TEXTS else _OF_RUN.get(name, "text")),
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
                Cell(groups[figure.group]["en"], "text"),
                Cell(figure.label(), "text"),
                Cell(own[name], form),
                Cell(market.get(name), form),
                Cell(name, "text"),
            ]
        )
    return Sheet("Figures", ("group", "figure", "strategy", "benchmark", "name"), rows, len(rows))


def _months(years: Sequence[Mapping[str, Any]]) -> Sheet:
    rows = []
    for row in years:
        beside = row["benchmark"]["total"] if row["benchmark"] else None
        cells = [*row["months"], row["total"], beside]
        rows.append([Cell(row["year"], "text"), *(Cell(cell, "percent") for cell in cells)])
    header = ("year", *_MONTHS, "whole year", "benchmark")
    return Sheet("Monthly returns", header, rows, len(rows), shaded=(2, 13))


def _holdings(held: Mapping[str, Any]) -> Sheet:
    rows = [
        [Cell(row["asset"], "text"), Cell(row["weight"], "percent"), Cell(row["next"], "percent"),
         Cell(row["action"], "text"), Cell(row["entry"], "date"), Cell(row["return"], "percent"),
         Cell(row["shares"], "price"), Cell(row["money"], "money")]
        for row in held["rows"]
    ]  # fmt: skip
    blank = Cell(None, "text")
    cash = Cell(held["cash"], "percent"), Cell(held["next_cash"], "percent")
    money = Cell(held["cash_money"], "money")
    rows.append([Cell("cash", "text"), *cash, blank, blank, blank, blank, money])
    header = ("asset", "weight", "next weight", "action", "entry date", "return", "shares", "money")
    width = len(header) if held["cash_money"] is not None else len(header) - 2
    return Sheet("Holdings", header[:width], [row[:width] for row in rows], len(rows))


def _account(account: pd.DataFrame | None) -> Iterator[Sheet]:
    if account is None:
        return
    rows = (
        [Cell(date, "date"), *(Cell(float(value), "money") for value in values)]
        for date, values in zip(account.index, account.to_numpy(), strict=True)
    )
    zone = _zone(account.index.to_series())
    date = f"date ({zone})" if zone else "date"
    yield Sheet("Account", (date, *account.columns), rows, len(account))


def _trades(trades: pd.DataFrame) -> Sheet:
    header, columns = [], []
    for name in trades.columns:
        column = trades[name]
        header.append(f"{name} ({zone})" if (zone := _zone(column)) else str(name))
        columns.append([Cell(value, _form(str(name), column)) for value in column])
    return Sheet("Trades", header, list(zip(*columns, strict=True)), len(trades))


def _zone(column: pd.Series) -> str:
    """Return the zone whose clock the cells show, which no cell can tell."""
    zone = getattr(column.dtype, "tz", None)
    return "" if zone is None else str(zone)


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
