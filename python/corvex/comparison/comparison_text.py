"""A comparison as text, for the terminal."""

from __future__ import annotations

import math

from corvex.comparison.compared_tables import ComparedTables
from corvex.ffn_core.catalogue import show
from corvex.plaintext import printable, text_table

__all__ = ["comparison_text"]

_MOST_BESIDE = 6  # reports side by side with all their figures; more are ranked
_MOST_SHOWN = 10  # of the ranked ones in the tables of years and correlations


def comparison_text(compared: ComparedTables) -> str:
    """Return the three tables as text: figures, returns in percent, correlation.

    Up to six reports stand side by side with all figures. More are ranked by their Sharpe
    ratios, a line for each; the other tables are then those of the first ten.
    """
    dates = compared.curves.index
    yearly = (100 * compared.yearly_returns).round(2) + 0.0  # no -0.00
    span = f"{dates[0]:%Y-%m-%d} ~ {dates[-1]:%Y-%m-%d}, {len(dates)} common dates"
    if len(compared.curves.columns) <= _MOST_BESIDE:
        chosen = [str(name) for name in compared.curves]
        heads = [printable(name) for name in chosen]
        rows = compared.figures.to_numpy()
        figures = text_table(
            ["", *heads],
            [
                [str(key), *(show(str(key), float(value)) for value in row)]
                for key, row in zip(compared.figures.index, rows, strict=True)
            ],
        )
    else:
        figures = _ranked_text(compared)
        chosen = compared.ranking[:_MOST_SHOWN]
        heads = [str(rank) for rank in range(1, len(chosen) + 1)]
    correlation = compared.correlation.loc[chosen, chosen].to_numpy()
    yearly_rows = [[str(year), *map(_number, row)] for year, row in yearly[chosen].iterrows()]
    correlation_rows = [
        [name, *map(_number, row)] for name, row in zip(heads, correlation, strict=True)
    ]
    years = "Return by year, %\n" + text_table(["year", *heads], yearly_rows)
    pairs = "Correlation of daily returns\n" + text_table(["", *heads], correlation_rows)
    return "\n\n".join((span, figures, years, pairs))


def _number(value: float) -> str:
    return "-" if math.isnan(value) else f"{value:.2f}"


def _ranked_text(compared: ComparedTables) -> str:
    columns = {"cagr": "CAGR", "daily_vol": "volatility", "daily_sharpe": "Sharpe",
               "max_drawdown": "drawdown", "total_return": "total"}  # fmt: skip
    rows = [
        [
            str(rank),
            printable(name),
            *(show(key, compared.figures.at[key, name]) for key in columns),
        ]
        for rank, name in enumerate(compared.ranking, start=1)
    ]
    header = ["", "by Sharpe ratio", *columns.values()]
    return text_table(header, rows, left=2, wide=28)
