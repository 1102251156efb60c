"""The page of a report: one self-contained HTML string."""

from __future__ import annotations

import html
import re
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["generate_html"]

DEFAULT_TITLE = "Corvex Report"

# Control characters are not allowed in HTML, and a lone surrogate cannot be encoded.
_FORBIDDEN = re.compile("[\x00-\x08\x0b\x0c\x0e-\x1f\x7f-\x9f\ud800-\udfff\ufffe\uffff]")

_STYLE = (
    ":root{color-scheme:light dark}"
    "body{margin:0;font:16px/1.6 system-ui,sans-serif}"
    "main{max-width:60rem;margin:0 auto;padding:1.5rem}"
    "h1{font-size:1.4rem;margin:0 0 1rem}"
    "pre{overflow-x:auto;margin:0;white-space:pre-wrap;"
    "font:15px/1.6 ui-monospace,'Noto Sans Mono CJK TC',monospace}"
)

_PAGE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8" />
<meta name="viewport" content="width=device-width, initial-scale=1" />
<title>{title}</title>
<style>{style}</style>
</head>
<body>
<main>
<h1>{title}</h1>
<pre lang="zh-Hant">{text}</pre>
</main>
</body>
</html>
"""

_IFRAME = (
    '<iframe title="{title}" srcdoc="{page}" sandbox="" width="100%" height="600" '
    'style="border:0"></iframe>'
)


def _escape(text: str) -> str:
    return html.escape(_FORBIDDEN.sub("\ufffd", text))


def generate_html(report: Report, with_iframe: bool = False, title: str | None = None) -> str:
    """Render a report as one self-contained HTML string.

    Parameters
    ----------
    report : Report
        The report; its ``to_text()`` is shown, under its ``name`` where it has one.
    with_iframe : bool, default False
        Return an ``<iframe>`` that carries the page in its ``srcdoc``, for a notebook's cell,
        where the page's own style must not touch the rest of the notebook.
    title : str, optional
        Title of the browser tab and heading of the page; "Corvex Report" by default.

    Returns
    -------
    str
        A complete HTML document, or the iframe element. It asks nothing of any network. Every
        text that stems from the user is escaped.
    """
    heading = _escape(str(title) if title else DEFAULT_TITLE)
    name = getattr(report, "name", None)
    text = report.to_text(name=str(name) if name else None)
    page = _PAGE.format(title=heading, style=_STYLE, text=_escape(text))
    if not with_iframe:
        return page
    return _IFRAME.format(title=heading, page=html.escape(page).replace("\n", "&#10;"))
