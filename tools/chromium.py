"""The browser that tests, benchmarks and pictures open pages in."""

from __future__ import annotations

import os
import shutil

__all__ = ["ARGUMENTS", "find"]

#: It runs as root in containers, without a screen, and must ask nothing of any network.
ARGUMENTS = [
    "--no-sandbox",
    "--disable-gpu",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
]


def find() -> str | None:
    """Return the program: that of CORVEX_CHROMIUM, else the first on the path; None without one."""
    names = (os.environ.get("CORVEX_CHROMIUM", "chromium"), "chromium-browser", "google-chrome")
    return next(filter(None, map(shutil.which, names)), None)
