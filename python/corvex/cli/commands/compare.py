"""``corvex compare``: saved reports side by side."""

from __future__ import annotations

from pathlib import Path
from typing import Annotated

from corvex.cli.declared import Argument
from corvex.cli.parameters import Html, RiskFree, Trust
from corvex.cli.saved import labels_of, load_report, target_file

__all__ = ["compare"]


def compare(
    files: Annotated[list[Path], Argument(help="Two or more saved reports.")],
    html: Html = None,
    riskfree: RiskFree = None,
    trust: Trust = False,
) -> None:
    """Set saved reports side by side, over the dates that all of them cover."""
    import corvex
    from corvex.comparison import RISK_FREE_RATE

    target = None if html is None else target_file(html, "comparison.html")
    reports = [load_report(file, trust) for file in files]
    named = dict(zip(labels_of(files, reports), reports, strict=True))
    result = corvex.compare(named, RISK_FREE_RATE if riskfree is None else riskfree)
    print(result.to_text())
    if target is not None:
        result.to_html(target)
        print(f"\nPage written to {target}")
