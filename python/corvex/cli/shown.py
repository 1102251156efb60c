"""A report as the commands give it: printed, saved, and as a page."""

from __future__ import annotations

import dataclasses
from pathlib import Path
from typing import TYPE_CHECKING

from corvex.cli.console import plot_width
from corvex.cli.saved import save_page, save_report, target_file
from corvex.plaintext import printable

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["Delivery", "keep_rank", "print_confidence", "print_report"]


@dataclasses.dataclass(frozen=True, slots=True, kw_only=True)
class Delivery:
    """What becomes of a report that a command makes.

    Attributes
    ----------
    title : str
        Its name above the summary, and of its files.
    lang : str
        As for `corvex.cli.summary.summary`.
    width : int or None
        Columns of the charts; None for those of the terminal.
    text : bool
        Print `Report.to_text()` alone.
    riskfree : float or None
        A year; None for the usual one.
    confidence : bool or None
        Say how far chance alone could have gone; False leaves it out of the page.
    trials : int or None
        How many strategies were tried.
    out, html : Path or None
        Files to write, or folders that exist.
    """

    title: str
    lang: str
    width: int | None = None
    text: bool = False
    riskfree: float | None = None
    confidence: bool | None = None
    trials: int | None = None
    out: Path | None = None
    html: Path | None = None

    def check(self) -> Delivery:
        """Return the same with its files settled, before any work is done.

        Raises
        ------
        FileNotFoundError
            When the folder of a file is not there.
        """
        return dataclasses.replace(
            self,
            out=None if self.out is None else target_file(self.out, f"{self.title}.corvex"),
            html=None if self.html is None else target_file(self.html, f"{self.title}.html"),
        )

    def deliver(self, report: Report) -> None:
        """Print the report, and write what was asked for."""
        if self.trials is not None:
            report.trials_statistics = self.trials
        if self.riskfree is not None:
            report.riskfree_rate = self.riskfree
        if self.confidence or (self.confidence is None and (self.out or self.html)):
            keep_rank(report)
        print_report(
            report, self.title, self.width, self.lang, text=self.text,
            confidence=bool(self.confidence),
        )  # fmt: skip
        if self.out is not None:
            save_report(report, self.out)
            print(f"Report written to {self.out}")
        if self.html is not None:
            save_page(report, self.html, self.title, self.confidence)
            print(f"Page written to {self.html}")


def keep_rank(report: Report) -> None:
    """Note on a report where it stands among random portfolios, which its file cannot tell."""
    from corvex.core.dashboard.figures.curve_series import riskfree_of
    from corvex.significance.random_draws import report_among_random

    if getattr(report, "random_draws", None) is None:
        found = report_among_random(report, riskfree_rate=riskfree_of(report))
        if found is not None:
            report.random_draws = found


def print_report(
    report: Report,
    name: str | None,
    width: int | None,
    lang: str,
    *,
    text: bool,
    confidence: bool = False,
) -> None:
    """Print the summary and the charts, or the fixed text, and what it is worth if wanted."""
    if text:
        print(report.to_text(name=None if name is None else printable(name)))
    else:
        from corvex.cli.summary import summary

        print(summary(report, name, lang))
        report.to_terminal(width=width or plot_width())
        print()
    if confidence:
        print_confidence(report, lang)


def print_confidence(report: Report, lang: str) -> None:
    """Print how far chance alone could have gone."""
    from corvex.cli.summary import confidence_summary

    print(confidence_summary(report, lang))
