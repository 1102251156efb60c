"""A page that links the pages of several reports."""

from __future__ import annotations

from collections.abc import Iterable
from typing import TYPE_CHECKING

from corvex.core.dashboard.embed import escape_text
from corvex.core.dashboard.page.report_page import asset
from corvex.ffn_core.catalogue import catalogue, show
from corvex.ffn_core.curve_figures import statistics

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["index_html"]

_PAGE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; \
style-src 'unsafe-inline'; img-src data:">
<meta name="viewport" content="width=device-width, initial-scale=1">
<link rel="icon" href="data:,">
<title>{title}</title>
<style>
{style}
</style>
</head>
<body>
<header class="top"><h1>{title}</h1></header>
<main>
{more}<div class="scroll" tabindex="0" role="region" aria-label="Reports"><table>
<thead><tr>{heads}</tr></thead>
<tbody>
{rows}
</tbody>
</table></div>
</main>
</body>
</html>
"""


def index_html(
    title: str, rows: Iterable[tuple[str, str, str, Report]], comparison: str | None = None
) -> str:
    """Render a table of reports with links to their pages.

    Parameters
    ----------
    title : str
        Title of the tab and of the page.
    rows : iterable of (link, name, file name, Report)
        Links are relative and need no escaping.
    comparison : str, optional
        Link to a page that compares them.
    """
    heads = [f'<th scope="col">{text}</th>' for text in ("Report", "File", "Start", "End")]
    figures = [catalogue().figures[name] for name in catalogue().views["index"]]
    heads += [f'<th scope="col" class="num">{figure.label()}</th>' for figure in figures]
    more = f'<p><a href="{comparison}">All reports side by side</a></p>\n' if comparison else ""
    return _PAGE.format(
        title=escape_text(title),
        style=asset("page.css"),
        more=more,
        heads="".join(heads),
        rows="\n".join(_row(*row) for row in rows),
    )


def _row(link: str, name: str, file: str, report: Report) -> str:
    stats = statistics(report)
    cells = [f"<td>{escape_text(str(text))}</td>" for text in (file, stats["start"], stats["end"])]
    figures = [show(key, float(stats[key])) for key in catalogue().views["index"]]
    cells += [f'<td class="num">{text}</td>' for text in figures]
    head = f'<th scope="row"><a href="{link}">{escape_text(name)}</a></th>'
    return f"<tr>{head}{''.join(cells)}</tr>"
