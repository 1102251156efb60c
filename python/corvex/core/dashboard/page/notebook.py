"""Several pages in one notebook, of which one output carries the charts' library for all."""

from __future__ import annotations

import contextlib
import sys
from typing import TYPE_CHECKING, Any

from corvex.core.dashboard.embed import safe_json

if TYPE_CHECKING:
    from corvex.core.dashboard.page.plotly_script import PackedScript

__all__ = ["carry_charts", "charts_holder", "shares_charts"]

# The notebook's own page keeps the library, since a cell out of sight may be taken off it, and
# hands it to the frames that ask. They run it only if it is the script that their policy names.
_HOLDER = """<script>
(() => {{
  const held = (window.corvexCharts ??= {{}});
  const isFirst = !Object.keys(held).length;
  held[{name}] = {text};
  if (isFirst) addEventListener("message", (event) => {{
    const name = event.data?.corvexCharts;
    if (!Object.hasOwn(held, name)) return;
    event.source.postMessage({{ corvexCharts: name, text: held[name] }}, "*");
  }});
}})();
</script>
"""

# The cell whose output carries the library, and the run of it that does; nothing before the first.
_carrier: list[Any] = []


def carry_charts() -> None:
    """Let the next report that this notebook shows carry the charts' library again.

    For a notebook whose output with the library was cleared: run this, then the cell again.
    """
    _carrier.clear()


def shares_charts() -> tuple[bool, bool]:
    """Tell whether the output to be made shares the library, and whether it is to carry it.

    The first output of a notebook's kernel carries it, and again when its cell is run again.
    Outside of notebooks, and in those that show each output apart from the others, nothing is
    shared.
    """
    place = _place()
    if place is None:
        return False, True
    cell, run = place
    carries = not _carrier or (_carrier[0] == cell and _carrier[1] != run)
    if carries:
        _carrier[:] = [cell, run]
    return True, carries


def charts_holder(script: PackedScript) -> str:
    """Return what makes the notebook's page keep the library."""
    return _HOLDER.format(name=safe_json(script.source_hash), text=safe_json(script.text))


def _place() -> tuple[Any, Any] | None:
    """Return the cell that runs and its run; None where outputs cannot reach each other."""
    from corvex.core.report import check_environment

    package = sys.modules.get("IPython")
    shell: Any = package.get_ipython() if package is not None else None
    if getattr(shell, "kernel", None) is None or check_environment() in ("Google Colab", "VSCode"):
        return None
    with contextlib.suppress(AttributeError, LookupError, TypeError):
        parent = shell.get_parent()
        run = parent["header"]["msg_id"]
        return parent.get("metadata", {}).get("cellId", run), run
    return None
