"""The call of the engine's simulator."""

from __future__ import annotations

from typing import TYPE_CHECKING, Literal

import numpy as np

from corvex import _engine
from corvex.simulation.options import Options
from corvex.simulation.plan.schedule import Schedule
from corvex.simulation.read.price_tables import PriceMatrices, TradeAt

if TYPE_CHECKING:
    from corvex._engine import SimulationResult

__all__ = ["first_session", "run_engine"]


def first_session(schedule: Schedule, fallback: int) -> int:
    """The session where the results start: that of the first signal, or the first one."""
    return max(int(schedule.sessions[0]), 0) if len(schedule) else fallback


def run_engine(
    prices: PriceMatrices, schedule: Schedule, trade_at: TradeAt, options: Options, first: int
) -> SimulationResult:
    """Simulate a schedule on the prices, from session `first` on."""
    fill_at: Literal["close", "open", "other"] = "other"
    if isinstance(trade_at, str) and trade_at in ("close", "open"):
        fill_at = "close" if trade_at == "close" else "open"
    shared = _engine.PriceSet(
        close=prices.close,
        fill_at=fill_at,
        fill=None if fill_at == "close" else prices.fill,
        open=prices.open if options.touched_exit else None,
        high=prices.high if options.touched_exit else None,
        low=prices.low if options.touched_exit else None,
    )
    return _engine.simulate(
        shared,
        np.ascontiguousarray(schedule.targets),
        np.ascontiguousarray(schedule.sessions, dtype=np.int64),
        first_session=first,
        options=options,
        record_fills=True,
    )
