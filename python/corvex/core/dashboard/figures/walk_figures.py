"""What a page tells of a report whose parameters were chosen again and again on its way."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any

from corvex.ffn_core.catalogue import catalogue

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["WALK", "walk_figures"]

#: The attribute of a report that holds its windows.
WALK = "walk_windows"


def walk_figures(report: Report) -> dict[str, Any] | None:
    """Return what `corvex.walk_forward` noted on a report; None for another.

    Returns
    -------
    dict
        ``choose``: the figure, or None where a function chose; ``efficiency``, ``stability``;
        ``parameters``: their names; ``windows``: for each the ISO dates ``train_start``,
        ``train_end``, ``test_start``, ``test_end``, the ``chosen`` values as texts, in the order
        of the parameters, and the figure ``inside`` and ``outside``.
    """
    found = getattr(report, WALK, None)
    if not isinstance(found, Mapping) or not found.get("windows"):
        return None
    figure = catalogue().find(str(found["choose"]))
    return {**found, "choose": None if figure is None else figure.name}
