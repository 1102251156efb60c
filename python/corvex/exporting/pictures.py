"""Static pictures of a report, for papers and mails."""

from __future__ import annotations

import numbers
import os
import warnings
from pathlib import PurePath
from typing import TYPE_CHECKING

from corvex.exporting.drawn import draw
from corvex.exporting.extras import needed
from corvex.files import write_bytes

if TYPE_CHECKING:
    from plotly.graph_objs import Figure

    from corvex.core.report import Report

__all__ = ["save_figure"]

_FORMATS = {".png": "png", ".jpg": "jpeg", ".jpeg": "jpeg", ".webp": "webp", ".svg": "svg",
            ".pdf": "pdf"}  # fmt: skip
_PATIENCE = 90  # seconds, of which a slow machine needs ten to start a browser


def save_figure(
    report: Report,
    path: str | os.PathLike[str],
    figure: str = "overview",
    *,
    title: str | None = None,
    width: int = 960,
    height: int = 540,
    scale: float = 2.0,
) -> None:
    """Write a picture of a report.

    Parameters
    ----------
    report : Report
        The report.
    path : path
        The file, whole or not at all; its ending says how: .png, .jpg, .webp, .svg or .pdf.
    figure : {"overview", "equity", "drawdown", "monthly_returns", "yearly_returns"}
        What it shows; "overview", the default, is the equity above its drawdowns. Daily values
        beside the benchmark's, in fractions of the first one; an equity that grew more than
        threefold has a logarithmic axis.
    title : str, optional
        Default: the report's name; "" for none.
    width, height : int, default 960 and 540
        In pixels, before `scale`.
    scale : float, default 2.0
        Pixels of the picture for each of these; 1 for the screen, 3 or more for print.

    Raises
    ------
    ImportError
        Without kaleido: ``pip install 'corvex[images]'``.
    RuntimeError
        When kaleido finds no Chrome or Chromium, which it draws with, or that fails.
    ValueError
        For another ending or figure, and for a report without a curve.

    Examples
    --------
    ::

        corvex.save_figure(report, "equity.png")
        corvex.save_figure(report, "months.svg", "monthly_returns", width=720)
    """
    ending = PurePath(os.fsdecode(path)).suffix.lower()
    if ending not in _FORMATS:
        raise ValueError(f"the file must end in {', '.join(_FORMATS)}, got {os.fsdecode(path)!r}")
    for name, value in (("width", width), ("height", height), ("scale", scale)):
        if not (isinstance(value, numbers.Real) and 0 < value < 20_000):
            raise ValueError(f"{name} must be above zero and below 20,000, got {value!r}")
    drawn = draw(report, figure, title)
    opts = {"format": _FORMATS[ending], "width": width, "height": height, "scale": scale}
    write_bytes(path, _rendered(drawn, opts))


def _rendered(figure: Figure, opts: dict[str, object]) -> bytes:
    with warnings.catch_warnings():
        # Of a plotly that cannot call it; it is called directly here.
        warnings.filterwarnings("ignore", message=r"\s*Warning: You have Plotly version")
        kaleido = needed("kaleido", "a picture", "images")
    if not hasattr(kaleido, "calc_fig_sync"):
        raise ImportError("a picture needs kaleido from 1.0 on; pip install -U 'corvex[images]'")
    try:
        # Without mathjax, which it would fetch from the network.
        picture: bytes = kaleido.calc_fig_sync(
            figure.to_plotly_json(), opts=opts, kopts={"mathjax": False, "timeout": _PATIENCE}
        )
    except Exception as error:  # its browser may fail in any way
        kind = type(error).__name__
        if kind == "ChromeNotFoundError":
            raise RuntimeError(
                "a picture needs Chrome or Chromium, and none was found; install one, run "
                "kaleido_get_chrome, or name it in the environment as BROWSER_PATH"
            ) from None
        raise RuntimeError(f"the browser could not draw the picture: {kind}: {error}") from error
    return picture
