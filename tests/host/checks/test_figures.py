"""The plotly figures of the older view."""

import numpy as np
import pandas as pd
import pytest

DAYS = pd.date_range("2024-01-01", periods=30)
CURVES = pd.DataFrame({"strategy": np.linspace(100, 158, 30), "benchmark": 100.0}, index=DAYS)
CURVES.loc[DAYS[10:20], "benchmark"] = 80.0
HELD = pd.Series(range(30), index=DAYS)
TABLE = {2023: {1: 0.1, 2: -0.05, "YTD": 0.1236}, 2024: {1: 0.02, 2: np.nan, "YTD": -0.2}}

PANELS = ("yaxis", "yaxis2", "yaxis3", "yaxis4")


def layout_of(figure):
    layout = figure.layout.to_plotly_json()
    del layout["template"]
    return layout


@pytest.mark.parametrize("columns", [["strategy"], ["strategy", "benchmark"]])
def test_performance_is_drawn_in_four_panels(module, columns):
    figure = module.Report.create_performance_figure(CURVES[columns], HELD)
    assert type(figure).__name__ == "Figure"
    kinds = ("", " - drawdown", " - month rolling return")
    names = [name + kind for name in columns for kind in kinds] + ["nstocks"]
    assert [trace.name for trace in figure.data] == names
    assert [trace.yaxis for trace in figure.data] == ["y", "y2", "y3"] * len(columns) + ["y4"]
    groups = ["performance", "drawdown", "rolling performance"] * len(columns) + [None]
    assert [trace.legendgroup for trace in figure.data] == groups
    filled = [trace.fill == "tozeroy" for trace in figure.data]
    assert filled == [True] * 3 + [False, False, True] * (len(columns) - 1) + [True]
    assert all(list(trace.x) == list(DAYS.to_numpy()) for trace in figure.data)
    values = {trace.name: np.asarray(trace.y) for trace in figure.data}
    for name in columns:
        curve = CURVES[name].to_numpy()
        np.testing.assert_allclose(values[name], curve / 100 - 1)
        np.testing.assert_allclose(
            values[f"{name} - drawdown"], curve / np.maximum.accumulate(curve) - 1
        )
        rolling = values[f"{name} - month rolling return"]
        assert np.isnan(rolling[:20]).all()
        np.testing.assert_allclose(rolling[20:], curve[20:] / curve[:-20] - 1)
    np.testing.assert_array_equal(values["nstocks"], range(30))


def test_performance_shares_its_dates_and_selects_ranges(module):
    layout = layout_of(module.Report.create_performance_figure(CURVES, HELD))
    assert [layout[axis].get("tickformat") for axis in PANELS] == [",.0%", ",.0%", ",.0%", None]
    assert [layout[axis]["matches"] for axis in ("xaxis", "xaxis2", "xaxis3")] == ["x4"] * 3
    assert layout["xaxis4"]["rangeslider"] == {"visible": True, "thickness": 0.1}
    buttons = [tuple(b.values()) for b in layout["xaxis4"]["rangeselector"]["buttons"]]
    assert list(map(set, buttons)) == [
        *({1, "1m", "month", "backward"}, {6, "6m", "month", "backward"}),
        *({1, "YTD", "year", "todate"}, {1, "1y", "year", "backward"}, {"all"}),
    ]


def map_of(figure, title, **axis):
    """Compares a map's own settings; gives its trace."""
    (trace,) = figure.data
    layout = layout_of(figure)
    colours = layout["coloraxis"]
    assert [colours["colorscale"][end][1] for end in (0, -1)] == ["rgb(5,48,97)", "rgb(103,0,31)"]
    assert (colours["cmid"], colours["showscale"]) == (0, False)
    assert layout["title"]["text"] == title
    assert axis.items() <= layout["yaxis"].items()
    assert trace.texttemplate == "%{z}"
    return trace


def test_years_are_a_strip_of_percents(module):
    figure = module.Report.create_yearly_return_figure(TABLE)
    trace = map_of(figure, "yearly return", visible=False)
    assert np.asarray(trace.z).tolist() == [[12.4, -20.0]]
    assert list(trace.x) == [2023, 2024]


def test_months_are_a_map_without_the_year_to_date(module):
    figure = module.Report.create_monthly_return_figure(TABLE)
    trace = map_of(figure, "monthly return", side="right")
    np.testing.assert_allclose(np.asarray(trace.z), [[10.0, -5.0], [2.0, np.nan]])
    assert [list(trace.x), list(trace.y)] == [["1", "2"], ["2023", "2024"]]
    assert figure.layout.xaxis.title.text == "month"
    assert figure.layout.yaxis.title.text == "year"
