"""Reports as the constructor makes them, and a name that tries everything."""

import pandas as pd

from corvex.core.report import Report
from corvex.market import Market

HOSTILE = "</script><script>alert(1)</script><!-- &amp; \u2028 <b onclick=alert(2)>"


class SmallMarket(Market):
    """A market whose only table is the benchmark."""

    def __init__(self, benchmark=None):
        self.benchmark = benchmark

    def get_name(self):
        return "somewhere"

    def get_benchmark(self):
        return pd.Series(dtype="float64") if self.benchmark is None else self.benchmark


def bare_report(curve, benchmark=None):
    """A report straight from the constructor: no trades, no weights, no settings."""
    position = pd.DataFrame({"A": 1.0}, index=curve.index)
    following = curve.index[-1] + pd.Timedelta(days=1)
    return Report(curve, position, 0.0, 0.0, "close", following, SmallMarket(benchmark))
