"""How long a browser needs with a page, each time in a new Chromium with an empty profile."""

from __future__ import annotations

import sys
from collections.abc import Mapping
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1] / "tools"))
import chromium

# Notes the time of the first frame after each milestone, from when the browser turns to the file.
_WATCH = """
(milestones) => {
  const times = (window.benchTimes = {});
  const note = (name) => requestAnimationFrame(() => setTimeout(() => {
    times[name] = performance.now();
  }));
  const waiting = new Map(Object.entries(milestones));
  new MutationObserver(() => {
    for (const [name, selector] of waiting) {
      if (!document.querySelector(selector)) continue;
      waiting.delete(name);
      note(name);
    }
  }).observe(document, { childList: true, subtree: true, attributes: true });
}
"""


def missing() -> str | None:
    """Tell what a page cannot be opened without; None where all is there."""
    try:
        import playwright.sync_api  # noqa: F401
    except ImportError:
        return "playwright is not installed"
    return None if chromium.find() else "no Chromium is installed"


def time_page(path: Path, milestones: Mapping[str, str], runs: int) -> dict[str, list[float]]:
    """Open a page `runs` times.

    Returns the seconds by milestone until an element that fits its selector was on the screen.
    """
    import json

    from playwright.sync_api import sync_playwright

    samples: dict[str, list[float]] = {name: [] for name in milestones}
    with sync_playwright() as playwright:
        for _ in range(runs):
            browser = playwright.chromium.launch(
                executable_path=chromium.find(), args=chromium.ARGUMENTS
            )
            page = browser.new_context(offline=True).new_page()
            page.add_init_script(f"({_WATCH})({json.dumps(milestones)})")
            page.goto(path.as_uri(), wait_until="commit")
            # Asking again and again would take part of the time that is to be measured.
            for selector in milestones.values():
                page.wait_for_selector(selector, state="attached")
            page.wait_for_timeout(200)
            for name, value in page.evaluate("benchTimes").items():
                samples[name].append(value / 1000)
            browser.close()
    return samples
