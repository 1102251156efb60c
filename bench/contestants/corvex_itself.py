"""corvex: the calls a user makes, and the engine's own beneath them."""

from __future__ import annotations

from pathlib import Path

from common import (
    Entry,
    load,
    main,
    price_series,
    price_table,
    signal_rows,
    time_call,
    time_import,
)


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


def simulate(data: Path) -> list[Entry]:
    import corvex
    from corvex import _engine

    arrays = load(data)
    close = arrays["prices"]
    inputs = {
        "close": close,
        "target": arrays["weights"],
        "signal_session": arrays["signals"],
        "first_session": int(arrays["signals"][0]),
        "fee_ratio": float(arrays["fee"]),
    }
    bare = dict.fromkeys(("record_positions", "record_trades", "record_excursions"), False)
    stops = {"stop_loss": 0.2, "take_profit": 0.5, "trail_stop": 0.3}
    frame, targets = price_table(arrays), signal_rows(arrays)

    def whole() -> object:
        return corvex.simulate(
            targets, frame, market="us_stock", fee_ratio=float(arrays["fee"]), name="bench"
        )

    return [
        time_call("engine, bare", lambda: _engine.simulate(**inputs, **bare), memory=True),
        time_call("engine, all on", lambda: _engine.simulate(**inputs, **stops), memory=True),
        time_call("corvex.simulate", whole, memory=True, repeats=5),
        time_call("numpy.sum", close.sum),
    ]


def agree(data: Path) -> list[Entry]:
    import corvex

    arrays = load(data)
    report = corvex.simulate(
        signal_rows(arrays), price_table(arrays), market="us_stock", fee_ratio=0.0, tax_ratio=0.0
    )
    # The report starts at the first signal; before it the peers hold cash.
    equity = report.creturn.reindex(price_table(arrays).index).fillna(1.0)
    return [{"label": "equity without costs", "equity": equity.tolist()}]


def imports(_data: Path) -> list[Entry]:
    return [time_import("import corvex.core.report", "corvex.core.report")]


main(
    "corvex",
    {
        "statistics": statistics,
        "drawdowns": drawdowns,
        "lookup": lookup,
        "import": imports,
        "simulate": simulate,
        "agree": agree,
    },
)
