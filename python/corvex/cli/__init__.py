"""The command line: ``corvex demo``, ``show``, ``report`` and more; ``corvex --help`` lists them.

Results go to the standard output, notes and errors to the standard error. Exit status:

- 0: done;
- 1: it could not be done (a missing file, data that cannot be used, ...), with one line that says
  why;
- 2: the command line itself is wrong;
- 130: interrupted from the keyboard.
"""

from __future__ import annotations

import contextlib
import sys
from pathlib import Path
from typing import TYPE_CHECKING, Annotated

import typer

from corvex.cli import preview, publish
from corvex.cli.console import Steps, note, plain_errors, plot_width, settings
from corvex.cli.help import App
from corvex.cli.saved import (
    Html,
    MaxSize,
    RiskFree,
    Trust,
    is_special,
    load_report,
    name_of,
    save_page,
    save_report,
    target_file,
)
from corvex.cli.transport import export, inspect, orders
from corvex.plaintext import printable

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["app", "main"]

app = App(
    name="corvex",
    help="Backtest portfolios and look at their reports.",
    epilog="Exit status: 0 done, 1 could not be done, 2 wrong command line, 130 interrupted.",
    no_args_is_help=True,
)

Width = Annotated[
    int | None,
    typer.Option(min=20, max=1000, help="Columns of the charts; the terminal's by default."),
]
Text = Annotated[
    bool, typer.Option("--text", help="Print the text of Report.to_text() alone instead.")
]
Lang = Annotated[
    str | None,
    typer.Option(help="Language of the summary, en or zh-Hant; that of the locale by default."),
]
Confidence = Annotated[
    bool | None,
    typer.Option(
        "--confidence/--no-confidence",
        help="Say how far chance alone could have gone; or leave that out of the page.",
    ),
]
Trials = Annotated[
    int | None,
    typer.Option(min=1, help="How many strategies were tried, this one counted."),
]
Out = Annotated[
    Path | None,
    typer.Option(
        help="File, or existing folder, to write the report to: as data (.corvex), else a pickle."
    ),
]


def main() -> None:
    """Run the command line."""
    for stream in (sys.stdout, sys.stderr):
        # A terminal that lacks a character shows a question mark rather than an error.
        with contextlib.suppress(AttributeError, ValueError):
            stream.reconfigure(errors="replace")  # type: ignore[union-attr]
    app()


def _print_version(wanted: bool) -> None:
    if wanted:
        import corvex

        print(f"corvex {corvex.__version__}")
        raise typer.Exit


@app.callback()
def _all_commands(
    version: Annotated[
        bool,
        typer.Option(
            "--version", callback=_print_version, is_eager=True, help="Print the version."
        ),
    ] = False,
    traceback: Annotated[
        bool, typer.Option("--traceback", help="Show where in the program an error arose.")
    ] = False,
) -> None:
    del version
    settings.traceback = traceback


@app.command()
@plain_errors
def demo(
    out: Out = None,
    width: Width = None,
    text: Text = False,
    lang: Lang = None,
) -> None:
    """Run a momentum strategy on the built-in prices and show its report.

    Each month it holds the five of twenty US stocks with the best 12-1 momentum, with fees and a
    trailing stop. The report is saved to corvex-demo.corvex in the current folder, or to --out, and
    its page beside it.
    """
    from corvex.cli.demo import NAME, STEPS, SURVIVORS, publish_demo, run_demo
    from corvex.cli.summary import language

    chosen = language(lang)
    target = target_file(out or Path(), "corvex-demo.corvex")
    page = None if is_special(target) else _beside(target)
    with Steps(STEPS + 3) as steps:
        report = run_demo(steps)
        with steps.step("write the report"):
            save_report(report, target)
        if page is not None:
            with steps.step("write its page"):
                save_page(report, page)
        with steps.step("publish and read back"):
            published = publish_demo(report)
    _print_report(report, NAME, width, chosen, text=text, confidence=not text)
    print(f"{SURVIVORS[chosen]}\n")
    steps.print_times()
    print(f"\n{published}")
    print(f"\nReport written to {target}; corvex show {target.name} prints it again.")
    if page is not None:
        print(f"Page written to {page}")


def _beside(saved: Path) -> Path:
    """Return where the page of a saved report goes."""
    return saved.with_suffix(".page.html" if saved.suffix == ".html" else ".html")


@app.command()
@plain_errors
def show(
    file: Annotated[Path, typer.Argument(help="A saved report (.corvex or a pickle).")],
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
        _print_report(loaded, name_of(loaded), width, chosen, text=text)
    if confidence:
        _print_confidence(loaded, chosen)
    if not (metrics or trades or live):
        return
    from corvex.cli import report_tables as tables

    if metrics:
        tables.print_metrics(loaded)
    if trades:
        tables.print_trades(loaded)
    if live:
        tables.print_live(loaded)


@app.command()
@plain_errors
def report(
    file: Annotated[
        Path,
        typer.Argument(
            help="CSV, workbook or Parquet: dates, and account values, prices or returns."
        ),
    ],
    column: Annotated[
        str | None, typer.Option(help="Column of the values; the likeliest one by default.")
    ] = None,
    returns: Annotated[
        bool | None,
        typer.Option(
            "--returns/--no-returns",
            help="The values are returns of each period (0.01 or 1% for one percent), or are not;"
            " by default the column's name and values decide.",
        ),
    ] = None,
    benchmark: Annotated[
        str | None,
        typer.Option(help="Another column of the file, another file, or a built-in sample."),
    ] = None,
    market: Annotated[
        str | None, typer.Option(help="us_stock, tw_stock or crypto; by the dates by default.")
    ] = None,
    name: Annotated[str | None, typer.Option(help="Name; the file's by default.")] = None,
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
    from corvex.cli.own_curve import report_on_file
    from corvex.cli.summary import language

    chosen = language(lang)
    title = name or file.name.partition(".")[0]
    target = target_file(out, f"{title}.corvex") if out is not None else None
    page = target_file(html, f"{title}.html") if html is not None else None
    result = report_on_file(
        file, column=column, returns=returns, benchmark=benchmark, market=market, name=title,
        max_megabytes=max_size,
    )  # fmt: skip
    if trials is not None:
        result.trials_statistics = trials
    if riskfree is not None:
        result.riskfree_rate = riskfree
    _print_report(result, title, width, chosen, text=text, confidence=bool(confidence))
    if target is not None:
        save_report(result, target)
        print(f"Report written to {target}")
    if page is not None:
        save_page(result, page, title, confidence)
        print(f"Page written to {page}")


def _print_report(
    report: Report,
    name: str | None,
    width: int | None,
    lang: str,
    *,
    text: bool,
    confidence: bool = False,
) -> None:
    if text:
        print(report.to_text(name=None if name is None else printable(name)))
        if confidence:
            _print_confidence(report, lang)
        return
    from corvex.cli.summary import summary

    print(summary(report, name, lang))
    report.to_terminal(width=width or plot_width())
    print()
    if confidence:
        _print_confidence(report, lang)


def _print_confidence(report: Report, lang: str) -> None:
    from corvex.cli.summary import confidence_summary

    print(confidence_summary(report, lang))


preview.add_commands(app)
publish.add_commands(app)
for command in (export, inspect, orders):
    app.command()(plain_errors(command))
