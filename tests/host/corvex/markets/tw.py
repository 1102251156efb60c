import pandas as pd

from corvex.market import Market


class TWMarket(Market):
    benchmark = pd.Series(dtype="float64")
    market_value = pd.DataFrame()

    def get_name(self):
        return "tw_stock"

    def get_freq(self):
        return "1d"

    def get_benchmark(self):
        return self.benchmark

    def get_market_value(self):
        return self.market_value
