"""What orders cost and in which steps they come: by the account of a report, else by its market."""

from __future__ import annotations

import math
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any

from corvex.accounts import Account
from corvex.accounts.fees import Fees
from corvex.accounts.kept_terms import kept_terms
from corvex.market import Market
from corvex.ordering.inputs import as_float, matched
from corvex.ordering.sizing import Costs

__all__ = ["OrderTerms", "read_terms"]

_OF_FEES = ("min_fee", "fee_per_share", "max_fee_ratio", "fee_table")


@dataclass(frozen=True, slots=True)
class OrderTerms:
    """The terms of the orders of several assets.

    Attributes
    ----------
    costs : dict of str to Costs
        What the orders of each asset cost, and in which steps they come.
    to_nearest : bool
        Targets are rounded to the nearest step, not towards zero.
    base : str or None
        The currency of an account with several.
    """

    costs: dict[str, Costs]
    to_nearest: bool
    base: str | None


def read_terms(
    labels: list[str],
    report: Any,
    market: Market,
    account: Any,
    *,
    odd_lots: bool | None,
    given: Mapping[str, float | None],
    fx: Any = None,
) -> OrderTerms:
    """Read the terms: what was given, else what the account has, else the report's or market's.

    Parameters
    ----------
    report : Report or None
        What the orders are made for; None for an execution state alone.
    account : Account, mapping of str to object, or None
        None: the account that the report was simulated with.
    given : mapping of str to float or None
        ``fee_ratio``, ``tax_ratio`` and ``min_fee`` of the call.
    fx : mapping of str to float, or Series, optional
        What one unit of each foreign currency costs in the account's own; by default the last
        rates of the report.

    Raises
    ------
    ValueError
        When a term cannot be used.
    """
    terms = _terms(report, account)
    steps = _steps(labels, terms, market, odd_lots)
    codes = _codes(labels, terms)
    fees = _fees(codes, terms, given, report, market)
    ratios = {name: _ratio(name, labels, terms, given, report, market) for name in _RATIOS}
    rates = _rates(codes, report, terms, fx)
    costs = {
        label: Costs(
            fees[label],
            ratios["fee_ratio"][label],
            ratios["tax_ratio"][label],
            steps[label],
            rates[label],
        )
        for label in labels
    }
    return OrderTerms(costs, terms.get("rounding") == "nearest", terms.get("base"))


_RATIOS = ("fee_ratio", "tax_ratio")


def _terms(report: Any, account: Any) -> Mapping[str, Any]:
    if isinstance(account, Account):
        return kept_terms(account)
    if account is None:
        settings = getattr(report, "settings", None)
        account = settings.get("account") if isinstance(settings, Mapping) else None
    if account is None:
        return {}
    if not isinstance(account, Mapping):
        raise ValueError(
            "account should be a corvex.Account, or the terms that report.settings['account'] "
            f"holds, got {type(account).__name__}"
        )
    return account


def _codes(labels: list[str], terms: Mapping[str, Any]) -> dict[str, str | None]:
    """Return what each asset is quoted in; None where the account has one currency."""
    currency = terms.get("currency")
    if currency is None:
        return dict.fromkeys(labels)
    if isinstance(currency, Mapping):
        codes = matched(labels, {str(label): code for label, code in currency.items()}, "currency")
    else:
        codes = dict.fromkeys(labels, currency)
    found: dict[str, str | None] = {}
    for label in labels:
        found[label] = str(codes.get(label, "")).strip().upper()
        if not found[label]:
            raise ValueError(f"the account's currency has no value for {label!r}")
    return found


def _rates(
    codes: Mapping[str, str | None], report: Any, terms: Mapping[str, Any], fx: Any
) -> dict[str, float]:
    """Return what a unit of each asset's currency costs in the account's; 1 where all have one."""
    base = str(terms.get("base")).strip().upper()
    table = getattr(report, "fx", None)
    known = {} if table is None else table.iloc[-1].to_dict()
    known |= {} if fx is None else dict(fx)
    known = {str(code).strip().upper(): as_float(rate) for code, rate in known.items()}
    found = {}
    for label, code in codes.items():
        found[label] = 1.0 if code in (base, None) else known.get(code, math.nan)
        if not 0 < found[label] < math.inf:
            raise ValueError(
                f"there is no rate of {code}, the currency of {label!r}; give what one costs in "
                f"{base}: fx={{{code!r}: ...}}"
            )
    return found


def _steps(
    labels: list[str], terms: Mapping[str, Any], market: Market, odd_lots: bool | None
) -> dict[str, float]:
    name = "lot_size" if odd_lots is False else "quantity_step"
    of_market = dict.fromkeys(labels, float(getattr(market, name, 1.0)))
    lots = terms.get("lot_size")
    if odd_lots is not None or lots is None:
        return of_market
    found = _by_label("lot_size", lots, labels)
    for label, lot in found.items():
        if not 0 < lot < math.inf:
            raise ValueError(f"lot_size of {label!r} should be a number above 0, got {lot!r}")
    return of_market | found


def _fees(
    codes: Mapping[str, str | None],
    terms: Mapping[str, Any],
    given: Mapping[str, float | None],
    report: Any,
    market: Market,
) -> dict[str, Fees]:
    """Return commissions beside the ratio, in the asset's currency.

    A ratio that was given stands before a table.
    """
    own = {name: terms[name] for name in _OF_FEES if name in terms}
    if given["fee_ratio"] is not None:
        own.pop("fee_table", None)
    account = Account(**own, currency=terms.get("currency"), base=terms.get("base"))
    fees = {code: account.fees_in(code or "") for code in dict.fromkeys(codes.values())}
    if given["min_fee"] is not None or "min_fee" not in own:
        least = _cost("min_fee", given, report, market)
        fees = {code: one._replace(min_fee=least) for code, one in fees.items()}
    return {label: fees[code] for label, code in codes.items()}


def _ratio(
    name: str,
    labels: list[str],
    terms: Mapping[str, Any],
    given: Mapping[str, float | None],
    report: Any,
    market: Market,
) -> dict[str, float]:
    usual = dict.fromkeys(labels, _cost(name, given, report, market))
    own = terms.get("latest", {}).get(name, terms.get(name))
    if given[name] is not None or own is None:
        return usual
    found = _by_label(name, own, labels)
    for label, ratio in found.items():
        if not 0 <= ratio < 1:
            raise ValueError(f"{name} of {label!r} should be a fraction below 1, got {ratio!r}")
    return usual | found


def _by_label(name: str, value: Any, labels: list[str]) -> dict[str, float]:
    """Return a term of an account by label: of those that it has a value for."""
    if not isinstance(value, Mapping):
        return dict.fromkeys(labels, as_float(value))
    found = matched(labels, {str(label): as_float(one) for label, one in value.items()}, name)
    return {label: found[label] for label in labels if label in found}


def _cost(name: str, given: Mapping[str, float | None], report: Any, market: Market) -> float:
    """Return what was given, else what the report was made with, else the market's."""
    value = given[name]
    if value is None:
        value = getattr(report, name, getattr(market, name, 0.0))
    number = as_float(value)
    if not 0 <= number < math.inf:
        raise ValueError(f"{name} should be a number from 0 on, got {value!r}")
    return number
