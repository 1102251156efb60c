import pandas as pd

from corvex.market import Market


class TWMarket(Market):
    benchmark = pd.Series(dtype="float64")

    def get_benchmark(self):
        return self.benchmark
