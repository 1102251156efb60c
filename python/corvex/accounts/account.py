"""The terms on which a broker keeps the account of a run."""

from __future__ import annotations

import math
import numbers
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import Any, Literal

import pandas as pd

from corvex.accounts.exchange import currency_code
from corvex.accounts.fees import Fees
from corvex.accounts.given_values import as_pandas
from corvex.accounts.kept_terms import kept_terms
from corvex.tables.frames import ArrowTable
from corvex.tables.value_columns import series_by_date, series_by_label, table_or_series

__all__ = ["DAY_COUNTS", "Account", "Values", "in_currency"]

type Table = pd.DataFrame | ArrowTable
type Values = float | pd.Series | Table

#: The terms that may be tables: by date and asset, by one of both, by date, by asset.
_TABLES = ("dividends", "splits", "fx")
_VALUED = (
    *("short_rebate", "borrow_rate", "withholding_tax", "band", "price_limit"),
    *("fee_ratio", "tax_ratio", "slippage_ratio"),
)
_OF_MONEY = ("cash_rate", "cash_spread", "financing_rate", "flows")
_BY_ASSET = ("lot_size", "currency")
#: What may be a number for each currency.
_BY_CURRENCY = ("min_fee", "fee_per_share")

#: How many days a year has when interest is counted.
DAY_COUNTS = {"act/365": 365.0, "act/360": 360.0, "act/365.25": 365.25}


@dataclass(frozen=True, slots=True, kw_only=True, eq=False, repr=False)
class Account:
    """The account of a run as a broker keeps it; ``docs/account.md`` shows every rule.

    All money is in the currency of the prices, or in `base`; all rates are fractions per year
    (0.05 is 5 %).
    *Values* are a number, a Series by date or by asset label, or a DataFrame of both; a value
    holds from its date until the next one. A mapping counts as a Series; tables of other libraries,
    and such whose dates or labels stand in a column, as those of pandas.

    Parameters
    ----------
    capital : float, default 1.0
        Money at the start.
    cash_rate : number or Series by date, default 0.0
        Interest on free cash: the cash without the value of the shorts.
    cash_spread : number or Series by date, default 0.0
        What the broker keeps of `cash_rate`, at most all of it.
    short_rebate : values, default 0.0
        Interest on the value of the shorts, whose proceeds the broker holds.
    financing_rate : number or Series by date, default 0.0
        What free cash below zero (a loan) costs.
    borrow_rate : values, default 0.0
        What a short costs. Missing: it cannot be borrowed, and the order to sell it short is cut.
    day_count : {"act/365", "act/360", "act/365.25"}
        Calendar days over the days of a year.
    dividends : DataFrame, dates x labels, optional
        Money for each share on the ex-date: paid to longs, owed by shorts. With quoted prices.
    splits : DataFrame, dates x labels, optional
        New shares for each old one (2.0 is two for one); missing and 1 are none.
    withholding_tax : values, default 0.0
        The part of dividends that is kept back from longs.
    lot_size : number or Series by label, optional
        Holdings are whole lots (1: whole shares). None: any fraction of a share.
    rounding : {"down", "nearest"}
        Towards zero, or to the nearest lot as far as the cash goes.
    fee_ratio, tax_ratio, slippage_ratio : values, optional
        In place of those of the run, which count where one is missing before its first date.
    min_fee : float, or mapping or Series of currency to float, default 0.0
        The least commission of an order, in the currency of its asset.
    fee_per_share : float, or mapping or Series of currency to float, default 0.0
        Commission for each share, beside the ratio; in the currency of the asset.
    max_fee_ratio : float, optional
        The largest commission, as a part of the order's value; it goes before `min_fee`.
    fee_table : mapping of float to float, optional
        Ratio by the part of an order's value from which on it holds, in place of `fee_ratio`:
        ``{0: 0.001, 100_000: 0.0005}``.
    band : values, optional
        No trade while a weight is this near to its target.
    band_kind : {"absolute", "relative"}
        Whether the band is in weight, or a fraction of the target weight.
    band_to : {"target", "edge"}
        Where trades from outside the band go.
    volume_share : float, optional
        At most this part of a session's volume is traded of an asset.
    unfilled : {"wait", "lapse"}
        Whether what does not fill waits for the next sessions, until another rebalance.
    impact : float, default 0.0
        Prices move by this x daily volatility x sqrt(shares / daily volume).
    impact_window : int, default 20
        Sessions before the fill from which volatility and volume are taken.
    price_limit : values or bool, optional
        Nothing is bought that opens this far above the close before, nor sold as far below.
        True: the market's, 0.1 in Taiwan. Missing: no limit.
    price_ticks : bool or mapping of float to float, default False
        Move these limits inwards to whole ticks: True, those of the market; or the tick by the
        price from which on it holds, ``{0: 0.01, 10: 0.05}``. With quoted prices.
    maintenance_margin : float, optional
        Where the equity over the gross value closes below it, positions are cut to it.
    flows : Series by date, optional
        Deposits, and withdrawals below zero, at the beginning of their sessions.
    currency : str, mapping or Series of label to str, optional
        What the assets are quoted in, such as "USD"; every asset that is held needs one. Dividends
        and commissions (minimum, per share, table) are in it too.
    fx : DataFrame or Series by date, or mapping of pair to Series or number, optional
        Exchange rates, named by their pair: "USDTWD" or "USD/TWD" is the price of one USD in TWD.
        The last one known by a session counts.
    base : str, optional
        The currency of the account: of `capital`, `flows`, and all that the report counts in
        money. Needed with `currency`.
    benchmark_currency : str, optional
        What the benchmark is quoted in: it is compared in `base`, at the rates of `fx`. None: as
        it is; of a benchmark that is not the user's own Series a warning says so.

    Raises
    ------
    ValueError
        When a value cannot be used; the message says what is accepted.

    Examples
    --------
    >>> import corvex
    >>> prices = corvex.data.sample("us_stocks")[["AAPL", "MSFT"]]
    >>> account = corvex.Account(capital=100_000, cash_rate=0.04, lot_size=1, min_fee=1)
    >>> report = corvex.simulate(prices > 0, prices, resample="YE", account=account)
    >>> bool((report.account["cash"] >= 0).all())
    True
    """

    capital: float = 1.0
    cash_rate: Values = 0.0
    cash_spread: Values = 0.0
    short_rebate: Values = 0.0
    financing_rate: Values = 0.0
    borrow_rate: Values = 0.0
    day_count: Literal["act/365", "act/360", "act/365.25"] = "act/365"
    dividends: Table | None = None
    splits: Table | None = None
    withholding_tax: Values = 0.0
    lot_size: Values | None = None
    rounding: Literal["down", "nearest"] = "down"
    fee_ratio: Values | None = None
    tax_ratio: Values | None = None
    slippage_ratio: Values | None = None
    min_fee: float | Mapping[str, float] | pd.Series | Table = 0.0
    fee_per_share: float | Mapping[str, float] | pd.Series | Table = 0.0
    max_fee_ratio: float | None = None
    fee_table: Mapping[float, float] | None = None
    band: Values | None = None
    band_kind: Literal["absolute", "relative"] = "absolute"
    band_to: Literal["target", "edge"] = "target"
    volume_share: float | None = None
    unfilled: Literal["wait", "lapse"] = "wait"
    impact: float = 0.0
    impact_window: int = 20
    price_limit: Values | bool | None = None
    price_ticks: bool | Mapping[float, float] = False
    maintenance_margin: float | None = None
    flows: pd.Series | Table | None = None
    currency: str | Mapping[Any, str] | pd.Series | Table | None = None
    fx: pd.Series | Table | Mapping[Any, Any] | None = None
    base: str | None = None
    benchmark_currency: str | None = None

    def __post_init__(self) -> None:
        self._bring_to_pandas()
        _number("capital", self.capital, above=0.0)
        for name, most in (("cash_spread", None), ("withholding_tax", 1.0)):
            if not isinstance(value := getattr(self, name), pd.Series | pd.DataFrame):
                _number(name, value, least=0.0, most=most)
        _number("impact", self.impact, least=0.0)
        for name in _BY_CURRENCY:
            object.__setattr__(self, name, _by_currency(name, getattr(self, name), self.currency))
        for name in ("max_fee_ratio", "volume_share"):
            if getattr(self, name) is not None:
                _number(name, getattr(self, name), above=0.0, most=1.0)
        if self.maintenance_margin is not None:
            _number("maintenance_margin", self.maintenance_margin, above=0.0)
        _choice("day_count", self.day_count, tuple(DAY_COUNTS))
        _choice("rounding", self.rounding, ("down", "nearest"))
        _choice("band_kind", self.band_kind, ("absolute", "relative"))
        _choice("band_to", self.band_to, ("target", "edge"))
        _choice("unfilled", self.unfilled, ("wait", "lapse"))
        window = self.impact_window
        if isinstance(window, bool) or not isinstance(window, numbers.Integral) or window < 2:
            raise ValueError(f"impact_window must be a whole number from 2 on, got {window!r}")
        for name in ("dividends", "splits"):
            if not isinstance(getattr(self, name), pd.DataFrame | None):
                raise ValueError(
                    f"{name} must be a table, dates x labels, got {_type(getattr(self, name))}"
                )
        if not isinstance(self.flows, pd.Series | None):
            raise ValueError(f"flows must be a Series by date, got {_type(self.flows)}")
        self._check_currencies()
        _ = self.fees, self.ticks

    def __repr__(self) -> str:
        terms = kept_terms(self)
        terms.pop("latest", None)
        return f"Account({', '.join(f'{name}={value!r}' for name, value in terms.items())})"

    def _bring_to_pandas(self) -> None:
        read: dict[str, Callable[[Any, str], Any]] = {
            **dict.fromkeys(_TABLES, _same),
            **dict.fromkeys(_VALUED, table_or_series),
            **dict.fromkeys(_OF_MONEY, series_by_date),
            **dict.fromkeys(_BY_ASSET, series_by_label),
        }
        for name, form in read.items():
            given = form(getattr(self, name), name)
            if name == "fx" and isinstance(given, Mapping):
                given = {pair: series_by_date(one, f"fx of {pair}") for pair, one in given.items()}
            elif name != "currency":
                given = as_pandas(given, name)
            object.__setattr__(self, name, given)

    def _check_currencies(self) -> None:
        if not isinstance(self.fx, pd.DataFrame | pd.Series | Mapping | None):
            raise ValueError(
                "fx must be a table or Series by date, or a mapping, named by pairs such as "
                f"'USDTWD', got {_type(self.fx)}"
            )
        if self.currency is None:
            if any(one is not None for one in (self.fx, self.base, self.benchmark_currency)):
                raise ValueError(
                    "fx, base and benchmark_currency go with currency: what each asset is quoted in"
                )
            return
        if not isinstance(self.currency, str | pd.Series | Mapping):
            raise ValueError(
                "currency must be the code of one such as 'USD', or a mapping or Series of asset "
                f"labels to codes, got {_type(self.currency)}"
            )
        if self.base is None:
            raise ValueError("currency needs base: the currency that the account is kept in")
        currency_code(self.base, "base")
        if self.benchmark_currency is not None:
            currency_code(self.benchmark_currency, "benchmark_currency")

    @property
    def ticks(self) -> tuple[tuple[float, float], ...] | None:
        """The ticks that limits are moved to; none of them for False, None for the market's."""
        if isinstance(self.price_ticks, bool):
            return None if self.price_ticks else ()
        return _steps("price_ticks", self.price_ticks, "{0: 0.01, 10: 0.05}", above=0.0)

    @property
    def fees(self) -> Fees:
        """The commission of an order beside the ratio of its value; see `fees_in`."""
        return self._fees(*(_plain_number(getattr(self, name)) for name in _BY_CURRENCY))

    def fees_in(self, code: str) -> Fees:
        """Return the commission of orders for assets that are quoted in a currency.

        Raises
        ------
        ValueError
            When a term by currency has no value for it.
        """
        own = (in_currency(name, getattr(self, name), code) for name in _BY_CURRENCY)
        return self._fees(*own)

    def _fees(self, min_fee: float, per_share: float) -> Fees:
        return Fees(
            min_fee,
            per_share,
            math.inf if self.max_fee_ratio is None else float(self.max_fee_ratio),
            ()
            if self.fee_table is None
            else _steps("fee_table", self.fee_table, "{0: 0.001, 100_000: 0.0005}", most=1.0),
        )


def _same(given: Any, name: str) -> Any:
    del name
    return given


def in_currency(name: str, given: Any, code: str) -> float:
    """Return a term that is one number, or one for each currency, in one of these.

    Raises
    ------
    ValueError
        When there is none for it.
    """
    if not isinstance(given, Mapping):
        return float(given)
    if code not in given:
        raise ValueError(f"{name} has no value for {code}; every currency needs one, 0 is none")
    return float(given[code])


def _by_currency(name: str, given: Any, currency: Any) -> Any:
    """Check a term that is one number, or one for each currency; these as a dictionary."""
    given = series_by_label(given, name)
    if isinstance(given, pd.Series):
        given = given.to_dict()
    if not isinstance(given, Mapping):
        _number(name, given, least=0.0)
        return given
    if currency is None:
        raise ValueError(
            f"{name} by currency needs currency: what each asset is quoted in; else give one number"
        )
    found = {}
    for code, value in given.items():
        _number(f"{name} of {code}", value, least=0.0)
        found[currency_code(code, f"what {name} goes by")] = float(value)
    return found


def _plain_number(value: Any) -> float:
    return 0.0 if isinstance(value, Mapping) else float(value)


def _steps(
    name: str, table: Any, example: str, *, above: float | None = None, most: float | None = None
) -> tuple[tuple[float, float], ...]:
    """Return what holds from which value on, ascending from 0."""
    if not isinstance(table, Mapping) or not table:
        raise ValueError(f"{name} must map values from 0 on, such as {example}, got {table!r}")
    for start, step in table.items():
        _number(f"the values of {name}", start, least=0.0)
        _number(f"what {name} maps to", step, above=above, least=0.0, most=most)
    steps = sorted((float(start), float(step)) for start, step in table.items())
    if steps[0][0] != 0.0:
        raise ValueError(f"{name} must begin at 0, it begins at {steps[0][0]:g}")
    return tuple(steps)


def _number(
    name: str,
    value: Any,
    *,
    above: float | None = None,
    least: float | None = None,
    most: float | None = None,
) -> None:
    good = isinstance(value, numbers.Real) and not isinstance(value, bool)
    if good and math.isfinite(value):
        high = most is None or value <= most
        if high and (above is None or value > above) and (least is None or value >= least):
            return
    low = f"above {above:g}" if above is not None else f"from {least:g} on"
    upper = "" if most is None else f" and at most {most:g}"
    shown = repr(value) if good or isinstance(value, str | bool | None) else _type(value)
    raise ValueError(f"{name} must be a number {low}{upper}, got {shown}")


def _choice(name: str, value: Any, known: tuple[str, ...]) -> None:
    if not isinstance(value, str) or value not in known:
        raise ValueError(f"{name} must be one of {', '.join(map(repr, known))}, got {value!r}")


def _type(value: Any) -> str:
    return type(value).__name__
