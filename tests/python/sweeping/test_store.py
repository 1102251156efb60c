"""The folder of a sweep: what is there is not run again, and what does not belong is refused."""

import numpy as np
import pandas as pd
import pyarrow.dataset as pads
import pytest

import corvex
from corvex.sweeping.digest import digest
from corvex.sweeping.grid import Grid, RunFinder, read_space

CALLS = []


def prices(count=200):
    draw = np.random.default_rng(3)
    dates = pd.bdate_range("2021-01-04", periods=count, tz="Asia/Taipei")
    return pd.DataFrame(100 * np.exp(draw.normal(0, 0.02, (count, 3)).cumsum(axis=0)), dates,
                        ["1101", "2330", "2317"])  # fmt: skip


def strategy(prices, lookback, scale=1.0):
    CALLS.append(lookback)
    if lookback == 13:
        raise RuntimeError("unlucky")
    return (prices.pct_change(lookback, fill_method=None) > 0) * scale / 3


def swept(folder, lookbacks, **more):
    CALLS.clear()
    options = {"trail_stop": [None, 0.1], "resample": ["W", "ME"]}
    arguments = {"market": "tw_stock", "options": options, **more}
    table = arguments.pop("prices", prices())
    function = arguments.pop("strategy", strategy)
    return corvex.sweep(function, table, signal={"lookback": lookbacks}, store=folder, **arguments)


def assert_same(one, other):
    columns = [name for name in one.figures.columns if name != "seconds"]
    pd.testing.assert_frame_equal(one.figures[columns], other.figures[columns], check_exact=True)
    pd.testing.assert_frame_equal(one.curves, other.curves, check_exact=True, check_freq=False)
    assert one.trials_statistics.overfitting == other.trials_statistics.overfitting


def test_a_second_call_runs_what_is_missing(tmp_path):
    folder = tmp_path / "deep" / "runs"
    whole = swept(None, [3, 5, 8], keep="curves")
    swept(folder, [5], keep="curves")
    assert CALLS == [5]
    found = swept(folder, [3, 5, 8], keep="curves")
    assert CALLS == [3, 8]
    assert_same(found, whole)
    again = swept(folder, [3, 5, 8], keep="curves")
    assert CALLS == []
    assert_same(again, whole)
    opened = corvex.open_sweep(folder)
    order = np.argsort(opened.figures.reset_index()["lookback"].to_numpy(), kind="stable")
    assert opened.figures["cagr"].iloc[order].tolist() == whole.figures["cagr"].tolist()
    assert opened.curves.iloc[:, order].equals(whole.curves)
    assert opened.trials_statistics.trials == 12
    with pytest.raises(ValueError, match="has no strategy to run again"):
        opened.report(lookback=3, trail_stop=None, resample="W")
    # Any reader of Parquet folders reads them, and parameters of a wider type join the others.
    with pytest.warns(UserWarning, match="2 of 2 runs failed"):
        swept(folder, [3, 4.5], keep="curves", options={"trail_stop": ["no"], "resample": ["W"]})
    table = pads.dataset(folder / "runs").to_table().to_pandas()
    assert len(table) == 14
    assert table["cagr"].notna().sum() == 12  # no stop is called "no"
    assert set(table["trail_stop"].dropna()) == {"0.1", "no"}


def test_a_half_written_file_and_a_failed_run_are_run_again(tmp_path):
    with pytest.warns(UserWarning, match="4 of 8 runs failed"):
        swept(tmp_path, [3, 13])
    part = next((tmp_path / "runs").iterdir())
    (tmp_path / "runs" / "part-later.parquet").write_bytes(part.read_bytes()[:-200])
    with pytest.warns(UserWarning, match="4 of 8 runs failed"):
        found = swept(tmp_path, [3, 13])
    assert CALLS == [13]
    assert len(found.errors) == 4
    assert len(corvex.open_sweep(tmp_path)) == 8
    (dates,) = (tmp_path / "sessions").iterdir()
    dates.write_bytes(dates.read_bytes()[:-200])  # runs without dates are of no use
    assert len(corvex.open_sweep(tmp_path)) == 4
    assert swept(tmp_path, [3]).trials_statistics.trials == 4
    assert CALLS == [3]
    assert len(corvex.open_sweep(tmp_path)) == 8


@pytest.mark.parametrize(
    ("changed", "text"),
    [
        ({"fee_ratio": 0.002}, r"fee_ratio \(0.001 there, 0.002 now\) differs"),
        ({"prices": prices(150)}, "another sweep: prices differs"),
        ({"strategy": lambda prices, lookback: prices > lookback}, "strategy differs"),
        ({"keep": "curves", "riskfree_rate": 0.0}, "keep .*riskfree_rate .* differ;"),
        ({"leverage": True}, "leverage differs"),
        ({"options": {"stop_loss": [0.1]}}, "the parameters"),
    ],
)
def test_another_sweep_is_refused(tmp_path, changed, text):
    given = {"fee_ratio": 0.001}
    swept(tmp_path, [3], **given)
    with pytest.raises(ValueError, match=text):
        swept(tmp_path, [3], **{**given, **changed})
    swept(tmp_path, [3], fee_ratio=np.float64(0.001))  # the same number
    assert CALLS == []


def test_folders_that_hold_something_else_are_left_alone(tmp_path):
    (tmp_path / "thesis.txt").write_text("dear")
    with pytest.raises(ValueError, match="holds no sweep; name another"):
        swept(tmp_path, [3])
    with pytest.raises(ValueError, match="holds no sweep"):
        corvex.open_sweep(tmp_path)
    (tmp_path / "manifest.json").write_text("{")
    with pytest.raises(ValueError, match="no manifest of a sweep"):
        corvex.open_sweep(tmp_path)
    with pytest.raises(ValueError, match="needs market="):
        corvex.sweep(strategy, signal={"lookback": [3]}, store=tmp_path / "new")


def test_what_a_strategy_holds_is_part_of_it(tmp_path):
    def made(limit):
        def inner(prices, lookback):
            return (prices > limit) * 0.1

        return inner

    swept(tmp_path, [3], strategy=made(5))
    swept(tmp_path, [3], strategy=made(5))
    with pytest.raises(ValueError, match="strategy differs"):
        swept(tmp_path, [3], strategy=made(6))
    code = compile(
        "def rule(prices):\n    return [one < LIMIT for one in map(abs, prices)]", "", "exec"
    )
    rules = []
    for limit in (5, 6):
        space = {"__name__": "own", "LIMIT": limit}
        exec(code, space)
        rules.append(digest(space["rule"]))
    assert rules[0] != rules[1]


def test_how_values_are_nested_and_repeated_is_part_of_them():
    one, other = [1], [2]
    forms = [[[1], 2], [[1, 2]], [[1, 2], []], [one, other, one], [one, other, other]]
    assert len({digest(form) for form in forms}) == len(forms)
    table = prices(9)
    assert digest([table, table]) == digest([table, table.copy()])


def test_a_length_of_months_is_read_back_from_a_folder(tmp_path):
    lengths = [pd.DateOffset(months=1), pd.offsets.MonthEnd(2)]

    def since(prices, length):
        return prices > prices.reindex(prices.index - length, method="ffill").to_numpy()

    corvex.sweep(since, prices(), signal={"length": lengths}, market="tw_stock", store=tmp_path)
    read = corvex.open_sweep(tmp_path).labels["length"]
    assert read == ["<DateOffset: months=1>", lengths[1]]


def test_fingerprints_of_tables_tell_each_value_label_and_date_every_time():
    table = prices(30)
    tables = {"close": table, "high": table.to_numpy() * 1.01, "mixed": table.assign(name="x")}
    first = digest(tables)
    others = []
    for place in range(len(table)):
        assert digest({name: one.copy() for name, one in tables.items()}) == first
        changed = table.copy()
        changed.iloc[place, place % 3] += 1e-9
        others.append(digest({**tables, "close": changed}))
    others.append(digest({**tables, "close": table.rename(columns={"2330": "2331"})}))
    others.append(digest({**tables, "close": table.set_axis(table.index.tz_convert("UTC"))}))
    others.append(digest({**tables, "mixed": table.assign(name="y")}))
    assert len({first, *others}) == len(others) + 1


def test_the_texts_of_a_product_are_those_of_its_rows():
    values = {"b": [1, 2.0, 1, None], "a": ["x", "y", "x"], "c": [float("nan"), (1, 2)]}
    whole, rows = (
        Grid(read_space(space, "signal"), read_space({"o": [0.1, 0.1]}, "options"))
        for space in (values, list(read_space(values, "signal")))
    )
    assert list(whole.keys()) == list(rows.keys()) == [whole.key(run) for run in range(48)]
    for for_good in (True, False):
        first = rows.first_alike(for_good=for_good)
        assert whole.first_alike(for_good=for_good).tolist() == first.tolist()
    assert len(set(first)) == 12
    wanted = first == np.arange(48)
    keys = [whole.key(run) for run in (0, 5, 47)]
    assert RunFinder(whole, wanted).find([*keys, "other"]).tolist() == [*first[[0, 5, 47]], -1]
