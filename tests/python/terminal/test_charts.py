import contextlib
import io
import re

import numpy as np
import pandas as pd
import pytest
from hypothesis import given
from hypothesis import strategies as st

from corvex.terminal import label_width, plot_cumulative_return, plot_drawdown

LINE, DOTS = set("─│╭╮╰╯"), {"·"}


def _curve(values, start="2020-01-01"):
    return pd.Series(values, index=pd.bdate_range(start, periods=len(values)), dtype=float)


def _walk(seed, n=500):
    return _curve(np.cumprod(1 + np.random.default_rng(seed).normal(0, 0.02, n)))


class Chart:
    """The parts of a printed chart."""

    def __init__(self, text, height):
        lines = text.splitlines()
        self.title, self.legend, self.dates = lines[0], lines[-1], lines[-2]
        self.rows = lines[1 : 1 + height]
        self.axis = lines[1 + height]
        self.count = len(lines)
        cut = self.axis.index("└") + 1 if "└" in self.axis else self.axis.index("+") + 1
        self.plot = [row[cut:] for row in self.rows]
        self.labels = [row[: cut - 1].strip() for row in self.rows]

    def signs(self):
        return set("".join(self.plot)) - {" "}


@pytest.fixture
def printed(capsys):
    def run(plot, *args, height, **kwargs):
        plot(*args, height=height, **kwargs)
        return Chart(capsys.readouterr().out, max(height, 1))

    return run


@pytest.mark.parametrize("plot", [plot_cumulative_return, plot_drawdown])
@pytest.mark.parametrize("width", [20, 80, 200])
@pytest.mark.parametrize("height", [1, 2, 7, 40])
@pytest.mark.parametrize("n", [0, 1, 3, 700])
def test_the_size_is_exact_whatever_the_length_of_the_curve(printed, plot, width, height, n):
    chart = printed(plot, _walk(1, n), _walk(2, n), title="T", height=height, width=width)
    assert chart.count == height + 4  # title, rows, axis, dates, legend
    assert {len(row) for row in chart.plot} == {width}
    total = label_width() + width
    assert {len(row) for row in chart.rows} == {len(chart.axis)} == {total}
    assert max(len(chart.dates), len(chart.legend)) <= total
    filled = [column for column in zip(*chart.plot, strict=True) if set(column) != {" "}]
    assert len(filled) == (6 if n == 0 else 1 if n == 1 else width)  # "no data": 6 letters


def test_two_curves_are_told_apart_without_colour(printed):
    chart = printed(plot_cumulative_return, _walk(1), _walk(2), height=12)
    assert chart.signs() & LINE
    assert chart.signs() & DOTS
    assert chart.signs() <= LINE | DOTS
    assert re.search(r"── strategy [+-]\d+\.\d%   ·· benchmark [+-]\d+\.\d%", chart.legend)
    assert "\x1b" not in "".join([*chart.rows, chart.legend])
    alone = printed(plot_cumulative_return, _walk(1), height=12)
    assert not alone.signs() & DOTS
    assert "benchmark" not in alone.legend


def test_axis_labels_are_percent_since_the_start_and_dates(printed):
    chart = printed(plot_cumulative_return, _curve([50.0, 75.0, 25.0]), height=3, width=40)
    assert chart.labels == ["50%", "0%", "-50%"]
    assert chart.dates.split() == ["2020-01-01", "2020-01-03"]
    assert chart.plot[0].strip(" ")[0] == "╭"
    assert chart.plot[2].rstrip()[-1] == "─"
    clock = _curve(np.arange(1.0, 9.0))
    clock.index = pd.date_range("2020-01-01 09:00", periods=8, freq="h", tz="Asia/Taipei")
    chart = printed(plot_cumulative_return, clock, height=3, width=40)
    assert chart.dates.split() == ["01-01", "09:00", "01-01", "16:00"]


def test_the_deepest_fall_is_never_lost_between_two_columns(printed):
    values = np.ones(5000)
    values[2502] = 0.5
    chart = printed(plot_drawdown, _curve(values), height=11, width=30)
    assert chart.labels[0] == "0%"
    assert chart.labels[-1] == "-50%"
    assert chart.plot[-1].strip()
    assert "strategy -50.0%" in chart.legend


def test_gaps_infinities_and_disorder_do_not_spoil_a_chart(printed):
    clean = _walk(5, 60)
    expected = printed(plot_cumulative_return, clean.ffill(), height=8, width=60).plot
    dirty = clean.copy()
    dirty.iloc[10:12] = [np.nan, -np.inf]
    filled = clean.copy()
    filled.iloc[10:12] = clean.iloc[9]
    assert (
        printed(plot_cumulative_return, dirty, height=8, width=60).plot
        == printed(plot_cumulative_return, filled, height=8, width=60).plot
    )
    shuffled = pd.concat([clean.sample(frac=1, random_state=1), clean.tail(1)])
    assert printed(plot_cumulative_return, shuffled, height=8, width=60).plot == expected
    chart = printed(plot_cumulative_return, clean * np.nan, height=8, width=60)
    assert "no data" in "".join(chart.plot)


def test_a_benchmark_is_rebased_on_the_dates_of_the_strategy(printed):
    strategy = _curve([1.0, 1.0, 1.0, 1.0])
    longer = _curve([1.0, 10, 10, 10, 20, 20, 20, 20, 99], start="2019-12-30")
    chart = printed(plot_cumulative_return, strategy, longer, height=5, width=20)
    assert chart.labels[0] == "100%"
    aware = longer.tz_localize("America/New_York")
    same = printed(plot_cumulative_return, strategy, aware, height=5, width=20)
    assert same.plot == chart.plot


class Terminal(io.StringIO):
    encoding = "utf-8"
    tty = True

    def isatty(self):
        return self.tty


@pytest.mark.parametrize(
    ("tty", "no_color", "term", "coloured"),
    [
        (True, "", "xterm", True),
        (True, "1", "xterm", False),
        (True, "", "dumb", False),
        (False, "", "xterm", False),
    ],
)
def test_colour_only_where_it_is_wanted(monkeypatch, tty, no_color, term, coloured):
    stream = Terminal()
    stream.tty = tty
    monkeypatch.setattr("sys.stdout", stream)
    monkeypatch.setenv("NO_COLOR", no_color)
    monkeypatch.setenv("TERM", term)
    plot_cumulative_return(_walk(1), _walk(2), height=5, width=40)
    assert ("\x1b[36m" in stream.getvalue() and "\x1b[33m" in stream.getvalue()) == coloured
    assert stream.getvalue().count("\x1b[0m") * 2 == stream.getvalue().count("\x1b[")
    plain = Chart(re.sub(r"\x1b\[\d+m", "", stream.getvalue()), 5)
    assert {len(row) for row in plain.plot} == {40}


def test_a_terminal_without_box_drawing_gets_ascii(monkeypatch):
    stream = Terminal()
    stream.encoding = "ascii"
    monkeypatch.setattr("sys.stdout", stream)
    monkeypatch.setenv("NO_COLOR", "1")
    plot_drawdown(_walk(1), _walk(2), height=5, width=40)
    assert stream.getvalue().isascii()
    assert Chart(stream.getvalue(), 5).signs() == {"*", "."}


@given(
    st.lists(st.floats(-1e300, 1e300) | st.sampled_from([np.nan, np.inf, 0.0]), max_size=30),
    st.integers(-1, 9),
    st.integers(1, 30),
)
def test_no_curve_breaks_a_chart(values, height, width):
    for plot in (plot_cumulative_return, plot_drawdown):
        with contextlib.redirect_stdout(io.StringIO()) as stream:
            plot(_curve(values), _curve(values[::-1]), title="T", height=height, width=width)
        chart = Chart(stream.getvalue(), max(height, 1))
        assert {len(row) for row in chart.plot} == {width}


def test_wrong_arguments_are_refused():
    with pytest.raises(ValueError, match="the benchmark must hold numbers"):
        plot_cumulative_return(_walk(1), pd.Series(["a"], index=pd.bdate_range("2020", periods=1)))
    with pytest.raises(TypeError, match="float"):
        plot_cumulative_return(_walk(1), height=3.5)


def test_a_curve_of_many_factors_gets_a_log_scale(printed):
    tenfold = _curve(10.0 ** np.arange(5))
    chart = printed(plot_cumulative_return, tenfold, title="T", height=5, width=5)
    assert chart.title == "T (log scale)"
    assert chart.labels == ["999900%", "99900%", "9900%", "900%", "0%"]
    # Equal factors are equal steps: the curve climbs a row with each column.
    rows = [next(i for i, row in enumerate(chart.plot) if row[c] in "╭─") for c in range(5)]
    assert rows == [4, 3, 2, 1, 0]
    lost = _curve([100.0, 1.0, 0.0])
    assert printed(plot_cumulative_return, lost, title="T", height=5, width=5).title == "T"
