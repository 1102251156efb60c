"""Draws the README's pictures from pages made anew. Run by `make pictures`; it needs Chromium."""

from __future__ import annotations

import sys
import tempfile
from pathlib import Path

import chromium
import playwright.sync_api

import corvex
from corvex.cli.commands.demo import OPTIONS, best_by_momentum, run_demo
from corvex.cli.console import Steps

IMAGES = Path(__file__).parents[1] / "docs" / "images"
WIDTH, HEIGHT = 1200, 1280
MARGIN = 8  # below
MONTHS = [2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 16, 18]


def pages(folder: Path) -> dict[str, tuple[str, str | None]]:
    """Write the pages; name for each picture its page and the section shown, None is the top."""
    with Steps(0) as steps:
        run_demo(steps).to_html(folder / "dashboard.html")
    found = corvex.sweep(
        best_by_momentum, corvex.data.get_frame("us_stocks"), progress=False,
        signal={"months": MONTHS, "count": range(2, 13)}, options=OPTIONS,
        fee_ratio=0.001, benchmark="sp500", market="us_stock",
    )  # fmt: skip
    found.to_html(folder / "sweep.html")
    return {
        "dashboard": ("dashboard", None),
        "sweep": ("sweep", "#heatmap"),
        "confidence": ("dashboard", "#confidence"),
    }


def draw(folder: Path, shown: dict[str, tuple[str, str | None]]) -> None:
    """Photograph the pages."""
    program = chromium.find()
    if program is None:
        sys.exit("no Chromium is installed")
    with playwright.sync_api.sync_playwright() as play:
        browser = play.chromium.launch(executable_path=program, args=chromium.ARGUMENTS)
        page = browser.new_page(viewport={"width": WIDTH, "height": HEIGHT}, locale="en-US")
        for name, (file, section) in shown.items():
            page.goto((folder / f"{file}.html").as_uri())
            page.wait_for_selector("body[data-ready]")
            target = IMAGES / f"{name}.png"
            page.add_style_tag(content="section { border-color: transparent !important }")
            box = section and page.locator(section).bounding_box()
            if box:
                y, height = box["y"], box["height"]
                clip = {"x": 0, "y": y, "width": WIDTH, "height": height + MARGIN}
                page.screenshot(path=target, full_page=True, clip=clip)
            else:
                page.screenshot(path=target)
            print(target)
        browser.close()


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as place:
        draw(Path(place), pages(Path(place)))
