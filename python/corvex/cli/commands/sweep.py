"""``corvex sweep``: a strategy with many combinations of parameters."""

from __future__ import annotations

from pathlib import Path
from typing import Annotated

from corvex.cli.declared import Argument, Option
from corvex.cli.parameters import Html, MaxSize, Prices, RiskFree
from corvex.cli.saved import target_file

__all__ = ["sweep"]


def sweep(
    strategy: Annotated[
        str,
        Argument(
            help="FILE.py:function, of the prices and its own arguments, that returns weights. The"
            " file is run as any program of yours."
        ),
    ],
    prices: Prices,
    signal: Annotated[
        list[str] | None,
        Option(
            metavar="NAME=VALUES",
            help="An argument of the strategy: 63,126,252 or 3:21 (from 3 to below 21) or 3:21:2.",
        ),
    ] = None,
    option: Annotated[
        list[str] | None,
        Option(
            metavar="NAME=VALUES",
            help="An argument of corvex.simulate, with one value or several: trail_stop=none,0.1 or"
            " resample=ME or fee_ratio=0.001.",
        ),
    ] = None,
    store: Annotated[
        Path | None,
        Option(help="Folder that keeps the runs; what is in it already does not run again."),
    ] = None,
    html: Html = None,
    figure: Annotated[str, Option(help="By which figure the runs are ranked.")] = ("daily_sharpe"),
    best: Annotated[int, Option(min=1, max=10_000, help="How many runs to print.")] = 10,
    curves: Annotated[
        bool,
        Option(
            help="Keep each run's curve in the store, 8 bytes a session; walk-forward needs them."
        ),
    ] = True,
    batched: Annotated[
        bool,
        Option(
            "--batched",
            help="The strategy takes arrays of its arguments, and makes the weights of many"
            " combinations in one call.",
        ),
    ] = False,
    workers: Annotated[
        int | None, Option(min=1, help="How many processes call the strategy.")
    ] = None,
    dask: Annotated[
        str | None, Option(help="Address of a Dask scheduler whose workers do.")
    ] = None,
    check_lookahead: Annotated[
        bool,
        Option(
            "--check-lookahead", help="First see whether the strategy's weights know later prices."
        ),
    ] = False,
    riskfree: RiskFree = None,
    max_size: MaxSize = 200,
) -> None:
    """Simulate a strategy with many combinations of parameters.

    Prints the best runs. The strategy's file is code that you name, and it runs: here, or with
    --workers and --dask in other processes.
    """
    from corvex.cli.sweep_command import SweepCommand, is_interrupted, workers_of
    from corvex.cli.sweep_tables import check_figure, print_sweep

    check_figure(figure, on_page=html is not None)
    title = strategy.rpartition(":")[2] or "sweep"
    page = None if html is None else target_file(html, f"{title}.html")
    command = SweepCommand(
        strategy=strategy, prices=prices, signal=signal or [], option=option or [],
        curves=curves and store is not None, riskfree=0.02 if riskfree is None else riskfree,
        max_size=max_size, batched=batched,
    )  # fmt: skip
    with workers_of(workers, dask) as executor:
        found = command.run(store, executor, check_lookahead=check_lookahead)
    print_sweep(found, figure, best)
    interrupted = is_interrupted(found)
    if len(found) and len(found.errors) == len(found) and not interrupted:
        raise ValueError("no run came to an end")
    if store is not None:
        print(f"Runs kept in {store}; corvex show {store} prints this again.")
    if page is not None:
        found.to_html(page, figure=figure)
        print(f"Page written to {page}")
    if interrupted:
        raise KeyboardInterrupt
