"""The public quantstats package; it works on returns, which are made outside the timing."""

from __future__ import annotations

from pathlib import Path

from common import Entry, main, price_series, time_call, time_import, time_processes


def statistics(data: Path) -> list[Entry]:
    import quantstats as qs

    returns = price_series(data).pct_change().dropna()
    # Its table of all metrics is the nearest thing to a full record; without a benchmark.
    return [
        time_call(
            'reports.metrics(mode="full")',
            lambda: qs.reports.metrics(returns, mode="full", display=False),
        )
    ]


def drawdowns(data: Path) -> list[Entry]:
    import quantstats as qs

    returns = price_series(data).pct_change().dropna()

    def ten_largest() -> object:
        details = qs.stats.drawdown_details(qs.stats.to_drawdown_series(returns))
        return details.sort_values("max drawdown").head(10)

    return [time_call("drawdown_details, ten largest", ten_largest)]


PAGE = """
import os, tempfile, time
from pathlib import Path
from common import benchmark_series, price_series
import matplotlib
matplotlib.use("Agg")
import quantstats as qs
data = Path({data!r})
returns, benchmark = (
    prices.pct_change().dropna() for prices in (price_series(data), benchmark_series(data))
)
path = os.path.join(tempfile.mkdtemp(), "page.html")
times = []
for _ in range(2):
    start = time.perf_counter()
    qs.reports.html(returns, benchmark, output=path, title="bench")
    times.append(time.perf_counter() - start)
print(*times)
"""


def page(data: Path) -> list[Entry]:
    labels = ["reports.html, first call", "reports.html, second call"]
    first, second = time_processes(labels, PAGE.format(data=str(data)), runs=2)
    return [second, first]


def imports(_data: Path) -> list[Entry]:
    return [time_import("import quantstats", "quantstats")]


main(
    "quantstats",
    {"statistics": statistics, "drawdowns": drawdowns, "page": page, "import": imports},
)
