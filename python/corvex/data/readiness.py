"""The readiness record of a report: what its data was, and up to when it is fresh."""

from __future__ import annotations

import datetime
from collections.abc import Mapping
from typing import Any

from corvex.data.expiry import freshness
from corvex.market import Market
from corvex.tables.context import in_utc
from corvex.tables.context import now as present

__all__ = ["readiness_record", "snapshot_is_ready"]


def readiness_record(
    market: Market, *, historical: bool = False, now: datetime.datetime | None = None
) -> dict[str, Any]:
    """Describe the data that a report of this market was made from.

    Parameters
    ----------
    market : Market
        A market bound to tables is described by these; any other by its tables read so far.
    historical : bool, default False
        Whether the run was given an end date, so that it is not to be traded on.
    now : datetime, optional
        Aware; the present when not given.

    Returns
    -------
    dict
        JSON-ready, all times ISO-8601 in UTC: ``reason`` ("historical_backtest", "no_data",
        "stale" or "fresh"), ``market``, ``checked_at``, ``expires_at`` (the earliest, or None) and
        ``tables``: a list of ``name``, ``last_date`` (as the table has it), ``expires_at``,
        ``fresh``.
    """
    moment = in_utc(now or present())
    found = freshness(market)
    tables = [
        {
            "name": table.name,
            "last_date": table.last_date.isoformat(),
            "expires_at": table.expires_at.isoformat(),
            "fresh": moment < table.expires_at,
        }
        for table in found
    ]
    expires_at = min((table.expires_at for table in found), default=None)
    return {
        "reason": _reason(historical, tables),
        "market": market.get_name(),
        "checked_at": moment.isoformat(),
        "expires_at": None if expires_at is None else expires_at.isoformat(),
        "tables": tables,
    }


def snapshot_is_ready(
    readiness: Mapping[str, Any] | None, now: datetime.datetime | None = None
) -> bool:
    """Tell whether the data that a readiness record describes may be traded on.

    Parameters
    ----------
    readiness : mapping or None
        As `readiness_record` makes it.
    now : datetime, optional
        Aware; the present when not given.

    Returns
    -------
    bool
        True while `now` is before ``expires_at``. False without a record or without that time
        (nothing is known), and for a historical backtest, whatever the times say.
    """
    if not readiness or readiness.get("reason") == "historical_backtest":
        return False
    expires_at = readiness.get("expires_at")
    if not isinstance(expires_at, str):
        return False
    moment = in_utc(now or present())
    return moment < datetime.datetime.fromisoformat(expires_at)


def _reason(historical: bool, tables: list[dict[str, Any]]) -> str:
    if historical:
        return "historical_backtest"
    if not tables:
        return "no_data"
    return "fresh" if all(table["fresh"] for table in tables) else "stale"
