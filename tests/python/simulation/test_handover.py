"""What a report says about now and next, in each situation."""

import pandas as pd
import pytest

import corvex


def state(report) -> tuple:
    """Weights, next weights and actions with their names, in short."""
    return (
        report.weights.to_dict(),
        report.weights.name,
        report.next_weights.to_dict(),
        report.next_weights.name,
        report.actions.to_dict(),
        report.planned_rebalance_date,
    )


@pytest.fixture
def falling(days) -> pd.DataFrame:
    """AAA falls by a fifth on the last day, BBB rises by a third."""
    return pd.DataFrame({"AAA": [100.0] * 7 + [80], "BBB": [30.0] * 7 + [40]}, index=days)


def test_all_filled(days, prices, weights_on):
    report = corvex.simulate(weights_on({0: (1.0, 0.0), 2: (0.5, 0.5)}), prices)

    both = {"AAA": 0.5, "BBB": 0.5}
    holding = {"AAA": "hold", "BBB": "hold"}
    assert state(report) == (both, days[2], both, days[2], holding, None)
    assert report.current_rebalance_date == report.next_rebalance_date == days[2]


def test_signalled_and_not_filled(days, prices, weights_on):
    report = corvex.simulate(weights_on({0: (1.0, 0.0), 7: (0.0, 1.0)}), prices)

    turned = corvex.simulate(weights_on({0: (1.0, 0.0), 7: (-1.0, 0.0)}), prices)

    assert turned.actions.to_dict() == {"AAA": "enter"}
    actions = {"AAA": "exit", "BBB": "enter"}
    assert state(report) == ({"AAA": 1.0}, days[0], {"BBB": 1.0}, days[7], actions, None)
    leaving, entering = report.trades.to_dict("records")
    assert leaving["exit_sig_date"] == entering["entry_sig_date"] == days[7]
    assert pd.isna(leaving["exit_date"])
    assert pd.isna(entering["entry_date"])
    assert leaving["return"] == pytest.approx(0.21)
    assert pd.isna(entering["return"])


def test_nothing_filled_yet(days, prices, weights_on):
    report = corvex.simulate(weights_on({7: (1.0, 0.0)}), prices)

    assert state(report) == ({}, None, {"AAA": 1.0}, days[7], {"AAA": "enter"}, None)
    assert report.creturn.to_dict() == {days[7]: 1.0}


@pytest.mark.parametrize(
    ("resample", "planned"),
    [
        ("W", "2024-01-12"),
        ("W-THU", None),
        ("ME", "2024-01-31"),
        ("QE", "2024-03-28"),  # the 29th is Good Friday
        (["2024-01-02", "2024-02-03"], "2024-02-03"),  # a Saturday
        (["2024-01-02", "2024-01-11"], None),
        ("D", None),
    ],
)
def test_a_running_period(days, prices, weights_on, resample, planned):
    weights = weights_on({0: (1.0, 0.0), 6: (0.0, 1.0)})

    report = corvex.simulate(weights, prices, resample=resample)

    next_date = days[7] if planned is None else pd.Timestamp(planned)
    assert report.next_weights.to_dict() == {"BBB": 1.0}
    assert report.next_weights.name == report.next_rebalance_date == next_date
    assert report.planned_rebalance_date == (None if planned is None else next_date)
    # What is planned is not signalled: no trade rows.
    signalled = (report.trades[["entry_sig_date", "exit_sig_date"]] > days[7]).any(axis=None)
    assert not signalled


def test_a_holiday_ends_a_period_early():
    # Taiwan does not trade from Tuesday 2024-02-06 on for the new year.
    days = pd.bdate_range("2024-01-29", "2024-02-05")
    weights = pd.DataFrame({"2330": [1.0]}, index=days[:1])

    prices = pd.DataFrame({"2330": 1.0}, index=days)
    report = corvex.simulate(weights, prices, resample="W", market="tw_stock")

    assert report.planned_rebalance_date is None
    assert report.next_weights.name == days[-1]
    assert report.next_trading_date == pd.Timestamp("2024-02-15")


def test_a_stop_that_fired(days, falling, weights_on):
    weights = weights_on({0: (0.5, 0.5)})
    stops = {"stop_loss": 0.1, "take_profit": 0.3}

    between = corvex.simulate(weights, falling, **stops)
    with_signal = corvex.simulate(weights, falling, **stops, resample=[days[0], days[7]])
    planned = corvex.simulate(weights, falling, **stops, resample="W")
    trailing = corvex.simulate(weights, falling, trail_stop=0.1)

    held = {"AAA": 0.5, "BBB": 0.5}
    assert state(between) == ({}, days[0], {}, days[0], {"AAA": "sl", "BBB": "tp"}, None)
    assert state(with_signal) == (
        {}, days[0], held, days[7], {"AAA": "sl_", "BBB": "tp_"}, None
    )  # fmt: skip
    assert planned.actions.to_dict() == {"AAA": "sl", "BBB": "tp"}
    assert planned.next_weights.to_dict() == held
    assert trailing.actions.to_dict() == {"AAA": "sl", "BBB": "hold"}
    assert between.is_stop_triggered()
    assert between.trades.exit_sig_date.tolist() == [days[7]] * 2
    assert between.trades.exit_date.isna().all()
    assert between.trades.exit_reason.tolist() == ["stop_loss", "take_profit"]


def test_a_stopped_asset_sits_out_the_rebalances_of_its_cooldown(days, falling, weights_on):
    earlier = falling.shift(-3).ffill()  # the stop fires on day 4
    weights, both = weights_on({0: (0.5, 0.5)}), {"AAA": 0.5, "BBB": 0.5}

    def run(cooldown, *rebalances):
        return corvex.simulate(
            weights, earlier, stop_loss=0.1, stop_cooldown=cooldown, resample=[days[0], *rebalances]
        )

    assert state(run(1, days[7]))[2] == {"BBB": 0.5}
    assert state(run(1, "2024-02-01"))[2] == {"BBB": 0.5}
    assert state(run(1, days[5], days[7]))[0:3:2] == ({"BBB": 0.5}, both)
    assert run(2, days[5], days[7]).next_weights.to_dict() == {"BBB": 0.5}
    # With the rebalance that fills together with the stop, only the difference is traded.
    netted = run(0, days[4])
    assert netted.weights.to_dict() == both
    assert netted.trades.exit_reason.tolist() == ["stop_loss", "", ""]
    assert netted.fills.symbol.tolist() == ["AAA", "BBB", "AAA", "BBB"]
    for cooldown in (-1, 0.5, True):
        with pytest.raises(ValueError, match="stop_cooldown must be a number of rebalances"):
            run(cooldown)


def test_a_filled_stop_leaves_no_action(days, falling, weights_on):
    earlier = falling.shift(-1).ffill()
    weights = weights_on({0: (0.5, 0.5)})

    report = corvex.simulate(weights, earlier, stop_loss=0.1)
    planned = corvex.simulate(weights, earlier, stop_loss=0.1, resample=[days[0], "2024-02-01"])

    assert state(report) == ({"BBB": 0.5}, days[0], {"BBB": 0.5}, days[0], {"BBB": "hold"}, None)
    assert planned.actions.to_dict() == {"AAA": "enter", "BBB": "hold"}


def test_no_weights_at_all(days, prices, weights_on):
    with pytest.warns(UserWarning, match="nothing is traded"):
        report = corvex.simulate(weights_on({0: (0.0, 0.0)}), prices)

    assert state(report) == ({}, None, {}, None, {}, None)
    assert report.creturn.tolist() == [1.0] * 8
    assert len(report.trades) == 0
    assert report.get_stats()["win_ratio"] == 0
