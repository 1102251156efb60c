"""What each asset brought: its trades, and its exact part of the return."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, cast

import pandas as pd

from corvex.core.dashboard.figures.trade_series import asset_column, figures_by, floats
from corvex.tables.context import _default_context

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["by_asset"]


def by_asset(report: Report, count: int = 10) -> dict[str, Any] | None:
    """Return the assets that gained and lost most, so that the parts add up to the return.

    Parameters
    ----------
    count : int
        So many from either end; the others are one row together.

    Returns
    -------
    dict or None
        ``rows`` of ``asset``, ``trades`` and ``win_rate``, ``mean`` return (None of an asset
        without a trade that has one) and ``sum``, the part of the return in units of the first
        equity; ``others`` (their ``count`` and ``sum``), ``costs``, ``interest`` of a run that kept
        an account, what else moved the equity
        (``rest``, None where nothing did) and ``total``; ``estimated`` where the report keeps no
        fills. Of an account with several currencies ``currency`` is what the rates brought of the
        total, and in each row and in ``others`` of their ``sum``; else it is None, and not there.
        Without prices in the market ``total`` is None, there are no sums, and the assets
        with most trades are shown. None without trades.
    """
    from corvex.explain.attribution import (  # it needs the simulation, which needs the report
        COSTS,
        INTEREST,
        OTHER,
    )

    trades = _summed(report.trades)
    if trades is None:
        return None
    parts = _contributions(report)
    if parts is None:
        rows = [_row(label, trades, None) for label in list(trades)[: 2 * count]]
        return {"rows": rows, "total": None}
    extra = [label for label in parts.index[-3:] if label in (INTEREST, OTHER, COSTS)]
    assets = parts.iloc[: len(parts) - len(extra)]
    labels = list(assets.index)  # largest first
    few = len(labels) <= 2 * count
    shown, rest = (labels, []) if few else (labels[:count] + labels[-count:], labels[count:-count])
    moved = _currencies(report)

    def of_currency(labels: list[Any]) -> dict[str, float]:
        return {} if moved is None else {"currency": float(moved.reindex(labels).sum())}

    return {
        "rows": [
            _row(label, trades, float(assets[label])) | of_currency([label]) for label in shown
        ],
        "others": {"count": len(rest), "sum": float(assets[rest].sum()), **of_currency(rest)}
        if rest
        else None,
        "costs": float(parts[COSTS]),
        "interest": float(parts[INTEREST]) if INTEREST in extra else None,
        "rest": float(parts[OTHER]) if OTHER in extra else None,
        "total": float(parts.sum()),
        "currency": None if moved is None else float(moved.sum()),
        "estimated": bool(parts.attrs.get("estimated")),
    }


def _summed(trades: pd.DataFrame) -> dict[str, dict[str, Any]] | None:
    """Describe the trades of each asset that have a return, by its label."""
    if not {asset_column(trades), "return"} <= set(trades.columns):
        return None
    known = trades[trades["return"].notna()]
    return figures_by(known[asset_column(known)], floats(known["return"])) if len(known) else None


def _contributions(report: Report) -> pd.Series | None:
    """Return the parts of the return by label, the costs last; None where they are unknown."""
    from corvex.explain.attribution import contributions

    loaded = set(_default_context._loaded_datasets)
    with _default_context.override(_loaded_datasets=loaded):
        try:
            parts = contributions(report)
        except (LookupError, ValueError):  # a market without prices of the assets
            return None
    assert isinstance(parts, pd.Series)
    parts = parts.set_axis(pd.Index([str(label) for label in parts.index], dtype=object))
    return parts if parts.index.is_unique else None


def _currencies(report: Report) -> pd.Series | None:
    """Return what of each asset's part the moves of exchange rates brought, by label."""
    from corvex.explain.attribution import contributions

    if getattr(report, "fx", None) is None:
        return None
    kinds = cast("pd.DataFrame", contributions(report, by_kind=True))
    return kinds["currency"].set_axis([str(label) for label in kinds.index])


def _row(label: str, trades: dict[str, dict[str, Any]], part: float | None) -> dict[str, Any]:
    known = trades.get(label, {"trades": 0, "win_rate": None, "mean": None})
    return {"asset": label, **known, "sum": part}
