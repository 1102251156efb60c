"""What the sheets of a workbook and their columns are called, in the languages of the page."""

from __future__ import annotations

import json
from functools import cache
from typing import Literal, get_args

from corvex.core.dashboard.page.report_page import asset

__all__ = ["LANGUAGES", "MONTHS", "Language", "word"]

Language = Literal["en", "zh-Hant"]

LANGUAGES: tuple[Language, ...] = get_args(Language)

# The sheets are written in English; by its words, where the page has them in other languages.
_ON_THE_PAGE = {
    "Figures": "s_figures", "Monthly returns": "s_returns", "Holdings": "s_holdings",
    "Trades": "s_trades", "Equity": "n_equity",
    "figure": "item", "strategy": "strategy", "benchmark": "benchmark", "year": "year",
    "whole year": "whole_year", "asset": "asset", "weight": "weight_now",
    "next weight": "weight_next", "action": "action", "entry date": "entered",
    "return": "return", "shares": "shares", "money": "money", "cash": "cash",
    "drawdown": "drawdown", "Market": "a_market", "Benchmark": "benchmark",
    "Risk-free rate": "a_riskfree", "Bars": "a_bar", "Fee on each side": "a_fee_ratio",
    "Tax on sales": "a_tax_ratio", "Slippage": "a_slippage_ratio",
    "symbol": "asset", "entry_date": "entry", "exit_date": "exit",
    "entry_sig_date": "entry_signal", "exit_sig_date": "exit_signal", "position": "weight",
    "period": "bars", "trade_price@entry_date": "entry_price",
    "trade_price@exit_date": "exit_price", "exit_reason": "reason",
    "long": "account_long", "short": "account_short", "gross": "gross", "equity": "n_equity",
    "interest": "interest", "financing": "financing", "borrow": "borrow",
    "by asset": "value_by asset", "by value": "value_by value", "by date": "value_by date",
    "a table": "value_a table",
    "dividends": "dividends", "impact": "impact", "flows": "account_flows", "currency": "currency",
}  # fmt: skip
_OTHERS: dict[Language, dict[str, str]] = {
    "zh-Hant": {
        "Account": "帳戶", "Run": "回測", "Name": "名稱", "First date": "起始日",
        "Last date": "結束日", "Written at (UTC)": "寫入時間（UTC）", "group": "類別",
        "name": "代號", "date": "日期", "cut": "未成交原因",
        "Trades: currency": "幣別", "currency_return": "匯率報酬",
        "equity (100 at the start)": "淨值（起點 = 100）",
        "mae": "MAE", "mfe": "MFE", "mfe_before_mae": "MAE 前的 MFE", "max_drawdown": "最大回撤",
        "days_in_profit": "獲利根數", "fees": "手續費", "tax": "交易稅", "slippage": "滑價",
    },
}  # fmt: skip
MONTHS = ("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec")


def word(text: str, language: Language, sheet: str = "") -> str:
    """Return a heading in a language; as it is where there is none."""
    if language == "en":
        return text
    known = _words(language)
    return known.get(f"{sheet}: {text}") or known.get(text, text)


@cache
def _words(language: Language) -> dict[str, str]:
    page = json.loads(asset(f"texts.{language}.json"))
    found = {text: page[name] for text, name in _ON_THE_PAGE.items()}
    found |= {f"market: {name[7:]}": page[name] for name in page if name.startswith("market_")}
    return found | dict(zip(MONTHS, page["months"].split(), strict=True)) | _OTHERS[language]
