"""The plotly figures of the older view."""

import numpy as np
import pandas as pd
import pytest

DAYS = pd.date_range("2024-01-01", periods=30)
CURVES = pd.DataFrame({"strategy": np.linspace(100, 158, 30), "benchmark": 100.0}, index=DAYS)
CURVES.loc[DAYS[10:20], "benchmark"] = 80.0
HELD = pd.Series(range(30), index=DAYS)
TABLE = {2023: {1: 0.1, 2: -0.05, "YTD": 0.12345}, 2024: {1: 0.02, 2: np.nan, "YTD": -0.2}}

FILL, GRAY = {"fill": "tozeroy"}, {"line": {"color": "gray"}}
FAINT = {"fill": "tozeroy", "line": {"color": "rgba(0,0,0,0.2)"}}
GROUPS = ["performance", "drawdown", "rolling performance"]


def curves(name, *styles):
    """The three traces of a curve: axis, name, group and style."""
    names = [name, f"{name} - drawdown", f"{name} - month rolling return"]
    return list(zip(["y", "y2", "y3"], names, GROUPS, styles, strict=True))


STRATEGY = curves("strategy", FILL, FILL, FILL)
BENCHMARK = curves("benchmark", GRAY, GRAY, FAINT)
HOLDINGS = [("y4", "nstocks", None, FILL)]


def layout_of(figure):
    layout = figure.layout.to_plotly_json()
    del layout["template"]
    return layout


def described(trace):
    values = trace.to_plotly_json()
    assert values.pop("type") == "scatter"
    assert list(values.pop("x")) == list(DAYS.to_numpy())
    del values["y"]
    assert values.pop("xaxis")[1:] == values["yaxis"][1:]
    return (values.pop("yaxis"), values.pop("name"), values.pop("legendgroup", None), values)


@pytest.mark.parametrize("columns", [["strategy"], ["strategy", "benchmark"]])
def test_performance_is_drawn_in_four_panels(module, columns):
    figure = module.Report.create_performance_figure(CURVES[columns], HELD)
    expected = STRATEGY + (BENCHMARK if "benchmark" in columns else []) + HOLDINGS
    assert [described(trace) for trace in figure.data] == expected
    assert type(figure).__name__ == "Figure"
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


def test_performance_layout_to_the_letter(module):
    layout = layout_of(module.Report.create_performance_figure(CURVES, HELD))
    panels = [layout[axis].pop("domain") for axis in ("yaxis", "yaxis2", "yaxis3", "yaxis4")]
    heights = [top - bottom for bottom, top in panels]
    np.testing.assert_allclose(np.divide(heights, heights[1]), [2, 1, 1, 1])
    assert panels[0][1] == 1.0

    keys = ("legend", "margin", "height", "width")
    margin = {"l": 60, "r": 20, "t": 40, "b": 20}
    assert [layout[key] for key in keys] == [{"bgcolor": "rgba(0,0,0,0)"}, margin, 600, 800]
    buttons = [(1, "1m", "month", "backward"), (6, "6m", "month", "backward"),
               (1, "YTD", "year", "todate"), (1, "1y", "year", "backward")]  # fmt: skip
    buttons = [dict(zip(("count", "label", "step", "stepmode"), b, strict=True)) for b in buttons]
    assert layout["xaxis4"] == {
        "anchor": "y4",
        "domain": [0.0, 1.0],
        "type": "date",
        "rangeslider": {"visible": True, "thickness": 0.1},
        "rangeselector": {"x": 0, "y": 1, "buttons": [*buttons, {"step": "all"}]},
    }
    formats = [layout[axis].get("tickformat") for axis in ("yaxis", "yaxis2", "yaxis3", "yaxis4")]
    assert formats == [",.0%", ",.0%", ",.0%", None]
    assert [layout[axis]["matches"] for axis in ("xaxis", "xaxis2", "xaxis3")] == ["x4"] * 3
    axes = {f"{letter}axis{number}" for letter in "xy" for number in ("", 2, 3, 4)}
    assert set(layout) == axes | set(keys)


def map_of(figure, title, height, **axis):
    """Compares a map's own settings; gives its trace."""
    (trace,) = figure.data
    layout = layout_of(figure)
    colours = layout["coloraxis"]
    ends = [colours["colorscale"][end][1] for end in (0, -1)]
    assert ends == ["rgb(5,48,97)", "rgb(103,0,31)"]
    assert colours["colorbar"] == {"title": {"text": "return(%)"}}
    assert (colours["cmid"], colours["showscale"]) == (0, False)
    assert layout["margin"] == {"l": 20, "r": 270, "t": 40, "b": 40}
    assert layout["title"] == {"x": 0.025, "yanchor": "top", "text": title}
    assert (layout["height"], layout["width"]) == (height, 800)
    assert axis.items() <= layout["yaxis"].items()
    assert trace.texttemplate == "%{z}"
    return trace


def test_years_are_a_strip_of_percents(module):
    figure = module.Report.create_yearly_return_figure(TABLE)
    trace = map_of(figure, "yearly return", 120, visible=False)
    assert np.asarray(trace.z).tolist() == [[12.3, -20.0]]
    assert list(trace.x) == [2023, 2024]
    assert trace.hovertemplate == "year: %{x}<br>return: %{z}%"


def test_months_are_a_map_without_the_year_to_date(module):
    figure = module.Report.create_monthly_return_figure(TABLE)
    trace = map_of(figure, "monthly return", 550, side="right")
    np.testing.assert_allclose(np.asarray(trace.z), [[10.0, -5.0], [2.0, np.nan]])
    assert [list(trace.x), list(trace.y)] == [["1", "2"], ["2023", "2024"]]
    assert trace.hovertemplate == "year: %{y}<br>month: %{x}<br>return: %{z}%"
    assert figure.layout.xaxis.title.text == "month"
    assert figure.layout.yaxis.title.text == "year"
