"""The orders that bring an account to its target weights."""

from __future__ import annotations

import math
from collections.abc import Mapping
from datetime import datetime
from decimal import Decimal
from typing import TYPE_CHECKING, Any

import pandas as pd

from corvex.ordering.inputs import chosen_weights, matched, one_execution, quantities, unit_prices
from corvex.ordering.sizing import Asset, Costs, cash_after, size
from corvex.tables.asset_labels import asset_id, asset_name

if TYPE_CHECKING:
    from corvex.core.report import Report, ReportExecution
    from corvex.market import Market
    from corvex.tables.frames import TableInput

__all__ = ["ORDER_COLUMNS", "orders"]

#: Column of the order table -> its meaning.
ORDER_COLUMNS: dict[str, str] = {
    "asset_id": "the asset's id: its label up to the first blank",
    "asset_name": "the rest of the label, or an empty text",
    "side": '"sell" or "buy"',
    "quantity": "how much to trade, positive",
    "lots": "whole board lots in it",
    "odd_quantity": "what is over, for the odd-lot book",
    "price": "the price that was given",
    "value": "quantity x price",
    "fee": "commission of the order",
    "tax": "tax of the order",
    "weight": "target weight, as a fraction of the capital; negative: short",
    "held": "quantity before the order; negative: short",
    "target": "quantity after it",
    "lowest_price": "lowest price at which the next session takes orders; None: no limit",
    "highest_price": "highest one",
    "cash_after": "cash once this order and those above it are filled at their price",
}

_TEXTS = ["asset_id", "asset_name", "side"]
_COUNTABLE = 2.0**53  # from here on a float skips whole numbers
_LIMITS = ["lowest_price", "highest_price"]


def orders(
    execution: ReportExecution | Report,
    capital: float,
    prices: TableInput | pd.Series | Mapping[Any, float] | None,
    held: pd.Series | Mapping[Any, float] | None = None,
    *,
    now: datetime | None = None,
    odd_lots: bool = True,
    fee_ratio: float | None = None,
    tax_ratio: float | None = None,
    min_fee: float | None = None,
) -> pd.DataFrame:
    """Turn target weights into orders of whole shares.

    Parameters
    ----------
    execution : ReportExecution or Report
        Its next weights count when `ReportExecution.uses_next_weights` says so, else the current
        ones; both times `total_weight`.
    capital : float
        What the account is worth before the orders: its cash, plus what is held at `prices`
        (shorts counted negative). In the market's currency.
    prices : Series, mapping, table or None
        The last close of each asset, as quoted (not adjusted), by label or id; of a table dates x
        assets the last row. None: the market's own closes. They must be there for every asset
        with a weight or a holding.
    held : Series or mapping, optional
        Quantity of each asset in the account, negative for shorts. What has no weight is sold.
        Nothing is held by default.
    now : datetime, optional
        The moment that decides which weights count; a naive one is local time. The present by
        default.
    odd_lots : bool, default True
        Trade in steps of the market's `quantity_step`; False: whole board lots (`lot_size`) only.
    fee_ratio, tax_ratio, min_fee : float, optional
        Costs. By default those that the report was made with, of an execution those of its market.

    Returns
    -------
    DataFrame
        One row per order, sales first, each side by falling value; `ORDER_COLUMNS` explains the
        columns. ``to_dict(orient="records")`` passes `json.dumps`. Its ``attrs`` hold ``cash``
        (left over once all is filled), ``costs`` and ``capital`` (after the costs).

    Raises
    ------
    ValueError
        When a price is missing, an asset is named twice, `capital` is not a positive number, or
        an argument is of another form.

    Notes
    -----
    Quantities are rounded towards zero, and weights apply to the capital after the costs, so the
    cash is never negative as long as the weights sum to at most 1. With the quantities reached
    there is nothing more to trade: an asset less than a step below its target, give or take what
    trading one step of everything costs, is left alone. Orders that cross zero close one side and
    open the other at once.
    """
    state = one_execution(execution)
    market = state.market
    weights = chosen_weights(state, now)
    report = execution if state is not execution else None
    costs = Costs(
        _cost("fee_ratio", fee_ratio, report, market),
        _cost("tax_ratio", tax_ratio, report, market),
        _cost("min_fee", min_fee, report, market),
    )
    amount = _positive(capital, "capital")
    step = float(getattr(market, "quantity_step" if odd_lots else "lot_size", 1.0))
    assets = _assets(weights, unit_prices(prices, market), quantities(held), step)
    targets = size(assets, amount, costs)
    _refuse_uncountable(assets, targets, step)
    table = _table(assets, targets, costs, market, step, amount)
    paid = float(table["fee"].sum() + table["tax"].sum())
    cash = cash_after(assets, targets, amount, costs)
    table.attrs = {"cash": cash, "costs": paid, "capital": amount - paid}
    return table


def _positive(value: Any, name: str) -> float:
    number = math.nan if isinstance(value, bool | str) else _as_float(value)
    if not 0 < number < math.inf:
        raise ValueError(f"{name} should be a positive number, got {value!r}")
    return number


def _cost(name: str, given: float | None, report: Any, market: Market) -> float:
    """Return what was given, else what the report was made with, else the market's."""
    value = getattr(report, name, getattr(market, name, 0.0)) if given is None else given
    number = _as_float(value)
    if not 0 <= number < math.inf:
        raise ValueError(f"{name} should be a number from 0 on, got {value!r}")
    return number


def _as_float(value: Any) -> float:
    try:
        return float(value)
    except (TypeError, ValueError, OverflowError):
        return math.nan


def _assets(
    weights: pd.Series, prices: dict[str, float], held: dict[str, float], step: float
) -> list[Asset]:
    wanted = {str(label): float(weight) for label, weight in weights.items()}
    owned = matched(wanted, held, "held")
    needed = [label for label in [*owned, *wanted] if wanted.get(label, 0.0) != 0 or label in owned]
    needed = list(dict.fromkeys(needed))
    quotes = matched(needed, prices, "prices")
    missing = [label for label in needed if label not in quotes]
    if missing:
        raise ValueError(f"there is no usable price of: {', '.join(missing)}")
    return [
        Asset(
            label,
            wanted.get(label, 0.0),
            quotes[label] * step,
            quotes[label],
            _in_steps(owned.get(label, 0.0), step),
        )
        for label in needed
    ]


def _refuse_uncountable(assets: list[Asset], targets: list[float], step: float) -> None:
    for asset, target in zip(assets, targets, strict=True):
        largest = math.hypot(target, asset.held)
        if not largest <= _COUNTABLE:
            raise ValueError(
                f"{largest * step:.3g} of {asset.label!r} is more than can be counted in steps of "
                f"{step:g}; is the capital, or the holding, in the right unit?"
            )


def _in_steps(quantity: float, step: float) -> float:
    steps = quantity / step
    whole = float(round(steps))
    return whole if math.isclose(steps, whole, rel_tol=1e-12, abs_tol=1e-6) else steps


def _exact(steps: float, step: float) -> Decimal:
    """Return steps as a quantity: 0.3, not 0.30000000000000004."""
    return Decimal(repr(steps)) * Decimal(repr(step))


def _table(
    assets: list[Asset],
    targets: list[float],
    costs: Costs,
    market: Market,
    step: float,
    capital: float,
) -> pd.DataFrame:
    rows = [
        _order(asset, target, costs, market, step)
        for asset, target in zip(assets, targets, strict=True)
        if target != asset.held
    ]
    rows.sort(key=lambda row: (row["side"] == "buy", -row["value"], row["asset_id"]))
    cash = capital - sum(asset.held * asset.price for asset in assets)
    for row in rows:
        cash += row["value"] * (1 if row["side"] == "sell" else -1) - row["fee"] - row["tax"]
        row["cash_after"] = cash
    table = pd.DataFrame(rows, columns=list(ORDER_COLUMNS))
    numbers = [name for name in ORDER_COLUMNS if name not in _TEXTS + _LIMITS]
    kinds = dict.fromkeys(numbers, "float64") | {"lots": "int64"}
    # None, not NaN, which JSON has no word for.
    return table.astype(kinds).astype(dict.fromkeys(_LIMITS, object))


def _order(
    asset: Asset, target: float, costs: Costs, market: Market, step: float
) -> dict[str, Any]:
    change = target - asset.held
    quantity = _exact(abs(change), step)
    value = abs(change) * asset.price
    lots, odd = divmod(quantity, Decimal(repr(float(getattr(market, "lot_size", 1.0)))))
    price_range = getattr(market, "price_range", lambda _: None)(asset.quote)
    return {
        "asset_id": asset_id(asset.label),
        "asset_name": asset_name(asset.label),
        "side": "buy" if change > 0 else "sell",
        "quantity": float(quantity),
        "lots": int(lots),
        "odd_quantity": float(odd),
        "price": asset.quote,
        "value": value,
        "fee": costs.fee(value),
        "tax": costs.tax(value, sale=change < 0),
        "weight": asset.weight,
        "held": float(_exact(asset.held, step)),
        "target": float(_exact(target, step)),
        "lowest_price": price_range[0] if price_range else None,
        "highest_price": price_range[1] if price_range else None,
    }
