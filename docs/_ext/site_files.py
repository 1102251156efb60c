"""Links to files of the repository beside the guides, and plotly's script for the tutorials."""

from __future__ import annotations

import re
from pathlib import Path
from typing import Any

from plotly.offline import get_plotlyjs
from sphinx.application import Sphinx

ROOT = Path(__file__).parents[2]
OUTSIDE = re.compile(r"\[([^\[\]]+)\]\(((?:\.\./)+[^)#]+)\)")


def for_the_site(app: Sphinx, docname: str, source: list[str]) -> None:
    """Change what is written for those who read a guide in the repository.

    It links to files beside it: these are copied.
    """
    folder = Path(app.srcdir, docname).parent

    def target(found: re.Match[str]) -> str:
        file = (folder / found[2]).resolve()
        if not file.is_relative_to(ROOT) or file.is_relative_to(app.srcdir):
            return found[0]
        place = Path(app.outdir, "files", file.relative_to(ROOT))
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_bytes(file.read_bytes())
        up = "../" * docname.count("/")
        return f'<a href="{up}files/{file.relative_to(ROOT)}">{found[1]}</a>'

    # Doctest wants a blank line after the last result, where it is no result itself.
    source[0] = OUTSIDE.sub(target, source[0]).replace("\n\n```\n", "\n```\n")


def write_plotly(app: Sphinx) -> None:
    """The pages load the installed plotly's script, so that nothing comes from a network."""
    folder = Path(app.outdir, "_static")
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "plotly.min.js").write_text(get_plotlyjs(), encoding="utf-8")


def load_plotly(app: Sphinx, _page: str, _template: str, context: Any, _tree: object) -> None:
    """Only where there is a figure: the script is large."""
    if "plotly-graph-div" in str(context.get("body", "")):
        app.add_js_file("plotly.min.js", priority=100)


def setup(app: Sphinx) -> dict[str, bool]:
    app.connect("source-read", for_the_site)
    app.connect("builder-inited", write_plotly)
    app.connect("html-page-context", load_plotly)
    return {"parallel_read_safe": True, "parallel_write_safe": True}
