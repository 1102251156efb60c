"""Whole runs, computed by hand."""

import pickle
from unittest import mock

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex import _engine
from corvex.market import Market


def test_a_run_with_all_costs_by_hand(days, prices, weights_on):
    weights = weights_on({0: (1.0, 0.0), 3: (0.0, 0.5)})

    report = corvex.simulate(
        weights, prices, fee_ratio=0.01, tax_ratio=0.02, slippage_ratio=0.05, name="by hand"
    )

    # Bought on day 1 at 100 x 1.05: shares x 105 x 1.01 is all there is, and it is marked at 100.
    shares = 1.0 / (105.0 * 1.01)
    assert report.creturn.iloc[:4].tolist() == pytest.approx(
        [1.0, shares * 100, shares * 110, shares * 121], rel=1e-12
    )
    # Sold on day 4 at 121 x 0.95 with fee and tax; half of what then remains goes into BBB at 40.
    cash = shares * 121 * 0.95 * (1 - 0.01 - 0.02)
    equity = cash / (1 + 0.5 * (0.05 + 0.01 * 1.05))
    assert report.creturn.iloc[4:].tolist() == pytest.approx([equity] * 4, rel=1e-12)
    fees = shares * 105 * 0.01 + shares * 121 * 0.95 * 0.01 + 0.5 * equity * 1.05 * 0.01
    assert report.costs["fees"] == pytest.approx(fees, rel=1e-12)
    assert report.costs["tax"] == pytest.approx(shares * 121 * 0.95 * 0.02, rel=1e-12)
    assert report.costs["total"] == pytest.approx(
        sum(report.costs[kind] for kind in ("fees", "tax", "slippage")), rel=1e-12
    )
    first, second = report.trades.to_dict("records")
    assert first["return"] == pytest.approx(114.95 * 0.97 / (105 * 1.01) - 1, rel=1e-12)
    assert (first["entry_date"], first["exit_date"]) == (days[1], days[4])
    assert (first["entry_sig_date"], first["exit_sig_date"]) == (days[0], days[3])
    assert (first["trade_price@entry_date"], first["trade_price@exit_date"]) == (100.0, 121.0)
    assert second["return"] == pytest.approx(40 / (42 * 1.01) - 1, rel=1e-12)
    assert pd.isna(second["exit_date"])
    assert report.position.loc[days[3]].tolist() == [1.0, 0.0]
    assert report.position.loc[days[4]].tolist() == [0.0, 0.5]
    assert (report.name, report.fee_ratio, report.tax_ratio) == ("by hand", 0.01, 0.02)


def test_what_the_report_carries(days, prices, weights_on):
    report = corvex.simulate(
        weights_on({0: (0.6, -0.4), 4: (-0.5, 0.0)}),
        prices,
        stop_loss=0.5,
        trail_stop=0.6,
        live_performance_start="2024-01-08",
    )

    assert list(report.trades.columns) == [
        "symbol", "entry_date", "exit_date", "entry_sig_date", "exit_sig_date", "position",
        "period", "return", "trade_price@entry_date", "trade_price@exit_date", "mae", "mfe",
        "mfe_before_mae", "max_drawdown", "days_in_profit", "exit_reason",
    ]  # fmt: skip
    # Sorted by signal, then column; a change of sign splits; no hole in a closed trade.
    assert report.trades.symbol.tolist() == ["AAA", "BBB", "AAA"]
    assert report.trades.position.tolist() == [0.6, -0.4, -0.5]
    assert len(report.trades.dropna()) == report.trades.exit_date.notna().sum() == 2
    assert report.get_mae_mfe().columns.tolist() == report.trades.columns[10:15].tolist()
    assert (report.stop_loss, report.take_profit, report.trail_stop) == (0.5, None, 0.6)
    assert report.live_performance_start == days[4]
    assert report.next_trading_date == pd.Timestamp("2024-01-12")
    assert report.current_trades.index.tolist() == ["AAA", "BBB", "AAA"]
    # 0.6 + 0.4 bought, then 1.1 sold or covered at an equity near 1: 2 / 2 in nine days.
    traded = 1.0 + (0.6 * 1.21 + 0.5 * report.creturn.iloc[5] + 0.4 * 0.8) / report.creturn.iloc[5]
    years = (days[-1] - days[0]) / pd.Timedelta(days=365.25)
    assert report.yearly_turnover == pytest.approx(traded / 2 / years, rel=1e-9)


def test_the_market_follows_the_labels(prices):
    table = prices.set_axis(["2330 chips", "00878B"], axis=1)
    with pytest.warns(UserWarning, match="fee_ratio=0.001425 .* are charged; .* market='tw_st"):
        report = corvex.simulate(table.iloc[:1] / table.iloc[0] / 2, table)
    corvex.simulate(table.iloc[:1] / table.iloc[0] / 2, table, fee_ratio=0.0, tax_ratio=0.0)
    assert report.settings["market_chosen"] == "by the labels"
    settings = (report.settings["market"], report.fee_ratio, report.tax_ratio)
    assert settings == ("tw_stock", 0.001425, 0.003)
    with pytest.raises(ValueError, match="no market named 'moon'"):
        corvex.simulate(prices, prices, market="moon")


def test_labels_keep_their_text_and_find_their_prices(prices):
    weights = pd.DataFrame({"BBB co": [0.25], "AAA": [0.5]}, index=prices.index[:1])

    report = corvex.simulate(weights, prices.assign(CCC=1.0).rename(columns={"AAA": "AAA inc"}))

    assert report.weights.to_dict() == {"BBB co": 0.25, "AAA": 0.5}
    for labels in (report.position.columns, report.actions.index, report.trades.symbol):
        assert labels.tolist() == ["BBB co", "AAA"]
    assert report.creturn.iloc[-1] == pytest.approx(0.25 * 0.8 + 0.5 * 1.21 + 0.25)


def test_the_report_answers_from_the_users_prices(days, prices, weights_on):
    report = corvex.simulate(
        weights_on({0: (1.0, 0.0)}), {"Close": prices, "open": prices - 1}, trade_at="open"
    )

    assert report.market.get_price("close") is prices
    assert report.market.get_trading_price("open").equals(prices - 1)
    loaded = pickle.loads(pickle.dumps(report))
    assert loaded.market.get_price("close").columns.tolist() == ["AAA"]
    assert loaded.trades.equals(report.trades)
    assert loaded.settings == report.settings


def test_adjusted_and_quoted_prices(days, prices, weights_on):
    quoted = prices.copy()
    quoted.loc[: days[1], "AAA"] *= 2  # a split after the first two days
    tables = {"close": quoted, "open": quoted * 0.99, "adj_close": prices}
    weights = weights_on({0: (1.0, 0.0), 2: (0.0, 0.0)})

    report = corvex.simulate(weights, tables, trade_at="open")

    plain = corvex.simulate(weights, {"close": prices, "open": prices * 0.99}, trade_at="open")
    pd.testing.assert_series_equal(report.creturn, plain.creturn, rtol=1e-12)
    trade = report.trades.iloc[0]
    assert trade["trade_price@entry_date"] == 198.0
    assert trade["trade_price@exit_date"] == 121 * 0.99


def test_a_price_table_of_ones_own(days, prices, weights_on):
    own = (prices * 1.02).iloc[1:][["BBB", "AAA"]]

    report = corvex.simulate(weights_on({0: (1.0, 0.0)}), prices, trade_at=own)

    assert report.trades["trade_price@entry_date"].tolist() == [102.0]
    assert report.trade_at.columns.tolist() == ["AAA"]
    assert report.settings["trade_at"] == "custom"


def test_a_market_of_ones_own_supplies_the_prices(prices):
    class Village(Market):
        fee_ratio = 0.01

        def get_name(self):
            return "village"

        def get_price(self, name, adj=True):
            return prices if name == "close" else prices.iloc[:0]

    weights = pd.DataFrame({"AAA": [1.0]}, index=prices.index[:1])

    assert corvex.simulate(weights, market=Village()).creturn.iloc[1] == 1 / 1.01
    with pytest.raises(ValueError, match="market 'village' has no 'open' prices"):
        corvex.simulate(weights, market=Village, trade_at="open")
    with pytest.raises(ValueError, match="'UNKNOWN' has weights but no prices"):
        corvex.simulate(weights.rename(columns={"AAA": "UNKNOWN"}), market="us_stock")


def test_start_and_end(days, prices, weights_on):
    weights = weights_on({0: (1.0, 0.0), 6: (0.0, 1.0)})

    report = corvex.simulate(weights, prices, start="2024-01-03", end="2024-01-05")

    # The row in force at the start is the signal of the first session.
    assert report.creturn.to_dict() == pytest.approx(
        {days[1]: 1.0, days[2]: 1.0, days[3]: 1.1}, rel=1e-12
    )
    assert report.trades.entry_sig_date.tolist() == [days[1]]
    assert report.next_weights.to_dict() == {"AAA": 1.0}
    assert report.data_readiness["reason"] == "historical_backtest"
    assert not report.is_tradable()
    assert report.market.get_price("close").index[-1] == days[3]
    assert corvex.simulate(weights, prices).data_readiness["reason"] != "historical_backtest"
    for span in ({"start": "2030-01-01"}, {"start": "2024-01-09", "end": "2024-01-08"}):
        with pytest.raises(ValueError, match=r"no prices for start|lies after end"):
            corvex.simulate(weights, prices, **span)


@pytest.mark.parametrize("late", [0, 3])
@pytest.mark.parametrize("signal", ["2000-01-01", "2024-01-03"])
@pytest.mark.parametrize("fee", [0.0, 0.01])
def test_the_curve_starts_just_before_the_first_fill(days, prices, late, signal, fee):
    """A signal of before the prices, or a price that comes late, stretches no curve."""
    prices.iloc[:late, 0] = np.nan
    signal = pd.Timestamp(signal)
    fill = max(days.searchsorted(signal, side="right"), late)

    report = corvex.simulate(pd.DataFrame({"AAA": [1.0]}, [signal]), prices, fee_ratio=fee)

    assert report.weights.name == signal
    assert report.trades.entry_date.tolist() == [days[fill]]
    before = days[fill - 1] if fill else days[0] - pd.offsets.BDay()  # which a fee needs
    starts = [before] if fill or fee else []
    assert report.creturn.index[:2].tolist() == [*starts, *days[fill:]][:2]
    assert report.creturn.iloc[0] == 1.0
    assert report.creturn[days[fill]] == pytest.approx(1 / (1 + fee))
    assert report.position.iloc[:2, 0].tolist() == ([0.0, 1.0] if starts else [1.0, 1.0])


def test_a_ruined_account_stays_at_zero(days):
    prices = pd.DataFrame({"AAA": [100.0, 100, 150, 220, 100, 90, 90, 90]}, index=days)
    weights = pd.DataFrame({"AAA": [-1.0]}, index=days[:1])

    with pytest.warns(UserWarning, match="fell to zero on 2024-01-05; .* stays at 0"):
        report = corvex.simulate(weights, prices, resample=days[[0, 5]])

    assert report.creturn.loc[days[3] :].eq(0.0).all()
    assert report.trades.exit_reason.tolist() == ["ruin"]
    assert len(report.weights) == len(report.next_weights) == len(report.actions) == 0


@pytest.mark.filterwarnings("ignore:the absolute weights")
def test_the_callers_tables_are_neither_copied_nor_changed(monkeypatch):
    days = pd.bdate_range("2020-01-01", periods=50)
    values = 100.0 + np.arange(200.0).reshape(50, 4)
    prices = pd.DataFrame(values, index=days, columns=list("ABCD"), copy=False)
    weights = pd.DataFrame({"A": [3.0, 1.0], "B": [np.nan, 1.0]}, index=days[[12, 14]])
    copies = weights.copy(), prices.copy()
    engine = mock.Mock(wraps=_engine.PriceSet)
    monkeypatch.setattr(_engine, "PriceSet", engine)

    corvex.simulate(prices.notna(), prices, start=days[10])
    close = engine.call_args.kwargs["close"]
    corvex.simulate(weights, prices, position_limit=0.3)

    assert np.shares_memory(close, values)
    assert close.shape == (40, 4)
    pd.testing.assert_frame_equal(weights, copies[0])
    pd.testing.assert_frame_equal(prices, copies[1])
