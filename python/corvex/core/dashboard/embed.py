"""Putting data into a page so that no text of it is ever read as HTML or as a script."""

from __future__ import annotations

import base64
import html
import json
import math
import re
import zlib
from collections.abc import Mapping
from typing import Any

import numpy as np

__all__ = ["escape_text", "pack_json", "plain", "rounded", "safe_json"]

# Control characters are not allowed in HTML, and a lone surrogate cannot be encoded.
_FORBIDDEN = re.compile("[\x00-\x08\x0b\x0c\x0e-\x1f\x7f-\x9f\ud800-\udfff\ufffe\uffff]")

# What could end a script element, open a comment in it, or end a line of a script.
_ESCAPES = {ord(c): f"\\u{ord(c):04x}" for c in "<>&\u2028\u2029"}


def escape_text(text: str) -> str:
    """Escape a text for an element's content or a quoted attribute."""
    return html.escape(_FORBIDDEN.sub("\ufffd", text))


def safe_json(data: Any) -> str:
    r"""Write plain values as JSON that may stand inside a script element.

    Parameters
    ----------
    data : object
        What `plain` makes. NaN and infinities are refused: JSON has neither.

    Returns
    -------
    str
        JSON in which ``<``, ``>``, ``&``, U+2028 and U+2029 are ``\u`` escapes, so that no text
        can close the element around it.
    """
    text = json.dumps(data, ensure_ascii=False, separators=(",", ":"), allow_nan=False)
    return _FORBIDDEN.sub("\ufffd", text).translate(_ESCAPES)


def pack_json(data: Any) -> str:
    """Write plain values as raw deflate of JSON, in base64."""
    packer = zlib.compressobj(6, zlib.DEFLATED, -15)
    packed = packer.compress(safe_json(data).encode()) + packer.flush()
    return base64.b64encode(packed).decode("ascii")


def plain(value: Any) -> Any:
    """Return a value with NaN as None, infinities as text and numpy's types as Python's."""
    if isinstance(value, bool | np.bool_):
        return bool(value)
    if isinstance(value, float | np.floating):
        return _plain_float(float(value))
    if isinstance(value, Mapping):
        return {str(key): plain(item) for key, item in value.items()}
    if isinstance(value, list | tuple | np.ndarray):
        return [plain(item) for item in value]
    return int(value) if isinstance(value, np.integer) else value


def _plain_float(number: float) -> float | str | None:
    if math.isfinite(number):
        return number
    if math.isnan(number):
        return None
    return "∞" if number > 0 else "-∞"


def rounded(values: Any, digits: int = 6) -> list[float | None]:
    """Return numbers to so many significant digits, None for those that are missing."""
    numbers = np.asarray(values, dtype=np.float64)
    known = np.isfinite(numbers) & (numbers != 0)
    size = np.zeros(numbers.shape)
    np.floor(np.log10(np.abs(numbers, where=known, out=np.ones(numbers.shape))), out=size)
    scale = 10.0 ** (digits - 1 - size)
    short = np.where(known, np.rint(np.where(known, numbers, 0.0) * scale) / scale, numbers)
    return [value if math.isfinite(value) else None for value in short.tolist()]
