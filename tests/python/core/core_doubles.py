"""A small report for the tests of what stands around the real one."""

import numpy as np
import pandas as pd


class DoubleMarket:
    def __init__(self, prices=None, status=None):
        self.prices = prices or {}
        self.status = status or {}

    def get_name(self):
        return "us_stock"

    def get_freq(self):
        return "D"

    def get_price(self, name, adj=True):
        if name not in self.prices:
            raise KeyError(name)
        return self.prices[name]

    def get_status(self, kind):
        return self.status.get(kind, pd.DataFrame())

    def market_close_at_timestamp(self, date):
        return pd.Timestamp(date).tz_localize("UTC") + pd.Timedelta(hours=21)


class DoubleReport:
    """Has the attributes of a report that nothing was attached to."""

    stop_loss = take_profit = trail_stop = live_performance_start = None

    def __init__(self, curve, benchmark=None, trades=None, position=None, market=None):
        self.daily_creturn = self.creturn = curve
        self.daily_benchmark = pd.Series(1.0, curve.index) if benchmark is None else benchmark
        self.trades = pd.DataFrame() if trades is None else trades
        self.position = pd.DataFrame(index=curve.index[:0]) if position is None else position
        self.fee_ratio, self.tax_ratio, self.trade_at = 0.001, 0, "close"
        self.update_date = curve.index[-1] if len(curve) else None
        self.next_trading_date = pd.NaT
        self.market_object = market or DoubleMarket()

    @property
    def market(self):
        return self.market_object

    def get_stats(self, riskfree_rate=0.02):
        return {"cagr": 0.1, "daily_sharpe": 1.0 - riskfree_rate}

    def to_text(self, name=None):
        return f"策略: {name or '未命名'} <&>\n"


def curve(seed=0, days=300):
    returns = np.random.default_rng(seed).normal(0.0005, 0.01, days)
    index = pd.bdate_range("2022-01-03", periods=days)
    return pd.Series(100 * np.cumprod(1 + returns), index=index)
