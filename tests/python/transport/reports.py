"""Reports of several kinds, as `corvex.simulate` gives them."""

import warnings
from functools import cache

import numpy as np
import pandas as pd

import corvex
from corvex.core.report import Report

KINDS = ("plain", "no_trades", "stops", "intraday", "no_benchmark", "several", "taiwan", "dates")


def _prices(index: pd.DatetimeIndex, names: list[str]) -> pd.DataFrame:
    steps = np.random.default_rng(3).normal(0.0005, 0.02, (len(index), len(names)))
    return pd.DataFrame(100 * np.exp(steps.cumsum(axis=0)), index, names)


@cache
def report(kind: str) -> Report:
    """Make a report of a kind; do not change it."""
    days = pd.bdate_range("2022-01-03", periods=260)
    names = ["AAA", "BBB Some Name", "CCC", "DDD"]
    options: dict[str, object] = {"market": "us_stock", "resample": "ME"}
    if kind == "intraday":
        days = pd.date_range("2024-01-02", periods=600, freq="h", tz="UTC")
        options |= {"market": "crypto", "resample": None, "trade_at": "close"}
    if kind == "taiwan":
        names = ["2330 台積電", "1101", "2603 Ships", "00632R"]
        options |= {"market": "tw_stock", "resample": "W"}
    prices = _prices(days, names)
    if kind == "stops":
        options |= {"stop_loss": 0.05, "take_profit": 0.08, "trail_stop": 0.1}
    if kind == "dates":
        options["resample"] = list(days[20::40])
    if kind not in ("no_benchmark", "no_trades"):
        options["benchmark"] = prices.iloc[:, 0]
    weights = (prices.pct_change(20).rank(axis=1) > 2).astype(float) / 2
    if kind == "no_trades":
        weights *= 0.0
    with warnings.catch_warnings():
        warnings.filterwarnings("ignore", "no rebalance has a weight")
        made = corvex.simulate(weights.iloc[::5], prices, name=kind, **options)
    if kind == "several":
        single = made.execution
        made.execution = {"momentum": single, "schema": single.with_total_weight(0.5)}
    return made
