"""The least that the report needs of the statistics library."""

import pandas as pd


class Stats:
    def __init__(self, series):
        self.series = series
        self.rates = []

    def set_riskfree_rate(self, rate):
        self.rates.append(rate)

    @property
    def stats(self):
        first, last = self.series.iloc[0], self.series.iloc[-1]
        figures = {
            "start": self.series.index[0],
            "end": self.series.index[-1],
            "rf": self.rates[-1],
            "cagr": last / first - 1,
            "max_drawdown": (self.series / self.series.cummax() - 1).min(),
            "daily_mean": 0.12345,
        }
        return pd.Series(figures, dtype=object)

    @property
    def return_table(self):
        return pd.DataFrame({1: [0.1], "YTD": [0.2]}, index=[2024])


def rebase(series, value=100):
    return series / series.bfill().iloc[0] * value


def to_drawdown_series(series):
    return series / series.cummax() - 1


pd.Series.rebase = pd.DataFrame.rebase = rebase
pd.Series.to_drawdown_series = pd.DataFrame.to_drawdown_series = to_drawdown_series
pd.Series.calc_stats = lambda series: Stats(series)  # noqa: PLW0108 - a class would not bind
