"""The pictures of a report, drawn plainly for paper: no buttons, no hover, black on white."""

from __future__ import annotations

import html
from collections.abc import Callable
from typing import TYPE_CHECKING, Any

import numpy as np

from corvex import _engine
from corvex.core.dashboard.figures.curve_series import Curves, benchmark_figures, read_curves
from corvex.core.dashboard.figures.return_figures import return_years

if TYPE_CHECKING:
    from plotly.graph_objs import Figure

    from corvex.core.report import Report

__all__ = ["PICTURES", "draw"]

_OWN, _MARKET, _LOSS, _SHADE = "#1f5fc4", "#7a8594", "#c2520c", "rgba(194, 82, 12, .25)"
_GRID, _TEXT = "#e6eaf0", "#1b2330"
_FONT = "Inter, Helvetica, Arial, 'Noto Sans', 'Noto Sans CJK TC', sans-serif"
_MONTHS = ("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec")
_LOG_FROM = 3.0  # a curve that grew more is drawn on a logarithmic axis


def draw(report: Report, picture: str, title: str | None) -> Figure:
    """Draw one of `PICTURES`.

    Raises
    ------
    ValueError
        When there is no such picture, or the report has no curve.
    """
    if picture not in PICTURES:
        raise ValueError(f"figure must be one of {', '.join(PICTURES)}, got {picture!r}")
    curves = read_curves(report)
    if len(curves.days) < 2:
        raise ValueError("the report has no curve to draw: it covers fewer than two days")
    figure = PICTURES[picture](report, curves)
    name = getattr(report, "name", None)
    heading = title if title is not None else str(name) if name else ""
    figure.update_layout(
        template="none",
        title={"text": _plain(heading), "x": 0.02, "xanchor": "left"},
        font={"family": _FONT, "size": 13, "color": _TEXT},
        margin={"l": 64, "r": 28, "t": 76 if heading else 40, "b": 44},
        legend={"orientation": "h", "x": 0, "y": 1, "yanchor": "bottom"},
        paper_bgcolor="white",
        plot_bgcolor="white",
    )
    return figure


def _overview(report: Report, curves: Curves) -> Figure:
    from plotly.subplots import make_subplots

    figure = make_subplots(
        rows=2, cols=1, shared_xaxes=True, row_heights=[0.68, 0.32], vertical_spacing=0.05
    )
    for row, part in ((1, _equity(report, curves)), (2, _drawdown(report, curves))):
        for trace in part.data:
            figure.add_trace(trace.update(showlegend=row == 1), row=row, col=1)
        figure.update_yaxes(part.layout.yaxis, row=row, col=1)
    figure.update_xaxes(gridcolor=_GRID)
    return figure


def _equity(report: Report, curves: Curves) -> Figure:
    """The value of 1 at the start, beside the benchmark from its own first value on."""
    from plotly.graph_objs import Figure

    own = curves.strategy / curves.strategy[0]
    figure = Figure()
    figure.add_scatter(
        x=_dates(curves), y=own, name="strategy", line={"color": _OWN, "width": 2}, showlegend=True
    )
    market = curves.benchmark
    if market is not None and np.isfinite(market).any():
        first = int(np.argmax(np.isfinite(market)))
        figure.add_scatter(
            x=_dates(curves), y=market / market[first] * own[first],
            name=_market_name(report),
            line={"color": _MARKET, "width": 1.5},
        )  # fmt: skip
    grown = np.nanmax(own) > _LOG_FROM * max(np.nanmin(own), 1e-9) and np.nanmin(own) > 0
    figure.update_yaxes(
        title="value of 1", gridcolor=_GRID, type="log" if grown else "linear",
        dtick="D2" if grown else None,
    )  # fmt: skip
    figure.update_xaxes(gridcolor=_GRID)
    return figure


def _drawdown(report: Report, curves: Curves) -> Figure:
    from plotly.graph_objs import Figure

    figure = Figure()
    figure.add_scatter(
        x=_dates(curves), y=_engine.drawdown_curve(curves.strategy), name="strategy",
        fill="tozeroy", fillcolor=_SHADE, line={"color": _LOSS, "width": 1.2},
    )  # fmt: skip
    if curves.benchmark is not None:
        figure.add_scatter(
            x=_dates(curves), y=_engine.drawdown_curve(curves.benchmark), name=_market_name(report),
            line={"color": _MARKET, "width": 1},
        )  # fmt: skip
    figure.update_yaxes(title="drawdown", tickformat=".0%", gridcolor=_GRID)
    figure.update_xaxes(gridcolor=_GRID)
    return figure


def _monthly(report: Report, curves: Curves) -> Figure:
    from plotly.graph_objs import Figure

    rows = _years(report, curves)
    cells = np.array([[*row["months"], row["total"]] for row in rows], dtype=np.float64)
    known = np.abs(cells[:, :12][np.isfinite(cells[:, :12])])
    bound = float(np.quantile(known, 0.95)) if known.size else 0.01
    texts = [["" if np.isnan(cell) else f"{cell:.1%}" for cell in row] for row in cells]
    figure = Figure()
    figure.add_heatmap(
        z=cells, x=[*_MONTHS, "Year"], y=[str(row["year"]) for row in rows],
        text=texts, texttemplate="%{text}", showscale=False, xgap=2, ygap=2,
        zmin=-max(bound, 1e-4), zmax=max(bound, 1e-4), textfont={"size": 11},
        colorscale=[[0, "#e58a54"], [0.5, "#ffffff"], [1, "#5d9be8"]],
    )  # fmt: skip
    figure.update_xaxes(side="top", showgrid=False, ticks="")
    figure.update_yaxes(autorange="reversed", showgrid=False, ticks="", type="category")
    return figure


def _yearly(report: Report, curves: Curves) -> Figure:
    from plotly.graph_objs import Figure

    rows = _years(report, curves)
    years = [str(row["year"]) for row in rows]
    figure = Figure()
    figure.add_bar(
        x=years, y=[row["total"] for row in rows], name="strategy", marker={"color": _OWN}
    )
    if any(row["benchmark"] is not None for row in rows):
        totals = [None if row["benchmark"] is None else row["benchmark"]["total"] for row in rows]
        figure.add_bar(x=years, y=totals, name=_market_name(report), marker={"color": _MARKET})
    figure.update_yaxes(title="return of the year", tickformat=".0%", gridcolor=_GRID)
    figure.update_xaxes(type="category", showgrid=False)
    return figure


def _years(report: Report, curves: Curves) -> list[dict[str, Any]]:
    market = benchmark_figures(report, 0.0)
    table = report.get_stats()["return_table"]
    found = return_years(curves, table, None if market is None else market["return_table"])
    rows: list[dict[str, Any]] = found["years"]
    return rows


def _market_name(report: Report) -> str:
    name = getattr(report.benchmark, "name", None)
    return _plain(str(name)) if name else "benchmark"


def _plain(text: str) -> str:
    """Text that plotly shows as it is: it reads a part of HTML, and no quotes in it."""
    return html.escape(text, quote=False)


def _dates(curves: Curves) -> np.ndarray:
    return curves.days.astype("datetime64[D]")


#: What `save_figure` draws, by name.
PICTURES: dict[str, Callable[[Report, Curves], Figure]] = {
    "overview": _overview,
    "equity": _equity,
    "drawdown": _drawdown,
    "monthly_returns": _monthly,
    "yearly_returns": _yearly,
}
