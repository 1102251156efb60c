"""Figures as pieces of HTML that use the script which the page has loaded already."""

import plotly.io as pio
from plotly.io.base_renderers import MimetypeRenderer


class SiteRenderer(MimetypeRenderer):
    """One figure as HTML without the script."""

    def to_mimebundle(self, figure: dict) -> dict[str, str]:
        html = pio.to_html(
            figure, include_plotlyjs=False, full_html=False, config={"responsive": True}
        )
        return {"text/html": html}


pio.renderers["site"] = SiteRenderer()
pio.renderers.default = "site"
