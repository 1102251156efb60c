"""``corvex show``: a saved report, printed."""

from __future__ import annotations

from typing import Annotated

import typer

from corvex.cli.console import note
from corvex.cli.parameters import (
    Confidence,
    Html,
    Lang,
    RiskFree,
    Saved,
    Text,
    Trials,
    Trust,
    Width,
)
from corvex.cli.saved import load_report, name_of, save_page, target_file

__all__ = ["show"]


def show(
    file: Saved,
    width: Width = None,
    metrics: Annotated[
        bool, typer.Option("--metrics", help="Print all figures instead of the summary.")
    ] = False,
    trades: Annotated[
        bool, typer.Option("--trades", help="Print all trades instead of the summary.")
    ] = False,
    live: Annotated[
        bool,
        typer.Option(
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
) -> None:
    """Print a saved report: its summary and charts, or the tables asked for."""
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
        tables.print_metrics(loaded)
    if trades:
        tables.print_trades(loaded)
    if live:
        tables.print_live(loaded)
