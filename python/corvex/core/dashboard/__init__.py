"""The report as a page, and the JSON form of the values it holds."""

from __future__ import annotations

from typing import TYPE_CHECKING

from corvex.core.dashboard.page.notebook import carry_charts
from corvex.core.dashboard.serialize import default_serialize

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["carry_charts", "default_serialize", "generate_html"]


def generate_html(
    report: Report,
    with_iframe: bool = False,
    title: str | None = None,
    riskfree_rate: float | None = None,
    confidence: bool | None = None,
) -> str:
    """Render a report as one HTML string; see `corvex.core.dashboard.page.report_page`."""
    # Most programs that read a report show no page of it.
    from corvex.core.dashboard.page import report_page

    return report_page.generate_html(report, with_iframe, title, riskfree_rate, confidence)
