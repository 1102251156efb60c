"""A figure over two parameters, as a plotly figure."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from html import escape
from typing import TYPE_CHECKING, Any

import numpy as np

from corvex.ffn_core.catalogue import catalogue, show
from corvex.sweeping.axes import Axis, axis_of

if TYPE_CHECKING:
    from plotly.graph_objs import Figure

__all__ = ["draw_heatmap"]

_MOST_SLIDES = 500


def draw_heatmap(
    labels: Mapping[str, Sequence[Any]],
    values: np.ndarray,
    x: str,
    y: str,
    figure: str,
    fixed: Sequence[str],
) -> Figure:
    """Draw a figure of runs over two of their parameters.

    Parameters
    ----------
    labels : mapping of str to sequence
        The label of each parameter in each run.
    values : float64 array of shape (runs,)
        The figure; of runs with the same parameters the first counts.
    x, y : str
        The parameters of the axes.
    figure : str
        The name of the figure.
    fixed : sequence of str
        Parameters that have one value; the title tells it. The others get a slider over their
        combinations.

    Raises
    ------
    ValueError
        When the slider would have more combinations than anybody looks at.
    """
    import plotly.graph_objects as go

    axes = {name: axis_of(values) for name, values in labels.items()}
    across, columns = list(map(_plain, axes[x].texts)), axes[x].places
    down, rows = list(map(_plain, axes[y].texts)), axes[y].places
    others = [name for name in labels if name not in (x, y, *fixed)]
    slides: dict[str, np.ndarray] = {}
    for run, value in enumerate(values.tolist()):
        slide = slides.setdefault(
            _told(axes, others, run), np.full((len(down), len(across)), np.nan)
        )
        cell = rows[run], columns[run]
        if np.isnan(slide[cell]):
            slide[cell] = value
    if len(slides) > _MOST_SLIDES:
        raise ValueError(
            f"{len(slides)} combinations of {', '.join(others)} are left open; give some of them"
        )
    known = catalogue().find(figure)
    title = known.label() if known else figure
    finite = values[np.isfinite(values)]
    low, high = (float(finite.min()), float(finite.max())) if finite.size else (0.0, 1.0)
    percent = known is not None and known.unit == "fraction"
    traces = [
        go.Heatmap(
            x=across,
            y=down,
            z=cells,
            text=[[show(figure, value) for value in row] for row in cells.tolist()],
            texttemplate="%{text}" if cells.size <= 400 else None,
            hovertemplate=f"{_plain(x)} %{{x}}<br>{_plain(y)} %{{y}}<br>{_plain(title)} %{{text}}"
            "<extra></extra>",
            zmin=low,
            zmax=high,
            colorscale="Viridis",
            colorbar={"title": {"text": _plain(title)}, "tickformat": ".1%" if percent else None},
            visible=place == 0,
        )
        for place, cells in enumerate(slides.values())
    ]
    chart = go.Figure(traces)
    told = _told(axes, fixed, 0) if fixed else ""
    chart.update_layout(
        title={"text": _plain(title) + (f"<br><sub>{told}</sub>" if told else "")},
        xaxis={"title": {"text": _plain(x)}, "type": "category"},
        yaxis={"title": {"text": _plain(y)}, "type": "category"},
        template="plotly_white",
    )
    if len(slides) > 1:
        chart.update_layout(sliders=[_slider(list(slides))])
    return chart


def _told(axes: Mapping[str, Axis], names: Sequence[str], run: int) -> str:
    shown = {name: axes[name].texts[axes[name].places[run]] for name in names}
    return ", ".join(f"{_plain(name)} = {_plain(text)}" for name, text in shown.items())


def _plain(text: str) -> str:
    """Text that plotly shows as it is: it reads a part of HTML."""
    return escape(text, quote=False)


def _slider(names: list[str]) -> dict[str, Any]:
    steps = [
        {
            "label": name,
            "method": "restyle",
            "args": [{"visible": [other == place for other in range(len(names))]}],
        }
        for place, name in enumerate(names)
    ]
    return {"active": 0, "pad": {"t": 50}, "steps": steps}
