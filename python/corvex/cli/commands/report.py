"""``corvex report``: the report on a curve in a user's own file."""

from __future__ import annotations

from pathlib import Path
from typing import TYPE_CHECKING, Annotated

from corvex.cli.console import note
from corvex.cli.declared import Argument, Option
from corvex.cli.given_inputs import benchmark_of
from corvex.cli.parameters import (
    Confidence,
    Html,
    Lang,
    MarketName,
    MaxSize,
    Out,
    RiskFree,
    Text,
    Trials,
    Width,
)
from corvex.cli.saved import title_of

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["report", "report_on_file"]


def report(
    file: Annotated[
        Path,
        Argument(help="CSV, workbook or Parquet: dates, and account values, prices or returns."),
    ],
    column: Annotated[
        str | None, Option(help="Column of the values; the likeliest one by default.")
    ] = None,
    returns: Annotated[
        bool | None,
        Option(
            "--returns/--no-returns",
            help="The values are returns of each period (0.01 or 1% for one percent), or are not;"
            " by default the column's name and values decide.",
        ),
    ] = None,
    benchmark: Annotated[
        str | None,
        Option(help="Another column of the file, another file, or a built-in sample."),
    ] = None,
    market: MarketName = None,
    name: Annotated[str | None, Option(help="Name; the file's by default.")] = None,
    out: Out = None,
    html: Html = None,
    width: Width = None,
    text: Text = False,
    lang: Lang = None,
    riskfree: RiskFree = None,
    confidence: Confidence = None,
    trials: Trials = None,
    max_size: MaxSize = 200,
) -> None:
    """Report on a curve of your own.

    The columns may stand in any order, the dates in any usual form; dates that are out of order
    are sorted, of a date that occurs twice the last value counts.
    """
    from corvex.cli.shown import Delivery
    from corvex.cli.summary import language

    title = name or title_of(file)
    delivery = Delivery(
        title=title, lang=language(lang), width=width, text=text, riskfree=riskfree,
        confidence=confidence, trials=trials, out=out, html=html,
    ).check()  # fmt: skip
    delivery.deliver(
        report_on_file(
            file, column=column, returns=returns, benchmark=benchmark, market=market, name=title,
            max_megabytes=max_size,
        )
    )  # fmt: skip


def report_on_file(
    path: Path,
    *,
    column: str | None = None,
    returns: bool | None = None,
    benchmark: str | None = None,
    market: str | None = None,
    name: str | None = None,
    max_megabytes: int = 200,
) -> Report:
    """Make a report on a curve in a file.

    Parameters
    ----------
    path : Path
        As for `read_table`.
    column : str, optional
        Column of the values; the likeliest one by default.
    returns : bool, optional
        Whether they are returns; by default the column's name and values decide.
    benchmark : str, optional
        Another column of the file, another file, or the name of a built-in sample or a table.
    market, name : str, optional
        As for `corvex.from_equity`.
    max_megabytes : int, default 200
        Most content of a file that is unpacked.

    Raises
    ------
    OSError, ValueError
        When a file cannot be read, or does not hold such a curve.
    """
    import corvex
    from corvex.cli.readers.curve_file import read_table

    file = read_table(path, max_megabytes)
    chosen = file.column(column)
    values = file.values(chosen)
    are_returns = file.looks_like_returns(chosen, values) if returns is None else returns
    if are_returns and returns is None:
        file.notes.append(f"column {chosen!r} is read as returns (--no-returns: as a curve)")
    other = None
    if benchmark is not None:
        other = benchmark_of(benchmark, max_megabytes, beside=file, wants_returns=are_returns)
    for message in file.notes:
        note(message)
    make = corvex.from_returns if are_returns else corvex.from_equity
    return make(values, benchmark=other, market=market, name=name)
