"""The arguments of `simulate` in a sweep: those that vary, and those that do not."""

from __future__ import annotations

import inspect
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from typing import Any

import pandas as pd

from corvex.accounts import Account
from corvex.simulation.driver import simulate
from corvex.simulation.options import Options, checked_limit, cost_ratios, read_options
from corvex.simulation.plan.schedule import Rule, read_offset, read_resample
from corvex.simulation.read.price_data import PriceData
from corvex.sweeping.grid import Combination, near
from corvex.sweeping.values import unwrap
from corvex.tables.frames import as_table

__all__ = ["ARGUMENTS", "BAKED", "COSTS", "ENGINE", "STITCHABLE", "Settings", "check_names"]

#: What a sweep passes on to `simulate`, with the defaults there.
ARGUMENTS = {
    name: one.default
    for name, one in inspect.signature(simulate).parameters.items()
    if name not in ("weights", "prices", "upload")
}
#: What a sweep takes itself, and might be misspelt as well.
_OWN = (
    "signal", "options", "keep", "store", "executor", "progress", "on_error", "riskfree_rate",
    "threads", "check_lookahead", "batched",
)  # fmt: skip
#: What the engine takes as it is: runs that differ in nothing else share their settings.
ENGINE = Options._fields
#: Its cost ratios, which an account may hold instead.
COSTS = ("fee_ratio", "tax_ratio", "slippage_ratio")
_SPAN = ("market", "benchmark", "start", "end", "dates", "assets")
#: What a plan has taken in already.
BAKED = ("resample", "resample_offset", "position_limit", "leverage")
#: What runs may differ in whose plans are put one after the other.
STITCHABLE = (*BAKED, "benchmark", "name", "live_performance_start")


def check_names(given: Iterable[str], *, varies: bool) -> None:
    """Refuse what is no argument of `simulate`, naming the near ones.

    Raises
    ------
    TypeError
        For an argument of a call.
    ValueError
        For a name in `options`.
    """
    for name in given:
        if name == "upload":
            raise ValueError("a sweep publishes nothing; publish the report of a run")
        if name not in ARGUMENTS:
            what = "options name" if varies else "sweep() got"
            error = ValueError if varies else TypeError
            known = ARGUMENTS if varies else [*ARGUMENTS, *_OWN]
            raise error(f"{what} an unknown argument {name!r}; {near(name, known)}")


@dataclass(frozen=True)
class Settings:
    """One combination of the arguments of `simulate`, read.

    Attributes
    ----------
    arguments : mapping of str to object
        All of them.
    span : tuple
        What chooses prices; settings of equal ones share them.
    weights : tuple
        What tells how weights are read.
    plan : tuple
        What a plan depends on beside weights and prices.
    """

    arguments: Mapping[str, Any]
    span: tuple[Any, ...]
    weights: tuple[Any, ...]
    plan: tuple[Any, ...]
    rule: Rule
    offset: pd.Timedelta
    limit: float
    leverage: bool

    @classmethod
    def read(cls, fixed: Mapping[str, Any], options: Combination) -> Settings:
        """Read the fixed arguments with those of one combination in their place."""
        given = {**ARGUMENTS, **fixed, **{name: unwrap(one) for name, one in options.items()}}
        axes = {name: given[name] for name in ("dates", "assets")}
        given["trade_at"] = as_table(given["trade_at"], "trade_at", **axes)
        rule = read_resample(given["resample"])
        limit, leverage = checked_limit(given["position_limit"]), bool(given["leverage"])
        return cls(
            arguments=given,
            span=tuple(_key(given[name]) for name in _SPAN),
            weights=(limit, leverage, *map(_key, axes.values())),
            plan=tuple(_key(given[name]) for name in BAKED),
            rule=rule,
            offset=read_offset(rule, given["resample_offset"]),
            limit=limit,
            leverage=leverage,
        )

    @property
    def axes(self) -> dict[str, Any]:
        """The dates and assets of arrays."""
        return {name: self.arguments[name] for name in ("dates", "assets")}

    @property
    def prices(self) -> dict[str, Any]:
        """What `read_prices` takes."""
        return {name: self.arguments[name] for name in _SPAN}

    @classmethod
    def key(cls, options: Combination) -> tuple[Any, ...]:
        """Return what is the same for combinations that share their settings."""
        return tuple(
            (name, _key(unwrap(value))) for name, value in options.items() if name not in ENGINE
        )

    def engine_options(self, prices: PriceData, options: Combination) -> Options:
        """Return what the engine takes; costs that are not given are the market's."""
        given = {name: self.engine_argument(name, options) for name in ENGINE}
        return read_options(prices.market, {**given, **self.cost_ratios(options)})

    def cost_ratios(self, options: Combination) -> dict[str, float | None]:
        """Return the cost ratios that were given, to the run or to its account."""
        given = {name: self.engine_argument(name, options) for name in COSTS}
        return cost_ratios(self.account, **given)

    @property
    def account(self) -> Account | None:
        """The account that the runs keep."""
        found: Account | None = self.arguments["account"]
        return found

    def engine_argument(self, name: str, options: Combination) -> Any:
        """Return an argument that may vary within the settings."""
        return unwrap(options[name]) if name in options else self.arguments[name]


def _key(value: Any) -> Any:
    """Something hashable that is the same for the same value."""
    try:
        hash(value)
    except TypeError:
        return id(value)
    return type(value), value
