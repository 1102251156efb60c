"""The words of the printed tables: written in English, and looked up for other languages."""

from __future__ import annotations

from typing import Any

__all__ = ["told"]

# What the headings of a workbook do not have already.
_CHINESE = {
    "trades ({count})": "交易（{count}）",
    "live": "實盤",
    "backtest": "回測",
    "benchmark backtest": "基準：回測",
    "benchmark live": "基準：實盤",
    "question": "項目",
    "answer": "結果",
    "yes": "是",
    "no": "否",
    "data fresh enough to trade (is_tradable)": "資料夠新，可供交易 (is_tradable)",
    "rebalance due (is_rebalance_due)": "應換股 (is_rebalance_due)",
    "next weights count now (uses_next_weights)": "現以下期權重為準 (uses_next_weights)",
    "stop triggered (is_stop_triggered)": "停損停利已觸發 (is_stop_triggered)",
    "current rebalance date": "目前權重的訊號日",
    "next rebalance date": "下期權重的訊號日",
    "next trading date": "資料後首個交易日",
    "execution": "執行",
    "execution {name}": "執行：{name}",
    "current trades": "目前交易",
    "next weights": "下期權重",
    "since {date}": "{date} 起",
    "value": "數值",
    "none": "無",
    "a strategy": "策略",
    "{title}: the best {best} of {all} runs by {figure}":
        "{title}：{all} 個組合中 {figure} 最佳的 {best} 個",
    "The best of {count} is partly the luckiest": "{count} 個組合中的最佳者有一部分是運氣最好",
    "{text}: probability of overfitting {share}": "{text}：過度配適機率 {share}",
    "{text}.": "{text}。",
    "failed: {run}: {error}": "失敗：{run}：{error}",
    "and {count} more runs without figures": "另有 {count} 個組合沒有結果",
    "chosen by {figure}": "依 {figure} 選擇",
    "chosen in": "選擇期間",
    "used in": "使用期間",
    "inside": "樣本內",
    "outside": "樣本外",
    "Outside over inside {efficiency}; the share of windows that choose as the one before "
    "{stability}": "樣本外 ÷ 樣本內 {efficiency}；與前一視窗選擇相同的比例 {stability}",
}  # fmt: skip


def told(text: str, lang: str, sheet: str = "", /, **values: Any) -> str:
    """Return a text of a table in a language, filled in with what it names.

    Parameters
    ----------
    text : str
        In English, or the name of a column; as it is where no other language has it.
    lang : {"en", "zh-Hant"}
    sheet : str, default ""
        The sheet of a workbook whose headings come first.
    **values
        What stands in braces.
    """
    if lang == "zh-Hant":
        text = _CHINESE[text] if text in _CHINESE else _heading(text, sheet)
    return text.format(**values) if values else text


def _heading(text: str, sheet: str) -> str:
    from corvex.exporting.headings import word

    return word(text, "zh-Hant", sheet)
