"""``corvex show``: a saved report, printed."""

from __future__ import annotations

from pathlib import Path
from typing import Annotated

from corvex.cli.console import note
from corvex.cli.declared import Argument, Option
from corvex.cli.parameters import (
    Confidence,
    Html,
    Lang,
    RiskFree,
    Text,
    Trials,
    Trust,
    Width,
)
from corvex.cli.saved import load_report, name_of, save_page, target_file

__all__ = ["show"]


def show(
    file: Annotated[
        Path,
        Argument(help="A saved report (.corvex or a pickle), or the folder of a sweep (--store)."),
    ],
    width: Width = None,
    metrics: Annotated[
        bool, Option("--metrics", help="Print all figures instead of the summary.")
    ] = False,
    trades: Annotated[
        bool, Option("--trades", help="Print all trades instead of the summary.")
    ] = False,
    live: Annotated[
        bool,
        Option(
            "--live",
            help="Print instead what is held, what comes next, whether it may be traded now, and"
            " how the live part has done.",
        ),
    ] = False,
    html: Html = None,
    text: Text = False,
    lang: Lang = None,
    riskfree: RiskFree = None,
    confidence: Confidence = None,
    trials: Trials = None,
    trust: Trust = False,
    figure: Annotated[
        str, Option(help="Of a sweep: by which figure its runs are ranked.")
    ] = "daily_sharpe",
    best: Annotated[int, Option(min=1, help="Of a sweep: how many runs to print.")] = 10,
) -> None:
    """Print a saved report or sweep: its summary and charts, or the tables asked for."""
    if file.is_dir():
        if metrics or trades or live or text or confidence or trials or riskfree is not None:
            raise ValueError(f"{file} is a folder; of a sweep, show takes --figure, --best, --html")
        _show_sweep(file, figure, best, html, lang)
        return
    from corvex.cli.shown import print_confidence, print_report
    from corvex.cli.summary import language

    chosen = language(lang)
    page = None if html is None else target_file(html, f"{file.stem}.html")
    loaded = load_report(file, trust)
    if trials is not None:
        loaded.trials_statistics = trials
    if riskfree is not None:
        loaded.riskfree_rate = riskfree
    if page is not None:
        save_page(loaded, page, confidence=confidence)
        note(f"page written to {page}")
    if text or not (metrics or trades or live or confidence):
        print_report(loaded, name_of(loaded), width, chosen, text=text)
    if confidence:
        print_confidence(loaded, chosen)
    if not (metrics or trades or live):
        return
    from corvex.cli import report_tables as tables

    if metrics:
        tables.print_metrics(loaded, chosen)
    if trades:
        tables.print_trades(loaded, chosen)
    if live:
        tables.print_live(loaded, chosen)


def _show_sweep(folder: Path, figure: str, best: int, html: Path | None, lang: str | None) -> None:
    page = None if html is None else target_file(html, f"{folder.absolute().name}.html")
    import corvex
    from corvex.cli.summary import language
    from corvex.cli.sweep_tables import print_sweep

    found = corvex.open_sweep(folder)
    print_sweep(found, figure, best, language(lang))
    if page is not None:
        found.to_html(page, figure=figure)
        note(f"page written to {page}")
