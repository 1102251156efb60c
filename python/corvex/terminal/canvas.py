"""Drawing of curves with characters."""

from __future__ import annotations

import math
import os
from dataclasses import dataclass, replace
from typing import TextIO

import numpy as np
import numpy.typing as npt

__all__ = ["MARGIN", "Curve", "draw"]

_LABEL_WIDTH = 8
#: Columns left of the plot: the label, a blank and the axis.
MARGIN = _LABEL_WIDTH + 2
_RESET = "\x1b[0m"
_COLOURS = ("\x1b[36m", "\x1b[33m")  # cyan, yellow: readable on black and on white


@dataclass(frozen=True)
class Curve:
    """A named curve: fractions, one for each column, NaN where there is nothing to draw.

    `figure` is the one number that the legend gives; NaN leaves it out.
    """

    name: str
    values: npt.NDArray[np.float64]
    figure: float


@dataclass(frozen=True)
class Glyphs:
    """The characters of a chart. A curve is drawn as a line or, with `dots` only, as dots."""

    level: str  # the curve stays in its row
    upright: str  # it passes through the row
    from_below: str  # it arrives from below: the new row of a rise
    to_above: str  # it leaves upwards: the old row of a rise
    from_above: str  # the new row of a fall
    to_below: str  # the old row of a fall
    dot: str
    axis: str
    tick: str
    corner: str
    floor: str


_BOX = Glyphs("─", "│", "╭", "╯", "╰", "╮", "·", "│", "┤", "└", "─")
_ASCII = Glyphs("*", "*", "*", "*", "*", "*", ".", "|", "+", "+", "-")


def draw(
    curves: list[Curve],
    dates: list[str],
    title: str,
    height: int,
    stream: TextIO,
    top: float | None = None,
    log: bool = False,
) -> list[str]:
    """Return the lines of a chart.

    Parameters
    ----------
    curves : list of Curve
        One or two, of equal length: the first is drawn as a line, over the second as dots.
    dates : list of str
        A label for each column, empty where there is none.
    title : str
        First line; left out when empty.
    height : int
        Rows of the plot.
    stream : text stream
        Where the lines will go: its encoding decides the characters, and whether it is a
        terminal the colours.
    top : float, optional
        Value of the top row; by default the largest value.
    log : bool, default False
        Space the rows by factors of 1 + value, which must then be above zero.

    Returns
    -------
    list of str
        The title, `height` rows, the axis, the dates and the legend. The rows and the axis are
        exactly as long as labels and columns together, the others at most.
    """
    glyphs = _BOX if _can_encode(stream) else _ASCII
    colours = _COLOURS if _wants_colour(stream) else ("", "")
    if log:
        curves = [replace(curve, values=np.log1p(curve.values)) for curve in curves]
    scale = _scale(curves, height, top)
    labels = _row_labels(scale, height, curves[0].figure, log)
    margin = max(_LABEL_WIDTH, *(len(label) for label in labels))
    width = len(dates)
    total = margin + 2 + width

    rows = [
        f"{label:>{margin}} {glyphs.tick if label else glyphs.axis}{cells}"
        for label, cells in zip(labels, _plot(curves, scale, height, glyphs, colours), strict=True)
    ]
    blank = " " * (margin + 1)
    axis = blank + glyphs.corner + glyphs.floor * width
    foot = f"{blank} {_date_line(dates)}".rstrip()
    lines = [*rows, axis, foot, _legend(curves, glyphs, colours, margin + 2, total)]
    return [title[:total], *lines] if title else lines


def _can_encode(stream: TextIO) -> bool:
    try:
        "─│╭╯╰╮·┤└".encode(getattr(stream, "encoding", None) or "utf-8")
    except (UnicodeEncodeError, LookupError):
        return False
    return True


def _wants_colour(stream: TextIO) -> bool:
    if os.environ.get("NO_COLOR") or os.environ.get("TERM") == "dumb":
        return False
    return bool(stream.isatty())


def _scale(curves: list[Curve], height: int, top: float | None) -> tuple[float, float] | None:
    """Return the values of the lowest and the highest row; None when there is nothing to draw."""
    values = np.concatenate([curve.values for curve in curves])
    values = values[np.isfinite(values)]
    if not values.size:
        return None
    low, high = float(values.min()), float(values.max()) if top is None else top
    if high - low > 1e-12:
        return low, high
    # A flat curve gets a scale around it that runs through a middle row, or below a fixed top.
    step = 0.01
    if top is not None:
        return high - step * max(height - 1, 1), high
    return low - step * (height - 1 - height // 2), low + step * (height // 2)


def _row_of(value: float, scale: tuple[float, float], height: int) -> int:
    low, high = scale
    if high <= low:
        return 0
    return min(max(round((high - value) / (high - low) * (height - 1)), 0), height - 1)


def _row_labels(
    scale: tuple[float, float] | None, height: int, figure: float, log: bool
) -> list[str]:
    if scale is None:
        return [""] * height
    low, high = scale
    if height == 1:
        return [_percent(figure, 1)] if math.isfinite(figure) else [""]
    step = (high - low) / (height - 1)
    every = max(math.ceil(height / 6), 1)
    decimals = 0 if log else min(max(math.ceil(-math.log10(step * every * 100)), 0), 3)
    values = [high - row * step for row in range(height)]
    return [
        _percent(math.expm1(value) if log else value, decimals)
        if row == height - 1 or (row % every == 0 and row + every < height)
        else ""
        for row, value in enumerate(values)
    ]


def _percent(value: float, decimals: int) -> str:
    if abs(value) >= 1e6:
        return f"{value * 100:.1e}%"
    return f"{round(value * 100, decimals) + 0.0:.{decimals}f}%"  # + 0.0: no negative zero


def _signed(value: float) -> str:
    text = _percent(value, 1)
    return text if text.startswith("-") else f"+{text}"


def _plot(
    curves: list[Curve],
    scale: tuple[float, float] | None,
    height: int,
    glyphs: Glyphs,
    colours: tuple[str, str],
) -> list[str]:
    width = len(curves[0].values)
    cells = [[" "] * width for _ in range(height)]
    owners = [[-1] * width for _ in range(height)]
    if scale is None:
        text = "no data"[:width]
        start = (width - len(text)) // 2
        cells[height // 2][start : start + len(text)] = text
    else:
        for owner in reversed(range(len(curves))):
            rows = [
                _row_of(value, scale, height) if math.isfinite(value) else None
                for value in curves[owner].values
            ]
            for column, row, glyph in _strokes(rows, glyphs, dotted=owner > 0):
                cells[row][column] = glyph
                owners[row][column] = owner
    return [_coloured(line, owner, colours) for line, owner in zip(cells, owners, strict=True)]


def _strokes(rows: list[int | None], glyphs: Glyphs, dotted: bool) -> list[tuple[int, int, str]]:
    """Return column, row and character of every cell of a curve; row 0 is the top."""
    strokes: list[tuple[int, int, str]] = []
    before: int | None = None
    for column, row in enumerate(rows):
        if row is None:
            before = None
            continue
        if before is None or row == before:
            strokes.append((column, row, glyphs.dot if dotted else glyphs.level))
        else:
            low, high = sorted((row, before))
            rising = row < before
            for cell in range(low, high + 1):
                if dotted:
                    glyph = glyphs.dot
                elif cell == row:
                    glyph = glyphs.from_below if rising else glyphs.from_above
                elif cell == before:
                    glyph = glyphs.to_above if rising else glyphs.to_below
                else:
                    glyph = glyphs.upright
                if not dotted or cell != before:
                    strokes.append((column, cell, glyph))
        before = row
    return strokes


def _coloured(cells: list[str], owners: list[int], colours: tuple[str, str]) -> str:
    if not any(colours):
        return "".join(cells)
    parts: list[str] = []
    current = -1
    for cell, owner in zip(cells, owners, strict=True):
        if owner != current:
            parts.append(_RESET if current >= 0 else "")
            parts.append(colours[owner] if owner >= 0 else "")
            current = owner
        parts.append(cell)
    parts.append(_RESET if current >= 0 else "")
    return "".join(parts)


def _date_line(dates: list[str]) -> str:
    """Write as many dates as fit, the first at the left edge and the last at the right one."""
    width = len(dates)
    known = [column for column, date in enumerate(dates) if date]
    if not known:
        return ""
    first, last = dates[known[0]], dates[known[-1]]
    if len(first) + len(last) + 1 > width and len(first) == 10 and first[4:5] == "-":
        dates = [date[:7] for date in dates]  # year and month
        first, last = dates[known[0]], dates[known[-1]]
    if first == last or len(first) + len(last) + 1 > width:
        return last[:width]
    line = [*first, *" " * (width - len(first) - len(last)), *last]
    count = min(width // (3 * max(len(first), 1)), 5)
    for i in range(1, count):
        column = round(i * (width - 1) / count)
        start = column - len(dates[column]) // 2
        if start > len(first) and start + len(dates[column]) < width - len(last):
            line[start : start + len(dates[column])] = dates[column]
    return "".join(line)


def _legend(
    curves: list[Curve], glyphs: Glyphs, colours: tuple[str, str], indent: int, total: int
) -> str:
    signs = (glyphs.level * 2, glyphs.dot * 2)
    figures = [
        f" {_signed(curve.figure)}" if math.isfinite(curve.figure) else "" for curve in curves
    ]
    wide = sum(len(f"{curve.name}   {f}") for curve, f in zip(curves, figures, strict=True))
    room = total - indent - 3 * (len(curves) - 1)
    if wide > room:
        figures = [""] * len(curves)
        indent = min(indent, max(total - sum(len(c.name) + 6 for c in curves) + 3, 0))
    parts = [
        f"{colour}{sign}{_RESET if colour else ''} {curve.name}{figure}"
        for curve, sign, colour, figure in zip(curves, signs, colours, figures, strict=False)
    ]
    return " " * indent + "   ".join(parts)
