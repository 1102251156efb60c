"""The orders that bring an account to its target weights."""

from __future__ import annotations

import math
from collections.abc import Mapping
from datetime import datetime
from decimal import Decimal
from typing import TYPE_CHECKING, Any

import pandas as pd

from corvex.ordering.inputs import (
    as_float,
    chosen_weights,
    matched,
    one_execution,
    quantities,
    unit_prices,
)
from corvex.ordering.order_terms import read_terms
from corvex.ordering.sizing import Asset, cash_after, size
from corvex.tables.asset_labels import asset_id, asset_name

if TYPE_CHECKING:
    from corvex.accounts import Account
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
    "value": "quantity x price, in the account's currency",
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
    odd_lots: bool | None = None,
    fee_ratio: float | None = None,
    tax_ratio: float | None = None,
    min_fee: float | None = None,
    account: Account | Mapping[str, Any] | None = None,
    fx: Mapping[str, float] | pd.Series | None = None,
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
    odd_lots : bool, optional
        True: trade in steps of the market's `quantity_step`; False: whole board lots (its
        `lot_size`) only. By default in lots of the account where it has them, else as True.
    fee_ratio, tax_ratio, min_fee : float, optional
        Costs. By default those of the account where it has them, else those that the report was
        made with, of an execution those of its market. A given `fee_ratio` also stands before the
        account's `fee_table`.
    account : Account or mapping, optional
        The account whose lots, rounding and fees the orders follow, or what
        ``report.settings["account"]`` holds of one. By default that which the report was simulated
        with; an execution knows none.
    fx : mapping or Series of currency to float, optional
        Of an account over several currencies: what one unit of each costs in the account's own,
        which `capital` and all money of the table are in; prices are in those of the assets. By
        default the last rates that the simulation knew.

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
    Quantities are rounded towards zero, with an account of ``rounding="nearest"`` to the nearest
    step, and weights apply to the capital after the costs. The cash is never negative as long as
    the weights sum to at most 1: what rounding raised most is then rounded down instead. With the
    quantities reached there is nothing more to trade: an asset less than a step below its target,
    give or take what trading one step of everything costs, is left alone. Orders that cross zero
    close one side and open the other at once.
    """
    state = one_execution(execution)
    market = state.market
    weights = chosen_weights(state, now)
    amount = _positive(capital, "capital")
    wanted, owned, quotes = _matched(weights, unit_prices(prices, market), quantities(held))
    terms = read_terms(
        list(quotes),
        execution if state is not execution else None,
        market,
        account,
        odd_lots=odd_lots,
        given={"fee_ratio": fee_ratio, "tax_ratio": tax_ratio, "min_fee": min_fee},
        fx=fx,
    )
    assets = [
        Asset(
            label,
            wanted.get(label, 0.0),
            quote,
            _in_steps(owned.get(label, 0.0), terms.costs[label].step),
            terms.costs[label],
        )
        for label, quote in quotes.items()
    ]
    targets = size(assets, amount, to_nearest=terms.to_nearest)
    _refuse_uncountable(assets, targets)
    table = _table(assets, targets, market, amount)
    paid = float(table["fee"].sum() + table["tax"].sum())
    cash = cash_after(assets, targets, amount)
    table.attrs = {"cash": cash, "costs": paid, "capital": amount - paid}
    if terms.base is not None:
        table.attrs["currency"] = terms.base
    return table


def _positive(value: Any, name: str) -> float:
    number = math.nan if isinstance(value, bool | str) else as_float(value)
    if not 0 < number < math.inf:
        raise ValueError(f"{name} should be a positive number, got {value!r}")
    return number


def _matched(
    weights: pd.Series, prices: dict[str, float], held: dict[str, float]
) -> tuple[dict[str, float], dict[str, float], dict[str, float]]:
    """Return weights and holdings by label, and the price of each asset that has either."""
    wanted = {str(label): float(weight) for label, weight in weights.items()}
    owned = matched(wanted, held, "held")
    needed = [label for label in [*owned, *wanted] if wanted.get(label, 0.0) != 0 or label in owned]
    needed = list(dict.fromkeys(needed))
    quotes = matched(needed, prices, "prices")
    missing = [label for label in needed if label not in quotes]
    if missing:
        raise ValueError(f"there is no usable price of: {', '.join(missing)}")
    return wanted, owned, {label: quotes[label] for label in needed}


def _refuse_uncountable(assets: list[Asset], targets: list[float]) -> None:
    for asset, target in zip(assets, targets, strict=True):
        largest, step = math.hypot(target, asset.held), asset.costs.step
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
    market: Market,
    capital: float,
) -> pd.DataFrame:
    rows = [
        _order(asset, target, market)
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


def _order(asset: Asset, target: float, market: Market) -> dict[str, Any]:
    change, step = target - asset.held, asset.costs.step
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
        "fee": asset.costs.fee(value, abs(change)),
        "tax": asset.costs.tax(value, sale=change < 0),
        "weight": asset.weight,
        "held": float(_exact(asset.held, step)),
        "target": float(_exact(target, step)),
        "lowest_price": price_range[0] if price_range else None,
        "highest_price": price_range[1] if price_range else None,
    }
