"""What a page tells of how far a result could have come about by chance."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np

from corvex.core.dashboard.embed import rounded
from corvex.core.dashboard.figures.curve_series import iso_day, wall_days
from corvex.significance.uncertainty import Confidence, confidence
from corvex.significance.words import limits, rows

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["confidence_figures", "shows_confidence"]

_LANGUAGES = ("en", "zh-Hant")
_BARS = 40


def shows_confidence(report: Report, given: bool | None) -> bool:
    """Tell whether the page of a report has the section: as given, as the report says, or yes."""
    wanted = getattr(report, "show_confidence", None) if given is None else given
    return wanted is None or bool(wanted)


def confidence_figures(report: Report, riskfree_rate: float) -> dict[str, Any] | None:
    """Return what `corvex.confidence` says of a report; None where it can say nothing.

    Returns
    -------
    dict
        ``rows`` and ``limits``: the texts by language; ``drawdowns``: those to expect, by years;
        ``fan``: days, the drawn growth at each share, and the curve's own; ``depths``: how many
        paths have their largest drawdown between which edges, and the curve's own (None where all
        have the same); ``draws``, ``block``, ``returns``, ``seed``: how they were drawn.
    """
    found = confidence(report, riskfree_rate=riskfree_rate)
    if not rows(found):
        return None
    return {
        "rows": {language: rows(found, language) for language in _LANGUAGES},
        "limits": {language: limits(language) for language in _LANGUAGES},
        "drawdowns": found.drawdowns.reset_index().to_dict("records"),
        "fan": _fan(report, found),
        "depths": _depths(found),
        **{name: found.figures[name] for name in ("draws", "block", "returns", "seed")},
    }


def _depths(found: Confidence) -> dict[str, Any] | None:
    drawn = found.draws["max_drawdown"].to_numpy()
    if np.ptp(drawn) == 0:
        return None
    counts, edges = np.histogram(drawn, bins=_BARS)
    own = found.figures["max_drawdown"]
    return {"counts": counts, "edges": rounded(edges), "own": own}


def _fan(report: Report, found: Confidence) -> dict[str, Any]:
    curve = report.daily_creturn
    own = curve.reindex(found.fan.index).to_numpy(dtype=np.float64)
    return {
        "days": [iso_day(day) for day in wall_days(found.fan.index)],
        "paths": [rounded(found.fan[share], 5) for share in found.fan.columns],
        "own": rounded(own / own[0], 5),
    }
