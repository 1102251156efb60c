"""These checks only make sense inside the foreign host."""

import os

import pytest

if "CORVEX_TEST_HOST" not in os.environ:
    collect_ignore_glob = ["test_*.py"]


@pytest.fixture
def module():
    import corvex.core.report as report

    assert report.__file__.startswith(os.environ["CORVEX_TEST_HOST"])
    return report


@pytest.fixture
def make_report(module):
    """A report of ten days in which two assets were held."""
    import numpy as np
    import pandas as pd

    def make(columns=("A", "B"), benchmark=None):
        dates = pd.date_range("2024-01-01", periods=10)
        creturn = pd.Series(np.linspace(1, 2, 10), index=dates)
        weights = np.full((10, len(columns)), 0.5)
        weights[3:, 0] = 0.0
        position = pd.DataFrame(weights, index=dates, columns=list(columns))
        market = module.TWMarket()
        if benchmark is not None:
            market.benchmark = benchmark
        return module.Report(creturn, position, 0.001, 0.003, "close", dates[-1], market)

    return make


@pytest.fixture
def us_market(module):
    """The class of a market that says no more than its name and its bars."""

    class Exchange(module.Market):
        def get_name(self):
            return "us_stock"

        def get_freq(self):
            return "1D"

    return Exchange


@pytest.fixture
def execution(module, monkeypatch):
    """An execution record of nothing, whose timing record can be written as JSON."""
    monkeypatch.setattr("corvex.rebalance.execution_timing", lambda *_, **__: {"status": "new"})
    fields = """weights next_weights resample actions next_trading_date trade_at market stop_loss
        take_profit trail_stop"""
    return module.ReportExecution(**dict.fromkeys(fields.split()))


@pytest.fixture
def unpacked():
    """Reads the text that trades travel as. It bears the time of packing, so texts may differ."""
    import base64
    import gzip
    import json

    return lambda text: json.loads(gzip.decompress(base64.b64decode(text, validate=True)))
