"""The page of a report: one self-contained HTML string."""

from __future__ import annotations

import base64
import hashlib
import html
import json
import re
from functools import cache
from importlib import resources
from typing import TYPE_CHECKING, Any

from corvex.core.dashboard.embed import escape_text, pack_json, safe_json
from corvex.core.dashboard.page.notebook import charts_holder, shares_charts
from corvex.core.dashboard.page.plotly_script import plotly_script
from corvex.ffn_core.catalogue import catalogue
from corvex.trades.reasons import ACTIONS, EXIT_REASONS

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["SHARED_MODULES", "assemble", "asset", "generate_html", "page_script", "render"]

DEFAULT_TITLE = "Corvex Report"
_LANGUAGES = ("en", "zh-Hant")
_IMPORT_OR_EXPORT = re.compile(r"^(?:import \{[^}]*\} from [^;]*;\n|export )", re.M)

#: What all pages have, in the order in which one needs the other; `page_script` joins modules.
SHARED_MODULES = (
    "dom",
    "text",
    "format",
    "store",
    "maths",
    "charts",
    "view",
    "table",
    "heading",
    "equity",
    "returns",
)
_MODULES = (
    *SHARED_MODULES,
    "risk",
    "confidence",
    "account",
    "holdings",
    "browse",
    "trades",
    "activity",
    "periods",
    "statistics",
    "walk",
    "sections",
    "main",
)

# Nothing may be fetched, and no script runs but the two whose hashes stand here.
_POLICY = (
    "default-src 'none'; base-uri 'none'; form-action 'none'; style-src 'unsafe-inline'; "
    "img-src data: blob:; script-src '{page}' '{charts}'"
)

# The line end keeps IPython from advising its own IFrame, which cannot carry a page.
_IFRAME = (
    '<iframe title="{title}" srcdoc="{page}" sandbox="allow-scripts allow-downloads allow-modals" '
    'loading="lazy" width="100%" height="800" '
    'style="display:block;width:100%;min-width:100%;border:0;resize:vertical"></iframe>\n'
)


def generate_html(
    report: Report,
    with_iframe: bool = False,
    title: str | None = None,
    riskfree_rate: float | None = None,
    confidence: bool | None = None,
) -> str:
    """Render a report as one self-contained HTML string.

    Parameters
    ----------
    report : Report
        The report. What it lacks (a benchmark, trades, weights) the page leaves out.
    with_iframe : bool, default False
        Return an ``<iframe>`` that carries the page in its ``srcdoc``, for a notebook's cell:
        as wide as the cell, and apart from the notebook's own style and scripts.
    title : str, optional
        Title of the browser tab; "Corvex Report" by default. It also heads the page of a report
        without a name.
    riskfree_rate : float, optional
        Per year, a fraction. Default: the report's attribute ``riskfree_rate`` where that is set,
        else 0.02.
    confidence : bool, optional
        Have the section that tells how far chance alone could have gone, which takes about 50 ms
        for ten years. Default: the report's attribute ``show_confidence`` where that is set, else
        True.

    Returns
    -------
    str
        A complete HTML document, or the iframe element. It asks nothing of any network (its
        content security policy forbids that) and opens from a file. Every text of the user's is
        escaped.

    Raises
    ------
    ModuleNotFoundError
        If plotly, whose script the page carries, is not installed.

    Notes
    -----
    Figures are those of ``report.get_stats(riskfree_rate=...)``, computed anew. The first page
    after plotly was installed or updated takes half a second more than all later ones: its script
    is then cut to what the page needs, compressed, and kept under
    ``corvex.utils.get_tmp_dir()``.
    """
    tab = str(title) if title else DEFAULT_TITLE
    from corvex.core.dashboard.figures.dataset import collect

    data = collect(report, riskfree_rate, confidence)
    name = data.facts["meta"]["name"]
    heading = tab if name is None else name
    return render(tab, heading, data.facts, data.series, page_script(), with_iframe=with_iframe)


def render(
    title: str, heading: str, facts: Any, series: Any, script: str, *, with_iframe: bool
) -> str:
    """Put a page together, for a file or, in an ``<iframe>``, for a notebook's cell.

    The cells of one notebook share the charts' library: the first output carries it.
    """
    if not with_iframe:
        return assemble(title, heading, facts, series, script)
    shared, carries = shares_charts()
    page = assemble(title, heading, facts, series, script, with_charts=not shared)
    frame = in_frame(page, title)
    return frame + charts_holder(plotly_script()) if shared and carries else frame


def assemble(
    title: str, heading: str, facts: Any, series: Any, script: str, *, with_charts: bool = True
) -> str:
    """Put a page together.

    Parameters
    ----------
    title, heading : str
        Of the browser's tab and of the page, not yet escaped.
    facts, series : object
        Plain values (see `embed.plain`): small ones, and large ones that are packed.
    script : str
        What `page_script` gives.
    with_charts : bool, default True
        Carry the charts' library; else the page asks the one around it for the script of this
        hash.

    Returns
    -------
    str
        A complete HTML document.
    """
    charts = plotly_script()
    parts = {
        "policy": _POLICY.format(page=_source_hash(script), charts=charts.source_hash),
        "title": escape_text(title),
        "heading": escape_text(heading),
        "style": asset("page.css"),
        "facts": safe_json(facts),
        "series": pack_json(series),
        "texts": _texts(),
        "charts": charts.text if with_charts else charts.source_hash,
        "script": script,
    }
    pieces = _template()
    return "".join(parts[piece] if i % 2 else piece for i, piece in enumerate(pieces))


def in_frame(page: str, title: str) -> str:
    """Return an ``<iframe>`` that carries a page, for a notebook's cell."""
    shown = html.escape(page).replace("\n", "&#10;")
    return _IFRAME.format(title=escape_text(title), page=shown)


@cache
def asset(name: str) -> str:
    """Return the text of one of the page's own files, by its path below ``assets``."""
    text = resources.files("corvex.core.dashboard").joinpath("assets", *name.split("/"))
    return text.read_text(encoding="utf-8")


@cache
def _template() -> list[str]:
    """The page's text, with the names of its parts at the odd places."""
    return [piece for half in asset("page.html").split("{{") for piece in half.split("}}")]


@cache
def _texts() -> str:
    """The texts in all languages and the list of figures, as JSON for a script element."""
    from corvex.significance.words import section

    known = catalogue()
    texts = {language: json.loads(asset(f"texts.{language}.json")) for language in _LANGUAGES}
    for language in _LANGUAGES:
        texts[language]["s_confidence"] = section(language)
    for name, reason in EXIT_REASONS.items():
        texts["en"][f"reason_{name}"] = reason.english
        texts["zh-Hant"][f"reason_{name}"] = reason.chinese
    for name, words in ACTIONS.items():
        for language, word in zip(_LANGUAGES, words, strict=True):
            texts[language][f"action_{name}"] = word
    return safe_json(
        {
            "texts": texts,
            "figures": {
                figure.name: {
                    "group": figure.group,
                    "unit": figure.unit,
                    "digits": figure.digits,
                    **figure.texts,
                }
                for figure in known.figures.values()
            },
            "groups": known.groups,
            "views": known.views,
        }
    )


@cache
def page_script(modules: tuple[str, ...] = _MODULES) -> str:
    """Return a page's modules as one: their imports and the word export taken out.

    A page that opens from a file cannot import modules from beside it, so they travel joined; in
    the source tree each stays a module of its own that editors and checkers understand.
    """
    joined = "".join(asset(f"js/{name}.js") for name in modules)
    return _IMPORT_OR_EXPORT.sub("", joined)


def _source_hash(script: str) -> str:
    digest = hashlib.sha256(script.encode()).digest()
    return f"sha256-{base64.b64encode(digest).decode('ascii')}"
