"""Text from outside on its way to a terminal: nothing in it steers the terminal.

Names of assets, markets and reports come from files of other people. Printed as they are, control
characters in them could clear the screen, write to the clipboard or hide what stands beside them.
"""

from __future__ import annotations

import re
import unicodedata
from collections.abc import Sequence
from typing import Any, TextIO

__all__ = ["PlainStream", "display_width", "padded", "printable", "text_table"]

# Control characters, line and paragraph separators, the marks that change the direction of
# writing, and halves of surrogate pairs.
_STEERING = "\x00-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\ud800-\udfff"
_ANY = re.compile(f"[{_STEERING}]")
# What our own output is made of besides characters: lines, tabs, colours and weights.
_ALLOWED = re.compile(r"[\n\t]|\r\n|\x1b\[(?:[0-4]|3[0-7]|9[0-7])?(?:;(?:[0-4]|3[0-7]|9[0-7]))*m")


def printable(text: object) -> str:
    """Return a text as one line in which steering characters stand as Python's escapes."""
    return _ANY.sub(_escape, str(text))


def display_width(text: str) -> int:
    """Return how many columns of a terminal a text takes: Chinese characters take two."""
    return sum(
        0 if unicodedata.combining(c) else 1 + (unicodedata.east_asian_width(c) in "WF")
        for c in text
    )


def padded(text: str, columns: int, *, right: bool = False) -> str:
    """Fill a text with blanks to a number of columns, before it where it stands at the right."""
    blanks = " " * (columns - display_width(text))
    return blanks + text if right else text + blanks


def text_table(
    header: Sequence[str],
    rows: Sequence[Sequence[str]],
    *,
    left: int = 1,
    wide: int = 24,
    head: int = 12,
) -> str:
    """Return a table of text, its first columns at the left, numbers at the right.

    Parameters
    ----------
    header, rows : sequences of text
        Cells, none with a line break.
    left : int, default 1
        How many columns stand at the left.
    wide, head : int
        Most room for a text at the left, and for the head of a number; longer ones go on in the
        line below.
    """
    heads = [_folded(cell, head if i >= left else wide) for i, cell in enumerate(header)]
    cells = [[_folded(c, wide) if i < left else [c] for i, c in enumerate(row)] for row in rows]
    widths = [
        max(display_width(line) for entry in column for line in entry)
        for column in zip(heads, *cells, strict=True)
    ]
    lines = []
    for row in [heads, *cells]:
        for at in range(max(map(len, row))):
            parts = [
                padded(entry[at] if at < len(entry) else "", width, right=i >= left)
                for i, (entry, width) in enumerate(zip(row, widths, strict=True))
            ]
            lines.append("  ".join(parts).rstrip())
    return "\n".join(lines)


def _folded(text: str, columns: int) -> list[str]:
    """Break a text into lines, at blanks and behind marks where it can be, else anywhere."""
    lines = [""]
    for word in re.findall(r"\s*[^\s_/-]*[_/-]*", text):
        if lines[-1] and display_width(lines[-1] + word) > columns:
            lines.append("")
        for character in word if lines[-1] else word.lstrip():
            if display_width(lines[-1] + character) > columns:
                lines.append("")
            lines[-1] += character
    return lines


class PlainStream:
    """A text stream that lets nothing steer the terminal but line ends and colours.

    The last of two guards: whatever a program prints of a foreign file passes here.

    Attributes
    ----------
    unguarded : text stream
        The stream itself, for what is meant to move the cursor.
    """

    def __init__(self, stream: TextIO) -> None:
        self.unguarded = stream

    def write(self, text: str) -> int:
        """Write a text, with escapes for what could steer the terminal."""
        if _ANY.search(text):
            kept = _ALLOWED.findall(text)
            parts = [printable(part) for part in _ALLOWED.split(text)]
            self.unguarded.write(
                parts[0] + "".join(a + b for a, b in zip(kept, parts[1:], strict=True))
            )
        else:
            self.unguarded.write(text)
        return len(text)

    def writelines(self, lines: Any) -> None:
        """Write several texts."""
        for line in lines:
            self.write(line)

    def __getattr__(self, name: str) -> Any:
        return getattr(self.unguarded, name)


def _escape(character: re.Match[str]) -> str:
    return character[0].encode("unicode_escape").decode("ascii")
