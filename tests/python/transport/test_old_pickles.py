"""Reports that older versions saved load, and answer every query."""

import copy
import json
import sys
import types

import pandas as pd
import pytest

from corvex import schemas
from corvex.core.dashboard import generate_html
from corvex.core.report import Report
from corvex.markets.tw import TWMarket

from .reports import report

# What the constructor of today does not set by itself, and what it sets but older ones did not.
OPTIONAL = (
    "name resample current_trades current_rebalance_date next_rebalance_date "
    "planned_rebalance_date mae_mfe data_readiness yearly_turnover costs fills settings "
    "weights next_weights actions trail_stop _execution_override live_performance_start metrics "
    "asset_type"
).split()  # fmt: skip


@pytest.fixture
def old_market(monkeypatch):
    """A market of the class as it was called and where it was once."""
    module = types.ModuleType("corvex.market_info")
    module.TWMarketInfo = type("TWMarketInfo", (TWMarket,), {"__module__": module.__name__})
    monkeypatch.setitem(sys.modules, module.__name__, module)
    return module.TWMarketInfo()


def saved_and_loaded(old, path, monkeypatch):
    old.to_pickle(path)
    monkeypatch.delitem(sys.modules, "corvex.market_info", raising=False)
    return Report.from_pickle(path)


def answers(loaded):
    """Ask everything that a report answers."""
    payload = loaded.to_payload_dict()
    queries = {
        name: getattr(loaded, name)()
        for name in (
            "get_stats get_benchmark_stats get_metrics get_trades next_future_expiry "
            "suggested_tradable_time is_tradable is_rebalance_due "
            "uses_next_weights is_stop_triggered position_info position_info2 format_resample "
            "to_report_dict to_holdings_dict to_text"
        ).split()
    }
    loaded.to_terminal()
    generate_html(loaded)
    return payload, queries


@pytest.mark.parametrize("kind", ["taiwan", "stops"])
def test_a_file_without_optional_attributes_answers_every_query(
    kind, tmp_path, monkeypatch, capsys
):
    old = copy.copy(report(kind))
    for name in OPTIONAL:
        old.__dict__.pop(name, None)
    payload, queries = answers(saved_and_loaded(old, tmp_path / "old.pkl", monkeypatch))
    assert schemas.problems(payload, "report.payload.v1") == []
    json.dumps(payload)
    assert str(queries["get_stats"]) == str(report(kind).get_stats())  # NaN differs from NaN
    assert queries["is_tradable"] is False
    assert payload["holdings"]["positionConfig"]["currentSignalAt"] is None
    pd.testing.assert_frame_equal(queries["get_trades"], report(kind).get_trades())


def test_a_file_with_the_old_class_path_loads(old_market, tmp_path, monkeypatch):
    old = copy.copy(report("taiwan"))
    old.market = old_market
    loaded = saved_and_loaded(old, tmp_path / "old.pkl", monkeypatch)
    assert type(loaded.market) is TWMarket
    payload, queries = answers(loaded)
    assert payload["execution"]["config"]["market"] == "tw_stock"
    assert str(queries["get_stats"]) == str(report("taiwan").get_stats())
