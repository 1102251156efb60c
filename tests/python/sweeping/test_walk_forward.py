"""Walk-forward: windows follow the calendar, choices know no future, and changes are paid for."""

import json
import re

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.sweeping.windows import roll

FIXED = {"market": "us_stock", "fee_ratio": 0.002, "tax_ratio": 0.0}


def prices(seed=1, zone=None):
    draw = np.random.default_rng(seed)
    dates = pd.bdate_range("2015-01-02", "2020-12-31", tz=zone)
    steps = draw.normal(0.0004, 0.015, (len(dates), 5))
    return pd.DataFrame(100 * np.exp(steps.cumsum(axis=0)), dates, list("ABCDE"))


def momentum(prices, lookback):
    return prices.pct_change(lookback, fill_method=None).rank(axis=1, ascending=False) <= 2


def swept(table, lookbacks=(5, 21, 63), **more):
    given = {"options": {"resample": ["W", "ME"]}, "keep": "curves", **FIXED, **more}
    return corvex.sweep(momentum, table, signal={"lookback": list(lookbacks)}, **given)


@pytest.mark.parametrize("zone", [None, "Asia/Taipei"])
@pytest.mark.parametrize(
    ("train", "test", "more", "starts", "first_train"),
    [
        ("2YE", "1YE", {}, ["2017-01-02", "2018-01-01", "2019-01-01", "2020-01-01"], "2015-01-02"),
        ("3YE", "2YE", {"anchored": True}, ["2018-01-01", "2020-01-01"], "2015-01-02"),
        ("6ME", "18ME", {}, ["2015-07-01", "2017-01-02", "2018-07-02", "2020-01-01"], "2015-01-02"),
        ("730D", "3YE", {}, ["2017-01-02", "2020-01-01"], "2015-01-02"),
        ("1000D", "700D", {}, ["2017-09-28", "2019-08-29"], "2015-01-02"),
    ],
)
def test_windows_follow_the_calendar(zone, train, test, more, starts, first_train):
    table = prices(zone=zone)
    walk = corvex.walk_forward(swept(table), train, test, embargo="5D", **more)
    found = walk.choices
    assert [str(day.date()) for day in found["test_start"]] == starts
    assert str(found["train_start"].iloc[0].date()) == first_train
    gap = found["test_start"].dt.tz_localize(None) - found["train_end"].dt.tz_localize(None)
    assert gap.min() > pd.Timedelta(days=5)
    assert found["test_end"].iloc[-1] == table.index[-1]
    rows = table.index.get_indexer(found["test_start"])
    assert (table.index[rows[1:] - 1] == found["test_end"].iloc[:-1]).all()
    assert walk.report.creturn.index[0] == table.index[rows[0] - 1]
    assert 0 <= walk.stability <= 1
    assert np.isclose(walk.efficiency, found["outside"].mean() / found["inside"].mean()) or (
        found["inside"].mean() <= 0
    )


@pytest.mark.parametrize(
    ("train", "test", "days"),
    [("2YE", "3ME", 731), ("1YE", "30D", 366), ("1QE", "1ME", 92), ("4W", "1ME", 28)],
)
def test_trainings_are_whole_where_tests_begin_inside_their_periods(train, test, days):
    sessions = pd.date_range("2015-01-01", "2020-12-31")
    lengths = [len(sessions[w.train]) for w in roll(sessions, train, test, None, anchored=False)]
    assert len(lengths) > 15
    assert days - 8 <= min(lengths)
    assert max(lengths) <= days


def test_one_combination_alone_is_a_run_of_it():
    table = prices()
    found = swept(table, [21], options={"resample": ["ME"]})
    walk = corvex.walk_forward(found, "2YE", "1YE")
    single = corvex.simulate(
        momentum(table, 21), table, resample="ME", start=walk.report.creturn.index[0], **FIXED
    )
    pd.testing.assert_series_equal(walk.report.creturn, single.creturn, rtol=1e-12)
    assert len(walk.report.fills) == len(single.fills)
    assert walk.report.next_weights.to_dict() == single.next_weights.to_dict()
    assert walk.report.planned_rebalance_date == single.planned_rebalance_date
    assert walk.stability == 1
    assert walk.report.trials_statistics.trials == 1
    worth = walk.confidence(draws=50).figures
    assert worth.equals(corvex.confidence(walk.report, draws=50).figures)
    assert worth["trials"] == 1


def test_winners_are_stitched_and_the_change_is_paid_for():
    table = prices()
    found = swept(table)
    walk = corvex.walk_forward(found, "1YE", "1YE")
    labels = list(zip(walk.choices["lookback"], walk.choices["resample"], strict=True))
    assert len(set(labels)) > 1
    turns = [at for at in range(1, len(labels)) if labels[at] != labels[at - 1]]
    fills = set(pd.DatetimeIndex(walk.report.fills["date"]).normalize())
    for at in turns:
        assert walk.choices["test_start"].iloc[at] in fills
    for place, (lookback, resample) in enumerate(labels):
        row = walk.choices.iloc[place]
        own = corvex.simulate(momentum(table, lookback), table, resample=resample, **FIXED)
        held = walk.report.position.loc[row["test_start"] : row["test_end"]]
        wanted = own.position.loc[row["test_start"] : row["test_end"]]
        pd.testing.assert_frame_equal(held.iloc[1:-1], wanted.iloc[1:-1], rtol=1e-12)
        if place:  # the first training holds the warm-up too
            before = table.index[table.index.get_loc(row["train_start"]) - 1]
            inside = own.creturn.loc[before : row["train_end"]].calc_stats()
            inside.set_riskfree_rate(0.02)
            assert row["inside"] == pytest.approx(inside.stats["daily_sharpe"], rel=1e-9)


@pytest.mark.parametrize("choose", ["cagr", "daily_vol", lambda figures: figures["calmar"]])
def test_choices_do_not_look_into_their_tests(choose):
    table = prices()
    draw = np.random.default_rng(5)
    whole = corvex.walk_forward(swept(table), "2YE", "1YE", choose, embargo="10D").choices
    for at in range(len(whole)):
        future = table.index > whole["train_end"].iloc[at]
        steps = table.pct_change(fill_method=None).to_numpy(copy=True)
        steps[future] = draw.permutation(steps[future])
        other = (1 + pd.DataFrame(steps, table.index, table.columns).fillna(0)).cumprod() * 100
        other[~future] = table[~future]
        other[future] = other[future] / other[future].iloc[0] * table[~future].iloc[-1]
        shuffled = corvex.walk_forward(swept(other), "2YE", "1YE", choose, embargo="10D").choices
        known = ["lookback", "resample", "inside"]
        pd.testing.assert_frame_equal(shuffled[known][: at + 1], whole[known][: at + 1])
        assert not shuffled["outside"].iloc[at:].equals(whole["outside"].iloc[at:])


def test_ties_go_to_the_first_and_failed_runs_are_never_chosen():
    table = prices()

    def strategy(prices, lookback):
        if lookback == 1:
            raise RuntimeError("no")
        return momentum(prices, 21)

    with pytest.warns(UserWarning, match="1 of 3 runs failed"):
        found = corvex.sweep(
            strategy, table, signal={"lookback": [1, 3, 2]}, keep="curves", **FIXED
        )
    walk = corvex.walk_forward(found, "2YE", "1YE")
    assert walk.choices["lookback"].unique().tolist() == [3]


@pytest.mark.parametrize(
    ("changed", "text"),
    [
        ({"train": "9YE"}, "do not fit: the curves run from 2015-01-02 to 2020-12-31"),
        ({"train": "2D", "test": "30D"}, "has 1 sessions; lengthen"),
        ({"train": "1ME", "embargo": "30D"}, "shorten embargo"),
        ({"test": "6h"}, "shorter than the bars"),
        ({"train": "soon"}, "train must be a length"),
        ({"test": "-1YE"}, "test must be a length"),
        ({"test": "1YS"}, "test must be a length"),
        ({"choose": "sharpe"}, "choose is no figure: 'sharpe'; did you mean"),
        ({"choose": 3}, "choose is no figure: 3; there are"),
        ({"choose": lambda figures: [1.0]}, "a score for each run"),
        ({"choose": lambda figures: figures["cagr"] * np.nan}, "no run has a value to choose by"),
        ({"where": {"resample": "QE"}}, "no run has resample='QE'; there are 'W', 'ME'"),
    ],
)
def test_windows_and_choices_that_cannot_be_are_told(changed, text):
    found = swept(prices(), [5])
    with pytest.raises(ValueError, match=text):
        corvex.walk_forward(found, **{"train": "2YE", "test": "1YE", **changed})


def test_sweeps_that_cannot_be_walked_are_told(tmp_path):
    table = prices()
    for more, text in (
        ({"keep": "figures"}, "ask for keep='curves'"),
        ({"options": {"start": ["2015-01-02", "2016-01-04"]}}, "several spans"),
        ({"options": {"trail_stop": [None, 0.1]}}, "let where pick one of its values: None, 0.1"),
    ):
        found = swept(table, [5], **more)
        with pytest.raises(ValueError, match=text):
            corvex.walk_forward(found, "2YE", "1YE")
    walk = corvex.walk_forward(found, "2YE", "1YE", where={"trail_stop": 0.1})
    assert walk.report.trail_stop == 0.1
    rising = lambda prices, inside: prices > prices.shift(inside)  # noqa: E731
    named = corvex.sweep(rising, table, signal={"inside": [5, 9]}, keep="curves", market="us_stock")
    with pytest.raises(ValueError, match="a parameter is called 'inside', as a column of choices"):
        corvex.walk_forward(named, "2YE", "1YE")
    swept(table, [5], store=tmp_path / "runs")
    with pytest.raises(ValueError, match="no strategy"):
        corvex.walk_forward(corvex.open_sweep(tmp_path / "runs"), "2YE", "1YE")


def test_page_marks_the_windows_and_tells_what_they_chose(tmp_path):
    hostile = "</script><script>alert(1)</script>"
    found = swept(prices(), options={"resample": {hostile: "ME"}})
    walk = corvex.walk_forward(found, "2YE", "1YE", choose=lambda table: table["cagr"])
    walk.to_html(tmp_path / "walk.html", "walked")
    text = (tmp_path / "walk.html").read_text(encoding="utf-8")
    assert "<title>walked</title>" in text
    assert "<script>alert" not in text
    facts = json.loads(
        re.search(r'<script type="application/json" id="facts">(.*?)</script>', text, re.S)[1]
    )
    told = facts["walk"]
    assert (told["choose"], told["parameters"]) == (None, ["lookback", "resample"])
    assert (told["efficiency"], told["stability"]) == (walk.efficiency, walk.stability)
    rows = [(row["test_start"], row["chosen"], row["outside"]) for row in told["windows"]]
    assert rows == [
        (f"{row.test_start:%Y-%m-%d}", [str(row.lookback), hostile], row.outside)
        for row in walk.choices.itertuples()
    ]
    corvex.save(walk.report, tmp_path / "walk.corvex")
    assert corvex.load(tmp_path / "walk.corvex").walk_windows == walk.report.walk_windows
