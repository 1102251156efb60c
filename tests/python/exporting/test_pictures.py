"""Static pictures are drawn of the report's own values."""

import sys
import types

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.exporting.drawn import draw


@pytest.fixture(scope="module")
def report():
    days = pd.bdate_range("2022-11-01", periods=90)
    curve = pd.Series(np.geomspace(100.0, 500.0, 90), days)
    curve.iloc[40] = 90.0
    benchmark = pd.Series(np.linspace(50.0, 60.0, 60), days[20:80], name="<b>index")
    with pytest.warns(UserWarning, match="covers"):
        made = corvex.from_equity(curve, benchmark, name='<b>A & "B"')
        # The benchmark is looked at when the report is made.
    return made


def test_pictures_show_the_curves(report):
    overview = draw(report, "overview", None)
    own, market, fall, _ = overview.data
    assert overview.layout.title.text == '&lt;b&gt;A &amp; "B"'
    assert market.name == "&lt;b&gt;index"
    np.testing.assert_allclose(own.y, report.creturn / report.creturn.iloc[0])
    assert overview.layout.yaxis.type == "log"
    known = np.flatnonzero(np.isfinite(market.y))
    assert market.y[known[0]] == pytest.approx(own.y[known[0]])  # it starts on the curve
    assert np.min(fall.y) == pytest.approx(report.get_stats()["max_drawdown"])
    months = draw(report, "monthly_returns", "").data[0]
    assert months.y == ("2022", "2023")
    assert months.z[1][0] == pytest.approx(report.get_stats()["return_table"][2023][1])
    years, beside = draw(report, "yearly_returns", None).data
    assert beside.name == market.name
    assert years.y[1] == pytest.approx(months.z[1][12])


def test_refusals(report, tmp_path, monkeypatch):
    for arguments, text in (
        (("x.bmp",), "must end in .png"),
        (("x.png", "pie"), "must be one of overview, equity"),
    ):
        with pytest.raises(ValueError, match=text):
            corvex.save_figure(report, tmp_path / arguments[0], *arguments[1:])
    with pytest.raises(ValueError, match="scale must be above zero"):
        corvex.save_figure(report, tmp_path / "x.png", scale=0)
    with pytest.raises(ValueError, match="width must be above zero .*, got '960px'"):
        corvex.save_figure(report, tmp_path / "x.png", width="960px")

    class ChromeNotFoundError(Exception):
        pass

    def fails(*_, **__):
        raise ChromeNotFoundError

    for module, error, text in (
        (None, ImportError, r"pip install 'corvex\[images\]'"),
        (types.SimpleNamespace(), ImportError, "kaleido from 1.0 on"),
        (types.SimpleNamespace(calc_fig_sync=fails), RuntimeError, "BROWSER_PATH"),
    ):
        monkeypatch.setitem(sys.modules, "kaleido", module)
        with pytest.raises(error, match=text):
            corvex.save_figure(report, tmp_path / "x.png")
    assert not list(tmp_path.iterdir())


@pytest.mark.slow
@pytest.mark.no_asan
@pytest.mark.parametrize("picture", ["overview", "drawdown"])
def test_a_browser_draws_each(report, tmp_path, picture):
    pytest.importorskip("kaleido")
    path = tmp_path / ("x.svg" if picture == "drawdown" else "x.png")
    try:
        corvex.save_figure(report, path, picture, width=300, height=200, scale=1)
    except RuntimeError as error:
        pytest.skip(str(error))
    start = path.read_bytes()[:8]
    assert start.startswith(b"<svg" if picture == "drawdown" else b"\x89PNG\r\n\x1a\n")
