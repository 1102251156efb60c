"""Options that several commands take, each said once."""

from __future__ import annotations

from pathlib import Path
from typing import Annotated

from corvex.cli.declared import Argument, Option

__all__ = [
    "Confidence",
    "Html",
    "Lang",
    "MarketName",
    "MaxSize",
    "Out",
    "Prices",
    "RiskFree",
    "Saved",
    "Text",
    "Trials",
    "Trust",
    "Width",
]

Saved = Annotated[Path, Argument(help="A saved report (.corvex or a pickle).")]
Width = Annotated[
    int | None,
    Option(min=20, max=1000, help="Columns of the charts; the terminal's by default."),
]
Text = Annotated[bool, Option("--text", help="Print the text of Report.to_text() alone instead.")]
Lang = Annotated[
    str | None,
    Option(help="Language of the summary, en or zh-Hant; that of the locale by default."),
]
Confidence = Annotated[
    bool | None,
    Option(
        "--confidence/--no-confidence",
        help="Say how far chance alone could have gone; or leave that out of the page.",
    ),
]
Trials = Annotated[
    int | None,
    Option(min=1, help="How many strategies were tried, this one counted."),
]
Out = Annotated[
    Path | None,
    Option(
        help="File, or existing folder, to write the report to: as data (.corvex), else a pickle."
    ),
]
Html = Annotated[
    Path | None,
    Option("--html", help="File, or existing folder, to write the page to."),
]
MarketName = Annotated[
    str | None,
    Option("--market", help="us_stock, tw_stock or crypto; by the dates or assets by default."),
]
MaxSize = Annotated[
    int,
    Option("--max-size", min=1, help="Most MB that a file may hold, unpacked."),
]
Prices = Annotated[
    list[str],
    Option(
        metavar="FILE",
        help="File of the closes, dates x assets, or a built-in sample; of other prices too, once"
        " for each: close=FILE, open=FILE, high=FILE, low=FILE.",
    ),
]
RiskFree = Annotated[
    float | None,
    Option("--riskfree", help="Risk-free rate a year, as a fraction; 0.02 by default."),
]
Trust = Annotated[
    bool,
    Option(
        "--trust",
        help="Open pickles that name more than a report needs: such a file can run any program.",
    ),
]
