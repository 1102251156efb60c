"""corvex: the calls a user makes, and the engine's own beneath them."""

from __future__ import annotations

import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

import browser
from cases import FIRST, HELP, SECOND, SHOW
from common import (
    Entry,
    load,
    main,
    price_series,
    price_table,
    signal_rows,
    summary,
    time_call,
    time_import,
    time_over,
    time_processes,
)


def sweep(data: Path) -> list[Entry]:
    from corvex_sweeps import sweeps

    return sweeps(data)


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


# Those that empyrical has, or pandas in a line or two.
SHARED_FIGURES = (
    "annual_return",
    "volatility",
    "calmar_ratio",
    "max_drawdown",
    "tail_ratio",
    "value_at_risk",
    "cvalue_at_risk",
    "sharpe_ratio",
    "sortino_ratio",
    "alpha",
    "beta",
    "avg_drawdown",
    "avg_drawdown_days",
    "m12_win_rate",
    "avg_n_stock",
    "max_n_stock",
    "win_rate",
    "expectancy",
    "profit_factor",
    "mae",
    "mfe",
)


def traded_report(data: Path):
    """Ten years with a benchmark, weights of 100 assets and 10,000 trades."""
    import pandas as pd

    import corvex
    from corvex.markets import get_market_by_name

    arrays = load(data)
    dates = pd.DatetimeIndex(arrays["dates"].view("M8[ns]"))
    assets = pd.Index([f"A{i:03d}" for i in range(arrays["weights"].shape[1])])
    curve = pd.Series(arrays["values"], dates)
    market = get_market_by_name("us_stock").bound_to(
        curve.to_frame("curve"), benchmark=pd.Series(arrays["benchmark"], dates)
    )
    position = pd.DataFrame(arrays["weights"], dates, assets)
    report = corvex.Report(curve, position, 0.001, 0.0, "close", None, market)
    report.trades = pd.DataFrame(
        {
            "symbol": assets.take(arrays["asset"]),
            "entry_date": dates[arrays["entry"]],
            "exit_date": dates[arrays["exit"]],
            "return": arrays["returns"],
            "mae": arrays["mae"],
            "mfe": arrays["mfe"],
        }
    )
    return report


def metrics(data: Path) -> list[Entry]:
    from corvex.core.metrics import Metrics

    report = traded_report(data)

    def anew() -> Metrics:  # nothing of the call before may help
        report.__dict__.pop("metrics", None)
        return report.metrics

    def shared_figures() -> list[float]:
        own = anew()
        return [getattr(own, name)() for name in SHARED_FIGURES]

    def all_figures() -> object:
        anew()
        return report.get_metrics()

    return [
        time_call("the figures of both", shared_figures, repeats=40),
        time_call("get_metrics(), all 44", all_figures, repeats=40),
        time_call("  asked again", report.get_metrics, repeats=40),
    ]


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


def trade_info(data: Path) -> list[Entry]:
    import numpy as np
    import pandas as pd

    import corvex

    arrays = load(data)
    dates = pd.DatetimeIndex(arrays["dates"].view("M8[ns]"))
    assets = pd.Index([f"A{i:04d} Asset {i}" for i in range(2000)])
    table = pd.DataFrame(arrays["table"], dates, assets.str.slice(0, 5))
    report = corvex.from_equity(pd.Series(np.linspace(1.0, 2.0, len(dates)), dates))
    trades = {"entry_date": dates[arrays["entry"]], "exit_date": dates[arrays["exit"]]}
    report.trades = pd.DataFrame({"symbol": assets.take(arrays["asset"]), **trades})

    def with_pandas() -> None:
        ids = report.trades["symbol"].str.split(" ").str[0]
        for name in trades:
            rows = report.trades[name]
            filled = table.reindex(table.index.union(rows.unique()), method="ffill")
            cells = filled.index.get_indexer(rows), filled.columns.get_indexer(ids)
            report.trades[f"pandas@{name}"] = filled.to_numpy()[cells]

    def add() -> None:
        report.add_trade_info("own", table, list(trades))

    entries = [
        time_call("add_trade_info", add, memory=True),
        time_call("the same with pandas", with_pandas, repeats=3, memory=True),
    ]
    for name in trades:
        assert report.trades[f"own@{name}"].equals(report.trades[f"pandas@{name}"])
    return entries


def usual_account() -> Any:
    """The terms that most accounts have: interest, whole shares, commissions with a minimum."""
    import corvex

    return corvex.Account(
        capital=1e7, cash_rate=0.03, cash_spread=0.005, financing_rate=0.05, lot_size=1,
        fee_per_share=0.005, min_fee=1, max_fee_ratio=0.01, slippage_ratio=0.0005,
    )  # fmt: skip


def whole_account(prices: Any) -> Any:
    """The terms of an account that has them all: rates, dividends, lots, limits, and deposits."""
    import pandas as pd

    import corvex

    quarters = prices.index[60::63]
    shares = pd.DataFrame(2.0, prices.index[1000:1001], prices.columns[:5])
    return corvex.Account(
        capital=1e7, cash_rate=0.03, cash_spread=0.005, short_rebate=0.01, financing_rate=0.05,
        borrow_rate=pd.Series(0.02, prices.columns), lot_size=1, rounding="nearest",
        fee_table={0: 0.001, 100_000: 0.0005}, fee_per_share=0.001, min_fee=1, max_fee_ratio=0.01,
        slippage_ratio=0.0005, tax_ratio=0.001, band=0.0005, volume_share=0.1, impact=0.1,
        price_limit=0.2, maintenance_margin=0.25, withholding_tax=0.3, splits=shares,
        dividends=prices.reindex(quarters) * 0.005,
        flows=pd.Series(1_000.0, prices.index[100::252]),
    )  # fmt: skip


def simulate(data: Path) -> list[Entry]:
    import corvex
    from corvex import _engine
    from corvex.simulation.options import Options

    arrays = load(data)
    close = arrays["prices"]
    prices = _engine.PriceSet(close=close)
    first = int(arrays["signals"][0])
    fee = float(arrays["fee"])
    bare = dict.fromkeys(("record_positions", "record_trades", "record_excursions"), False)
    stops = Options(fee_ratio=fee, stop_loss=0.2, take_profit=0.5, trail_stop=0.3)
    frame, targets = price_table(arrays), signal_rows(arrays)

    def engine(options: Options, **record: bool) -> object:
        return _engine.simulate(
            prices,
            arrays["weights"],
            arrays["signals"],
            first_session=first,
            options=options,
            **record,
        )

    def whole() -> object:
        return corvex.simulate(targets, frame, market="us_stock", fee_ratio=fee, name="bench")

    tables = {"close": frame, "volume": frame * 0.0 + 1e6}
    usual, account = usual_account(), whole_account(frame)

    def kept() -> object:
        return corvex.simulate(targets, frame, market="us_stock", name="bench", account=usual)

    def kept_whole() -> object:
        return corvex.simulate(targets, tables, market="us_stock", name="bench", account=account)

    return [
        time_call("engine, bare", lambda: engine(Options(fee_ratio=fee), **bare), memory=True),
        time_call("engine, all on", lambda: engine(stops), memory=True),
        time_call("corvex.simulate", whole, memory=True, repeats=9),
        time_call("  with an account: interest, lots, fees", kept, memory=True, repeats=9),
        time_call("  with an account, all on", kept_whole, memory=True, repeats=9),
        summary("first get_stats() of its report", _first_stats(whole)),
        time_call("numpy.sum", close.sum),
    ]


def daily(data: Path) -> list[Entry]:
    import numpy as np

    from corvex import _engine
    from corvex.simulation.options import Options

    arrays = load(data)
    fee = Options(fee_ratio=0.001)
    bare = dict.fromkeys(("record_positions", "record_trades", "record_excursions"), False)
    many = _engine.PriceSet(close=arrays["prices"])
    one = _engine.PriceSet(close=arrays["single"])
    every_day = np.arange(len(arrays["weights"]))
    months = np.arange(0, 4999, 21)
    in_and_out = (np.arange(len(months)) % 2).astype(float)[:, np.newaxis]

    def run(prices: object, weights: object, signals: object) -> object:
        return _engine.simulate(prices, weights, signals, options=fee, **bare)

    return [
        time_call("daily, 500 assets", lambda: run(many, arrays["weights"], every_day)),
        time_call("one asset held", lambda: run(one, np.ones((1, 1)), months[:1])),
        time_call("  bought and sold in turns", lambda: run(one, in_and_out, months)),
    ]


def _first_stats(simulate: Callable[[], Any]) -> list[float]:
    times = []
    kept = [simulate()]  # the report that the call lets go: to free it takes as long, untimed here
    for _ in range(9):
        report = simulate()
        start = time.perf_counter()
        report.get_stats()
        times.append(time.perf_counter() - start)
        kept[0] = report
    return times


def confidence(data: Path) -> list[Entry]:
    """On one thread, as the peers work."""
    from corvex import _engine

    arrays = load(data)
    returns, models, trials = arrays["returns"], arrays["models"], arrays["trials"]
    how = {"draws": 1000, "block": float(arrays["block"]), "seed": 0, "threads": 1}
    few = models[:, :100].copy()

    def drawn(*, moments_only: bool) -> object:
        return _engine.bootstrap_figures(returns, 252.0, 0.0, **how, moments_only=moments_only)

    def overfitting(count: int) -> object:
        table = trials[:, :count].copy()
        return lambda: _engine.backtest_overfitting(*_engine.block_sums(table, 16))

    return [
        time_call("Sharpe ratio, 1,000 draws", lambda: drawn(moments_only=True)),
        time_call("all six figures, 1,000 draws", lambda: drawn(moments_only=False)),
        time_call("SPA, 100 models", lambda: _engine.superiority_test(few, **how)),
        time_call("SPA, 1,000 models", lambda: _engine.superiority_test(models, **how)),
        time_call("PBO, 100 trials", overfitting(100)),
        time_call("PBO, 1,000 trials", overfitting(1000)),
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


def payload(_data: Path) -> list[Entry]:
    """The whole payload, its size, and the share of each step."""
    import json

    import numpy as np
    import pandas as pd

    import corvex
    from corvex.core.report import ReportExecution
    from corvex.core.trade_columns import decode_trades

    days = pd.bdate_range("2014-01-02", periods=2520)
    draw = np.random.default_rng(7)
    walk = draw.normal(0.0003, 0.015, (2520, 100)).cumsum(axis=0)
    prices = pd.DataFrame(100 * np.exp(walk), days, [f"A{i:03d}" for i in range(100)])
    held = pd.DataFrame(draw.random((2520, 100)) < 0.4, days, prices.columns).iloc[::6]
    report = corvex.simulate(held, prices, market="us_stock", benchmark=prices["A000"])
    if len(report.trades) < 10_000:
        raise RuntimeError(f"only {len(report.trades)} trades")
    report.trades = report.trades.tail(10_000)
    last = report.trades.tail(500)

    def fresh(call):  # the metrics are worked out anew, not remembered
        def run() -> object:
            report.__dict__.pop("metrics", None)
            return call()

        return run

    steps = {
        "payload, last 500 trades": fresh(report.to_payload_dict),
        "payload, every trade": fresh(lambda: report.to_payload_dict(trades_limit=None)),
        "  metrics": fresh(report.get_metrics),
        "  500 trades packed": lambda: report._gzip_b64_trades(last),
        "  10,000 trades packed": lambda: report._gzip_b64_trades(report.trades),
        "  curves": lambda: report.daily_creturn.index.astype(str).to_list(),
        "  execution": lambda: ReportExecution.to_dict_collection(report.execution),
        "  holdings": report.to_holdings_dict,
    }
    entries = [time_call(name, call, repeats=5) for name, call in steps.items()]
    for limit in (500, None):
        text = json.dumps(report.to_payload_dict(trades_limit=limit))
        size = f"{len(text) / 1000:.0f} kB"
        print(f"  payload with {limit or 'all'} trades: {size}", file=sys.stderr)
    packed = report.to_report_dict()["trades"]
    return [*entries, time_call("  10,000 trades read", lambda: decode_trades(packed), repeats=5)]


PAGE = """
import os, sys, tempfile, time
import tempfile
from pathlib import Path
from common import benchmark_series, price_series
import corvex
data = Path({data!r})
folder = tempfile.mkdtemp()
path = os.path.join(folder, "page.html")
benchmark = benchmark_series(data)
prices = price_series(data)
times = []
for _ in range(2):
    # Another report each time: what one report has computed does not help the next.
    report = corvex.from_equity(prices, benchmark=benchmark, name="bench")
    start = time.perf_counter()
    report.to_html(path)
    times.append(time.perf_counter() - start)
print(*times)
"""


def page(data: Path) -> list[Entry]:
    code = PAGE.format(data=str(data))
    labels = ["to_html, first call", "to_html, second call"]
    with tempfile.TemporaryDirectory() as folder:
        # In an empty temporary folder the charts' script is still to be compressed.
        fresh = f"import tempfile; tempfile.tempdir = {folder!r}\n{code}"
        ((compressing, _),) = [time_processes(labels, fresh, runs=1)]
    compressing["label"] = "to_html, script not yet packed"
    first, second = time_processes(labels, code)
    return [second, first, compressing]


# What a reader waits for, by an element that is there when it has come.
MILESTONES = {
    "headline figures": "#summary",
    "first chart": "#equity .chart[data-drawn]",
    "all tables": "#statistics",
    "all charts": "body[data-ready]",
}


def interactive(data: Path) -> list[Entry]:
    from corvex.cli.commands.demo import STEPS, run_demo
    from corvex.cli.console import Steps

    lacking = browser.missing()
    if lacking:
        print(f"  {lacking}: no page was opened, so nothing is known", file=sys.stderr)
        return []
    reports = {"ten years": traded_report(data), "demo": run_demo(Steps(STEPS))}
    entries = []
    with tempfile.TemporaryDirectory() as folder:
        for name, report in reports.items():
            path = Path(folder) / "page.html"
            report.to_html(path)
            print(f"  {name}: {path.stat().st_size / 1000:.0f} kB", file=sys.stderr)
            times = browser.time_page(path, MILESTONES, runs=10)
            entries += [summary(f"{name}: {what}", sample) for what, sample in times.items()]
    return entries


def imports(_data: Path) -> list[Entry]:
    return [time_import("import corvex.core.report", "corvex.core.report")]


TWO_CALLS = """
import time
import numpy as np, pandas as pd
import corvex.core.report
steps = np.random.default_rng(1).normal(0, 0.01, (2520, 50)).cumsum(axis=0)
prices = pd.DataFrame(100 * np.exp(steps), pd.bdate_range("2010-01-01", periods=2520))
prices.columns = [f"A{i}" for i in range(50)]
weights = prices.resample("ME").last().notna() / 50
for _ in range(2):
    start = time.process_time()
    corvex.simulate(weights, prices, resample="ME", market="us_stock")
    print(time.process_time() - start)
"""


def starts(_data: Path) -> list[Entry]:
    from corvex.cli.commands.demo import STEPS, run_demo
    from corvex.cli.console import Steps

    # The first run of all keeps the sessions of the exchange for the later ones.
    entries = time_processes([FIRST, SECOND], TWO_CALLS, runs=6)
    with tempfile.TemporaryDirectory() as folder:
        saved = Path(folder) / "report.pkl"
        run_demo(Steps(STEPS)).to_pickle(str(saved))
        command = [sys.executable, "-m", "corvex"]
        bare, pandas = [sys.executable, "-c", "pass"], [sys.executable, "-c", "import pandas"]
        return [
            time_over(HELP, [*command, "--help"], bare),
            time_over(SHOW, [*command, "show", str(saved)], pandas),
            *entries,
        ]


main(
    "corvex",
    {
        "statistics": statistics,
        "metrics": metrics,
        "drawdowns": drawdowns,
        "lookup": lookup,
        "import": imports,
        "start": starts,
        "trade_info": trade_info,
        "payload": payload,
        "simulate": simulate,
        "page": page,
        "interactive": interactive,
        "agree": agree,
        "confidence": confidence,
        "daily": daily,
        "sweep": sweep,
    },
)
