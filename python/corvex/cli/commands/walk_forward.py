"""``corvex walk-forward``: parameters of a sweep chosen in one window and used in the next."""

from __future__ import annotations

from pathlib import Path
from typing import Annotated

from corvex.cli.console import note
from corvex.cli.declared import Argument, Option
from corvex.cli.parameters import Confidence, Html, Lang, Out, Text, Width

__all__ = ["walk_forward"]


def walk_forward(
    folder: Annotated[Path, Argument(help="What corvex sweep was given as --store.")],
    train: Annotated[
        str, Option(help="How long to choose in: 5YE, 6ME, or 500D from the first session.")
    ] = "5YE",
    test: Annotated[str, Option(help="How long to use what was chosen.")] = "1YE",
    choose: Annotated[str, Option(help="The figure to choose by.")] = "daily_sharpe",
    embargo: Annotated[
        str | None, Option(help="How long before each test the training ends, such as 5D.")
    ] = None,
    anchored: Annotated[
        bool, Option("--anchored", help="Every training begins with the first session.")
    ] = False,
    where: Annotated[
        list[str] | None,
        Option(metavar="NAME=VALUE", help="Choose among the runs with this value alone."),
    ] = None,
    out: Out = None,
    html: Html = None,
    width: Width = None,
    text: Text = False,
    lang: Lang = None,
    confidence: Confidence = None,
    trust: Annotated[
        bool, Option("--trust", help="Run a strategy that lies inside the folder itself.")
    ] = False,
) -> None:
    """Choose parameters of a sweep in one window, use them in the next, and go on.

    Nothing runs again for choosing. The winners' weights are made anew, by the strategy's file that
    the folder names: it runs, so use folders of your own sweeps.
    """
    from corvex.cli.shown import Delivery
    from corvex.cli.summary import language
    from corvex.cli.sweep_command import SweepCommand, is_interrupted
    from corvex.cli.sweep_tables import print_walk

    command = SweepCommand.read(folder)
    file = Path(command.strategy.rpartition(":")[0])
    if not trust and file.resolve().is_relative_to(folder.resolve()):
        raise ValueError(
            f"{folder} brings its strategy along, which could be any program; if you know who made "
            "it, --trust runs it all the same"
        )
    if not command.curves:
        raise ValueError(f"{folder} keeps no curves to choose by; sweep into another with --curves")
    title = f"{command.strategy.rpartition(':')[2]} walked forward"
    delivery = Delivery(
        title=title, lang=language(lang), width=width, text=text, riskfree=command.riskfree,
        confidence=confidence, out=out, html=html,
    ).check()  # fmt: skip
    picked = command.labels(where or [])
    note(f"{command.strategy} runs")
    import corvex

    runs = command.run(folder)
    if is_interrupted(runs):
        raise KeyboardInterrupt
    found = corvex.walk_forward(
        runs, train, test, choose, embargo=embargo, anchored=anchored, where=picked
    )
    print_walk(found, choose, delivery.lang)
    delivery.deliver(found.report)
