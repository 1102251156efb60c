"""What the uncertainty of a result says in words, in both languages."""

from __future__ import annotations

import math
from collections.abc import Iterator
from html import escape
from typing import TYPE_CHECKING, Protocol

from corvex.ffn_core.catalogue import catalogue, show
from corvex.plaintext import display_width, padded, printable

if TYPE_CHECKING:
    import pandas as pd

    from corvex.significance.random_result import RandomDraws

__all__ = ["as_html", "as_text", "limits", "nothing", "rows", "section"]

_SMALLEST = 0.001  # of what 1,000 draws can tell
_WORDS: dict[str, dict[str, str]] = {
    "en": {
        "section": "Confidence: skill or luck",
        "title": "Confidence in {name}",
        "unnamed": "the result",
        "nothing": "too few returns that move to say anything",
        "over": "more than 99.9%",
        "under": "less than 0.1%",
        "interval": "{value}, between {low} and {high} with 95 %",
        "psr": "with {share}; {record}",
        "record": "needs {years} years to say so with 95 %, and has {known}",
        "no_record": "no number of years would say so with 95 %",
        "max_drawdown": "{value}; {share} of the drawn paths fall as deep",
        "drawdown_rank": "{value} below the high; {share} of the drawn years hold a fall as deep",
        "beats_benchmark": "in {share} of the drawn paths; {growth} a year more, between {low} and"
        " {high} with 95 %",
        "dsr": "after {trials} trials, of which luck alone finds {best}: above that with {share}",
        "effective": "; they amount to {count} independent ones, with which it is {share}",
        "pbo": "{share}",
        "spa_p": "p {p}: so likely is a best one as good as this if none of the trials earned more"
        " than cash",
        "random": "{figure} {own}, above {share} of {draws}; p = {p}",
        "limits": "All of it is drawn from the returns of this result and knows no more than they"
        " do: not whether the times to come are like these, whether the assets were chosen because"
        " they survived, or what was tried and never counted as a trial.",
    },
    "zh-Hant": {
        "section": "可信度：實力或運氣",
        "title": "{name}的可信度",
        "unnamed": "此結果",
        "nothing": "有變動的報酬太少，無法判斷",
        "over": ">99.9%",
        "under": "<0.1%",
        "interval": "{value}，95 % 信賴區間為 {low} 至 {high}",
        "psr": "{share}；{record}",
        "record": "要有 95 % 把握需 {years} 年，現有 {known} 年",
        "no_record": "再多年數也無法有 95 % 把握",
        "max_drawdown": "{value}；抽樣路徑中有 {share} 跌得一樣深或更深",
        "drawdown_rank": "低於高點 {value}；抽樣年度中有 {share} 出現一樣深或更深的回撤",
        "beats_benchmark": "占抽樣路徑的 {share}；每年多 {growth}，95 % 信賴區間為 {low} 至 {high}",
        "dsr": "經 {trials} 次嘗試，僅憑運氣的最佳值為 {best}：真實值高於此的機率為 {share}",
        "effective": "；相當於 {count} 次獨立嘗試，以此計為 {share}",
        "pbo": "{share}",
        "spa_p": "p {p}：若所有嘗試的獲利都不高於無風險利率，仍出現如此最佳者的機率",
        "random": "{figure} {own}，高於 {draws} 組中的 {share}；p = {p}",
        "limits": "以上皆由此結果的報酬重新抽樣而得，所知不多於這些報酬："
        "無法得知未來的市況是否與過去相似、標的是否因存活至今才被選入，"
        "也無從計入試過卻未列為嘗試的策略。",
    },
}


class Found(Protocol):
    """What is told: the members of `Confidence` that have words."""

    @property
    def figures(self) -> pd.Series: ...
    @property
    def random(self) -> tuple[RandomDraws, ...]: ...
    @property
    def name(self) -> str | None: ...


def rows(found: Found, language: str = "en") -> list[tuple[str, str]]:
    """Say what is known, a line for each figure.

    Returns
    -------
    list of (name in the catalogue of figures, text)
        Without what is undefined; empty where nothing can be said.
    """
    if math.isnan(found.figures["psr"]):
        return []
    return list(_rows(found, _WORDS[language], language))


def limits(language: str = "en") -> str:
    """Say what no such figure can tell."""
    return _WORDS[language]["limits"]


def nothing(language: str = "en") -> str:
    """Say that there are no rows."""
    return _WORDS[language]["nothing"]


def section(language: str = "en") -> str:
    """Head the rows where the name of the report stands already."""
    return _WORDS[language]["section"]


def as_text(found: Found, language: str = "en") -> str:
    """Put the lines under each other, with the figures' labels before them."""
    labels = {name: catalogue().figures[name].label(language) for name, _ in rows(found, language)}
    wide = 2 + max((display_width(label) for label in labels.values()), default=0)
    lines = [f"  {padded(labels[name], wide)}{text}" for name, text in rows(found, language)]
    return "\n".join([_title(found, language), *(lines or [f"  {nothing(language)}"])])


def as_html(found: Found, language: str = "en") -> str:
    """Make a table of the lines that shows a figure's definition on pointing at its label."""
    body = ""
    for name, text in rows(found, language):
        label, definition = catalogue().figures[name].texts[language]
        body += (
            f'<tr><th scope="row" title="{escape(definition)}" style="text-align:left">'
            f'{escape(label)}</th><td style="text-align:left">{escape(text)}</td></tr>'
        )
    title = f"<strong>{escape(_title(found, language))}</strong>"
    if not body:
        return f"<div>{title}<p>{escape(nothing(language))}</p></div>"
    return f"<div>{title}<table>{body}</table><p>{escape(limits(language))}</p></div>"


def _title(found: Found, language: str) -> str:
    words = _WORDS[language]
    return words["title"].format(name=printable(found.name) if found.name else words["unnamed"])


def _rows(found: Found, words: dict[str, str], language: str) -> Iterator[tuple[str, str]]:
    f = found.figures
    yield "daily_sharpe", words["interval"].format(**_bounds(found, "sharpe", "daily_sharpe"))
    share = _probability(f["psr"], words)
    yield "psr", words["psr"].format(share=share, record=_track_record(found, words))
    yield "cagr", words["interval"].format(**_bounds(found, "cagr", "cagr"))
    if not math.isnan(f["beats_benchmark"]):
        bounds = _bounds(found, "cagr_excess", "cagr")
        share = _probability(f["beats_benchmark"], words)
        text = words["beats_benchmark"].format(share=share, growth=bounds.pop("value"), **bounds)
        yield "beats_benchmark", text
    share = _probability(f["max_drawdown_rank"], words)
    value = show("max_drawdown", f["max_drawdown"])
    yield "max_drawdown_rank", words["max_drawdown"].format(value=value, share=share)
    if not math.isnan(f["drawdown_rank"]):
        share = _probability(f["drawdown_rank"], words)
        value = show("max_drawdown", -f["drawdown"])
        yield "drawdown_rank", words["drawdown_rank"].format(value=value, share=share)
    yield from _search(found, words)
    for drawn in found.random:
        if math.isnan(drawn.rank) or math.isnan(drawn.p_value):
            continue
        own, label = show(drawn.figure, drawn.own), _label(drawn.figure, language)
        texts = {"figure": label, "own": own, "share": f"{drawn.rank:.1%}"}
        text = words["random"].format(
            **texts, draws=f"{len(drawn.draws):,}", p=f"{drawn.p_value:.3f}"
        )
        yield f"random_{drawn.test}", text


def _search(found: Found, words: dict[str, str]) -> Iterator[tuple[str, str]]:
    """What many trials leave of the best of them."""
    f = found.figures
    if f["trials"] > 1 and not math.isnan(f["dsr"]):
        text = words["dsr"].format(
            trials=f"{f['trials']:,.0f}",
            best=show("daily_sharpe", f["expected_largest_sharpe"]),
            share=_probability(f["dsr"], words),
        )
        if not math.isnan(f["dsr_effective"]):
            share = _probability(f["dsr_effective"], words)
            text += words["effective"].format(count=f"{f['effective_trials']:,.1f}", share=share)
        yield "dsr", text
    if not math.isnan(f["pbo"]):
        yield "pbo", words["pbo"].format(share=_probability(f["pbo"], words))
    if not math.isnan(f["spa_p"]):
        p = f"= {f['spa_p']:.3f}" if f["spa_p"] >= _SMALLEST else f"< {_SMALLEST}"
        yield "spa_p", words["spa_p"].format(p=p)


def _bounds(found: Found, name: str, shown_as: str) -> dict[str, str]:
    names = {"value": name, "low": f"{name}_low", "high": f"{name}_high"}
    return {key: show(shown_as, found.figures[name]) for key, name in names.items()}


def _track_record(found: Found, words: dict[str, str]) -> str:
    years = found.figures["min_track_record_years"]
    if not math.isfinite(years):
        return words["no_record"]
    known = found.figures["track_record_years"]
    return words["record"].format(years=f"{years:,.1f}", known=f"{known:,.1f}")


def _label(figure: str, language: str) -> str:
    known = catalogue().find(figure)
    return known.label(language) if known else figure


def _probability(share: float, words: dict[str, str]) -> str:
    """No estimate is certain, so none is rounded to 0 or 100 %."""
    if 0.001 <= share <= 0.999:
        return f"{share:.1%}"
    return words["over"] if share > 0.5 else words["under"]
