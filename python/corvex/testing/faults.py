"""Faults that the reference server can be told to make."""

from __future__ import annotations

import re
from dataclasses import dataclass

__all__ = ["KINDS", "Fault", "parse_faults"]

KINDS = {
    "status": "refuse with this HTTP status (a number alone means the same)",
    "busy": "refuse with status 429 and ask to wait this many seconds",
    "slow": "answer after this many seconds",
    "drip": "answer one byte at a time, this many seconds apart",
    "cut": "close the connection instead of answering; nothing is kept",
    "cut-late": "keep what was sent, then close the connection instead of answering",
    "cut-body": "keep what was sent, then close the connection in the middle of the answer",
    "garbage": "answer with bytes that are no HTTP",
    "nonsense": "answer with status 200 and a page of HTML; nothing is kept",
    "echo": "refuse with status 400 and all that was sent, the token too, as the message",
    "redirect": "redirect to this address with status 307",
    "moved": "redirect to this address with status 302, which leaves out the form",
}
_NUMBERS = {"status": "503", "busy": "1", "slow": "5", "drip": "0.5"}
_FORM = re.compile(r"(?P<kind>[a-z-]+)?(?::?(?P<value>[^*]+))?(?:\*(?P<count>\d{1,6}))?")


@dataclass(frozen=True)
class Fault:
    """One fault: its kind, a key of `KINDS`, and the number or address that belongs to it."""

    kind: str
    value: str = ""

    @property
    def number(self) -> float:
        """The status or the seconds."""
        return float(self.value or _NUMBERS[self.kind])


def parse_faults(text: str) -> list[Fault]:
    """Read faults such as ``503*2,slow:5,cut``: one for each of the next requests.

    Raises
    ------
    ValueError
        When a part is no fault; the message lists them.
    """
    faults = []
    for part in filter(None, (piece.strip() for piece in text.split(","))):
        match = _FORM.fullmatch(part)
        kind = (match["kind"] or "status") if match else ""
        value = (match["value"] or "") if match else ""
        if kind not in KINDS or (kind in _NUMBERS and value and not _is_number(kind, value)):
            raise ValueError(f"{part!r} is no fault; there are {', '.join(KINDS)}")
        count = int(match["count"] or 1) if match else 0
        faults += [Fault(kind, value)] * count
    return faults


def _is_number(kind: str, value: str) -> bool:
    pattern = r"[3-5]\d\d" if kind == "status" else r"\d+(\.\d*)?|\.\d+"
    return re.fullmatch(pattern, value) is not None
