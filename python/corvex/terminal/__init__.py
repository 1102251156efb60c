"""Character charts of a report for a terminal or a log."""

from corvex.terminal.charts import label_width, plot_cumulative_return, plot_drawdown

__all__ = ["label_width", "plot_cumulative_return", "plot_drawdown"]


def __dir__() -> list[str]:
    return sorted(__all__)
