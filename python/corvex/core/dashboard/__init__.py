"""The report as a page, and the JSON form of the values it holds."""

from __future__ import annotations

from corvex.core.dashboard.page.notebook import carry_charts
from corvex.core.dashboard.page.report_page import generate_html
from corvex.core.dashboard.serialize import default_serialize

__all__ = ["carry_charts", "default_serialize", "generate_html"]
