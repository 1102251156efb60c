calls = []


def plot_cumulative_return(series, **settings):
    calls.append(("return", series, settings))


def plot_drawdown(series, **settings):
    calls.append(("drawdown", series, settings))
