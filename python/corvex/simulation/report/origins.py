"""What reports of this process were made of, as long as they live.

A report's own attributes travel in its files; a plan does not: who reads a file has no use for it.
"""

from __future__ import annotations

import weakref
from typing import TYPE_CHECKING

import pandas as pd

from corvex.markets.bound import BoundMarket
from corvex.markets.stamps import has_dates_only
from corvex.simulation.options import Options
from corvex.simulation.plan.plan import Plan
from corvex.simulation.read.price_data import PriceData, read_prices
from corvex.simulation.read.price_tables import TradeAt

if TYPE_CHECKING:
    from corvex.accounts import Account
    from corvex.core.report import Report

__all__ = ["Origin", "note_origin", "origin_of"]


class Origin:
    """The plan of a run, and how it was traded.

    Attributes
    ----------
    plan, options, trade_at
        As `corvex.simulation.run.run_plan` takes them.
    sessions : DatetimeIndex
        The sessions on which the plan stands.
    ends : bool
        Whether the run was cut off at its last session.
    account : Account or None
        What it kept an account by.
    """

    def __init__(
        self,
        plan: Plan,
        options: Options,
        trade_at: TradeAt,
        sessions: pd.DatetimeIndex,
        ends: bool,
        account: Account | None = None,
    ) -> None:
        self.plan = plan
        self.options = options
        self.trade_at = trade_at
        self.sessions = sessions
        self.ends = ends
        self.account = account

    def prices(self, report: Report) -> PriceData | None:
        """Read the prices of the run from the report's market anew: they are kept but once.

        None where the market is not the run's, whose tables stay as they were.
        """
        if not isinstance(report.market, BoundMarket):
            return None
        # Beside bars within the day a midnight would stand for its whole day.
        beside = pd.Timedelta(0 if has_dates_only(self.sessions) else 1, "ns")
        found = read_prices(
            None,
            self.plan.labels,
            market=report.market,
            start=self.sessions[0] - beside,
            end=self.sessions[-1] + beside if self.ends else None,
        )
        return found if found.clock.index.equals(self.sessions) else None


_ORIGINS: weakref.WeakKeyDictionary[Report, Origin] = weakref.WeakKeyDictionary()


def note_origin(report: Report, origin: Origin) -> None:
    """Remember what a report was made of."""
    _ORIGINS[report] = origin


def origin_of(report: Report) -> Origin | None:
    """Return what a report was made of; None for one that was not simulated in this process."""
    return _ORIGINS.get(report)
