"""corvex: the calls a user makes, and the engine's own beneath them."""

from __future__ import annotations

from pathlib import Path

from common import Entry, load, main, price_series, time_call, time_import


def statistics(data: Path) -> list[Entry]:
    import corvex.ffn_core  # noqa: F401 - adds its methods to pandas
    from corvex import _engine

    prices = price_series(data)
    values = prices.to_numpy()
    times = load(data)["dates"]

    def record() -> object:
        return prices.calc_stats().stats.to_dict()

    return [
        time_call("to_dict()", record),
        time_call("engine", lambda: _engine.performance_record(values, times)),
    ]


def drawdowns(data: Path) -> list[Entry]:
    from corvex import _engine

    values = load(data)["values"]
    return [time_call("engine", lambda: _engine.largest_drawdowns(values, 10))]


def lookup(data: Path) -> list[Entry]:
    import pandas as pd

    from corvex.core.report import query_data_int64

    arrays = load(data)
    table, rows, columns = arrays["table"], arrays["rows"], arrays["columns"]
    dates = pd.DatetimeIndex(arrays["dates"].view("M8[ns]"))
    assets = [f"asset {i}" for i in range(table.shape[1])]
    frame = pd.DataFrame(table, dates, assets)
    labels = [(dates[r], assets[c]) for r, c in zip(rows, columns, strict=True)]

    def at_loop() -> list[object]:
        at = frame.at
        return [at[date, asset] for date, asset in labels]

    return [
        time_call("query_data_int64", lambda: query_data_int64(table, rows, columns)),
        time_call("DataFrame.at in a loop", at_loop, repeats=5),
        # An array of floats, not the list of scalars that the others give.
        time_call("numpy fancy index", lambda: table[rows, columns]),
    ]


def imports(_data: Path) -> list[Entry]:
    return [time_import("import corvex.core.report", "corvex.core.report")]


main(
    "corvex",
    {"statistics": statistics, "drawdowns": drawdowns, "lookup": lookup, "import": imports},
)
