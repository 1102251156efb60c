"""The charting library's script, compressed once for each version of it."""

from __future__ import annotations

import base64
import contextlib
import hashlib
import importlib.util
import re
import time
import zlib
from dataclasses import dataclass
from functools import lru_cache
from pathlib import Path

from corvex.core.dashboard.page.bundle import without_unused
from corvex.utils import get_tmp_dir, logger, write_text

__all__ = ["PackedScript", "plotly_script"]

#: The kinds of charts that the pages draw, beside lines and points ("scatter").
_KINDS = ("bar", "heatmap")

# Base 85 carries 4 bytes in 5 characters where base64 needs 5.33; its "<", ">" and "&" would have
# to be escaped in HTML, so three characters that it does not use stand in for them.
_HTML_SAFE = str.maketrans("<>&", ",.:")
_MONTH = 30 * 86400.0  # seconds
_FORM = 4  # of the kept file: raised when this module writes it in another way
_PLAIN = "plotly/package_data/plotly.min.js"

# The script stands inside two arrow functions, which Chromium parses once more for each level
# before it runs them: half of its start-up time. A function in parentheses is parsed only once.
_WRAPPED = re.compile(
    r'(/\*\*.*?\*/\n)[^"]*?"object".*?("use strict";var Plotly=)\(\(\)=>\{(.*)\}\)\(\);'
    r"(\s*/\*!.*\*/)\s*window\.Plotly = Plotly;\s*return Plotly;\s*\}\)\);\s*",
    re.DOTALL,
)


@dataclass(frozen=True, slots=True)
class PackedScript:
    """A script that a page carries in itself.

    Attributes
    ----------
    source_hash : str
        "sha256-..." of the script, as a content security policy names it.
    text : str
        Raw deflate of the script in base 85, with ``<``, ``>``, ``&`` written ``,``, ``.``, ``:``.
    """

    source_hash: str
    text: str


def plotly_script() -> PackedScript:
    """Return what the pages need of the script that the installed plotly package brings.

    The first call of a version compresses it, which takes about half a second; the result is kept
    under `corvex.utils.get_tmp_dir` for all later processes.

    Raises
    ------
    ModuleNotFoundError
        If plotly is not installed, or comes without its script.
    """
    source = _source()
    status = source.stat()
    return _packed(source, status.st_size, status.st_mtime_ns)


def _source() -> Path:
    spec = importlib.util.find_spec("plotly")
    folders = [] if spec is None else list(spec.submodule_search_locations or ())
    for folder in folders:
        path = Path(folder).parent / _PLAIN
        if path.is_file():
            return path
    raise ModuleNotFoundError(f"the page needs the plotly package with its script {_PLAIN}")


@lru_cache(maxsize=1)
def _packed(source: Path, size: int, mtime: int) -> PackedScript:
    # Size and time of the file stand for its version: they need no look into its metadata, and
    # tell an edited copy apart too.
    kept = Path(get_tmp_dir()) / f"plotly-{size}-{mtime}-{_FORM}.b85"
    found = _read(kept)
    if found is None:
        script = without_unused(source.read_text(encoding="utf-8"), _KINDS)
        found = _compress(_unwrapped(script).encode())
        try:
            write_text(kept, f"{found.source_hash}\n{found.text}\n", encoding="ascii")
            _forget_others(kept)
        except OSError as error:
            logger.warning("the compressed chart script could not be kept: %s", error)
    return found


def _read(kept: Path) -> PackedScript | None:
    with contextlib.suppress(OSError, ValueError):
        source_hash, text, rest = kept.read_text(encoding="ascii").split("\n")
        if source_hash.startswith("sha256-") and text and not rest:
            return PackedScript(source_hash, text)
    return None


def _forget_others(kept: Path) -> None:
    """Remove the scripts of versions that have not been packed or used for a month."""
    for other in kept.parent.glob("plotly-*.b85"):
        with contextlib.suppress(OSError):
            if other != kept and time.time() - other.stat().st_atime > _MONTH:
                other.unlink()


def _unwrapped(script: str) -> str:
    """Return the script without its wrapper; as it is where it is wrapped in another way."""
    parts = _WRAPPED.fullmatch(script)
    if parts is None:
        return script
    licence, head, body, notes = parts.groups()
    return f"{licence}{head}(function(){{{body}}}).call(this);{notes}\n"


def _compress(script: bytes) -> PackedScript:
    digest = base64.b64encode(hashlib.sha256(script).digest()).decode("ascii")
    packer = zlib.compressobj(9, zlib.DEFLATED, -15, 9)
    packed = packer.compress(script) + packer.flush()
    text = base64.b85encode(packed).decode("ascii").translate(_HTML_SAFE)
    return PackedScript(f"sha256-{digest}", text)
