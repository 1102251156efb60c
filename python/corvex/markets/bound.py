"""Markets bound to a user's own price tables."""

from __future__ import annotations

import datetime
import weakref
from collections.abc import Callable, Collection, Iterable, Mapping
from functools import cached_property, lru_cache
from typing import Any, Self, cast, override

import pandas as pd

from corvex.markets.alignment import (
    align_benchmark,
    align_facts,
    align_prices,
    align_tables,
    clean_benchmark,
)
from corvex.markets.bars import infer_freq, next_bar
from corvex.markets.benchmark_check import check_benchmark
from corvex.markets.market_tables import MarketTables
from corvex.markets.stamps import TableStamps
from corvex.tables.asset_labels import ChosenLabels, asset_id
from corvex.tables.context import _default_context, now
from corvex.tables.date_limits import require_in_range
from corvex.tables.frames import TableInput, as_prices
from corvex.tables.named import get_frame, require
from corvex.utils import logger

__all__ = ["BoundMarket", "Prices", "bind", "restored", "unbound_class"]

_SPLIT_FACTOR = "split_factor"

type Prices = TableInput | Mapping[str, TableInput]


class BoundMarket(MarketTables):
    """What a market bound to tables answers from them; mixed in before the market's class."""

    _tables: dict[str, pd.DataFrame]
    _benchmark: pd.Series | str | None
    _aligned: pd.Series | None
    _own_benchmark: pd.Series | None = None
    _converted_from: str | None = None
    _converted_to: str | None = None
    _freq: str
    _bound_at: datetime.datetime
    _pickled_assets: Collection[object]

    @property
    def price_index(self) -> pd.DatetimeIndex:
        """The dates of the close table."""
        return cast("pd.DatetimeIndex", self.get_price("close").index)

    @cached_property
    def stamps(self) -> TableStamps:
        """How the dates of the close table are read."""
        market = weakref.proxy(self)  # a market that is done with goes at once
        return TableStamps(self.price_index, lambda: market.tz)

    @property
    @override
    def stamps_are_moments(self) -> bool:
        return not self.stamps.daily

    @property
    def bound_at(self) -> datetime.datetime:
        """When the tables were handed over, UTC."""
        return self._bound_at

    @property
    def benchmark_source(self) -> str:
        """Where the benchmark comes from: "given" as a series, a named "table", or "default"."""
        if self._converted_from is not None:
            return self._converted_from
        if self._benchmark is None:
            return "default"
        return "table" if isinstance(self._benchmark, str) else "given"

    @override
    def get_freq(self) -> str:
        return self._freq

    @override
    def get_price(self, name: str, adj: bool = True) -> pd.DataFrame:
        for field in (f"adj_{name}", name) if adj else (name, f"adj_{name}"):
            if field in self._tables:
                return self._tables[field]
        raise ValueError(f"the prices hold no {name!r} table; they hold: {', '.join(self._tables)}")

    def read_benchmark(self) -> None:
        """Read the market's own benchmark now, for when it is asked for."""
        if self._own_benchmark is None and self._aligned is None and self._benchmark is None:
            self._own_benchmark = self._market_benchmark()

    @override
    def get_benchmark(self) -> pd.Series:
        if self._aligned is None:
            self._aligned = align_benchmark(self._unaligned(), self.price_index, self.tz)
            self._own_benchmark = None
        return self._aligned.copy()  # the caller may give it another index

    def _unaligned(self) -> pd.Series:
        benchmark = self._benchmark
        if benchmark is None:
            own = self._own_benchmark
            return self._market_benchmark() if own is None else own
        if isinstance(benchmark, str):
            name, benchmark = benchmark, get_frame(benchmark).iloc[:, 0]
            check_benchmark(benchmark, name)
        return benchmark

    @property
    def benchmark_currency(self) -> str | None:
        """The currency that a run has brought the benchmark to; None for one as handed over."""
        return self._converted_to

    def with_benchmark(
        self,
        convert: Callable[[pd.Series], pd.Series],
        currency: str,
        source: str | None = None,
    ) -> Self:
        """Return a copy whose benchmark is in another currency.

        `convert` is given the values by date as they were handed over, rising and without holes;
        where there are none the copy has none either.

        Parameters
        ----------
        currency : str
            What `benchmark_currency` answers.
        source : str, optional
            What `benchmark_source` answers; it stays where it is not given.
        """
        twin = self.__copy__()
        own = clean_benchmark(self._unaligned())
        if len(own):
            twin.__dict__.update(
                _benchmark=convert(own),
                _aligned=None,
                _own_benchmark=None,
                _converted_from=source or self.benchmark_source,
                _converted_to=currency,
            )
        return twin

    @property
    def split_factors(self) -> pd.DataFrame | None:
        """The shares that one share of the beginning has become, where quoted prices have splits.

        Dates of the close table x assets that were split.
        """
        return self._tables.get(_SPLIT_FACTOR)

    def with_split_factors(self, factors: pd.DataFrame | None) -> Self:
        """Return a copy that knows of these splits, or of none."""
        twin = self.__copy__()
        tables = {name: table for name, table in self._tables.items() if name != _SPLIT_FACTOR}
        twin.__dict__["_tables"] = tables if factors is None else {**tables, _SPLIT_FACTOR: factors}
        return twin

    @override
    def get_market_value(self) -> pd.DataFrame:
        own = self._tables.get("market_value")
        return align_facts(super().get_market_value(), self.stamps) if own is None else own

    @override
    def get_status(self, kind: str) -> pd.DataFrame:
        return align_facts(super().get_status(kind), self.stamps)

    @override
    def get_trading_price(self, trade_at: str | pd.DataFrame, adj: bool = True) -> pd.DataFrame:
        return align_prices(super().get_trading_price(trade_at, adj), self.stamps)

    @override
    def next_bar(self, index: pd.DatetimeIndex | None = None) -> pd.Timestamp:
        return next_bar(self, self.price_index if index is None else index)

    @override
    def restrict_pickle_to(self, assets: Iterable[object]) -> None:
        # Most markets are never saved: labels that can be made later are not made now.
        self._pickled_assets = assets if isinstance(assets, ChosenLabels) else tuple(assets)

    def _market_benchmark(self) -> pd.Series:
        """Return the market's own benchmark, unless it ends before the prices do."""
        context = _default_context
        read: set[str] = set()
        with context.override(_loaded_datasets=read):  # what is not used is no data of the run
            own = super().get_benchmark()
        index = own.index
        if not isinstance(index, pd.DatetimeIndex):
            index = pd.DatetimeIndex(index)
        if len(own) and (TableStamps(index, lambda: self.tz).last_date < self.stamps.last_date):
            logger.info(
                "the benchmark of %s ends on %s, before the prices (%s); none is used",
                self.get_name(), own.index[-1], self.price_index[-1],
            )  # fmt: skip
            return own.iloc[:0]
        context._loaded_datasets.update(read)
        return own

    def __copy__(self) -> Self:
        twin = object.__new__(type(self))
        twin.__dict__.update(self.__dict__)
        _default_context.note_market(twin)
        return twin

    def __deepcopy__(self, memo: dict[int, Any]) -> Self:
        return self.__copy__()  # the tables are never changed, so they are shared

    def saved_state(self) -> dict[str, Any]:
        """Return what a saved report keeps of this market: settings, and the assets' prices."""
        state = cast("dict[str, Any]", dict(super().__getstate__() or {}))  # type: ignore[call-overload]
        assets = tuple(self._pickled_assets)
        state.update(_tables=self._kept_tables(), _aligned=None, _pickled_assets=assets)
        state.pop("stamps", None)
        state.pop("_own_benchmark", None)
        return state

    def __reduce_ex__(self, protocol: Any) -> tuple[Any, ...]:
        return restored, (unbound_class(type(self)), self.saved_state())

    def _kept_tables(self) -> dict[str, pd.DataFrame]:
        """Return the tables with the named assets only, sharing one index where they can."""
        index = self.price_index
        names = {str(asset) for asset in self._pickled_assets}
        names |= {asset_id(name) for name in names}
        kept = {}
        for field, table in self._tables.items():
            columns = [
                at
                for at, label in enumerate(table.columns)
                if str(label) in names or asset_id(label) in names
            ]
            part = table.iloc[:, columns]
            kept[field] = part.set_axis(index, axis=0) if table.index.equals(index) else part
        return kept


def bind[M: MarketTables](
    market: M,
    prices: Prices,
    *,
    benchmark: pd.Series | str | None = None,
    freq: str | None = None,
) -> M:
    """Return a copy of a market that answers from the given tables (see `Market.bound_to`)."""
    tables = align_tables(_checked_tables(prices), lambda: market.tz)
    if benchmark is not None and not isinstance(benchmark, pd.Series | str):
        raise ValueError(
            f"benchmark must be a Series, a table's name or None, got {type(benchmark)}"
        )
    if isinstance(benchmark, str):
        require(benchmark)
    elif benchmark is not None:
        check_benchmark(benchmark)
    index = tables["adj_close"].index if "adj_close" in tables else tables["close"].index
    bound = object.__new__(_bound_class(unbound_class(type(market))))
    bound.__dict__.update(market.__dict__)
    bound.__dict__.pop("stamps", None)
    bound.__dict__.pop("_own_benchmark", None)
    bound.__dict__.pop("_converted_from", None)
    bound.__dict__.pop("_converted_to", None)
    bound.__dict__.update(
        _tables=tables,
        _benchmark=benchmark,
        _aligned=None,
        _freq=freq or infer_freq(cast("pd.DatetimeIndex", index)),
        _bound_at=now(),
        _pickled_assets=(),
    )
    _default_context.note_market(cast("BoundMarket", bound))
    return cast("M", bound)


def _checked_tables(prices: Prices) -> dict[str, pd.DataFrame]:
    tables = as_prices(prices, "prices")
    given = {"close": tables} if isinstance(tables, pd.DataFrame) else dict(tables)
    if "close" not in given and "adj_close" not in given:
        raise ValueError(
            f"prices need a 'close' table; got: {', '.join(map(str, given)) or 'none'}"
        )
    for field, table in given.items():
        if not isinstance(table, pd.DataFrame):
            raise ValueError(f"prices[{field!r}] must be a DataFrame, got {type(table)}")
        if not isinstance(table.index, pd.DatetimeIndex):
            raise ValueError(f"prices[{field!r}] must have dates as index, got {table.index.dtype}")
        if len(table) == 0:
            raise ValueError(f"prices[{field!r}] is empty")
        require_in_range(table.index, f"the index of prices[{field!r}]", traded=True)
    return given


@lru_cache(maxsize=64)
def _bound_class(market_class: type[MarketTables]) -> type[MarketTables]:
    """Return the market's class with the answers above put before its own."""
    names = {"__module__": market_class.__module__, "__doc__": market_class.__doc__}
    names["__qualname__"] = market_class.__qualname__
    return cast(
        "type[MarketTables]", type(market_class.__name__, (BoundMarket, market_class), names)
    )


def unbound_class(market_class: type[MarketTables]) -> type[MarketTables]:
    """Return the class that a market had before it was bound."""
    return market_class.__mro__[2] if issubclass(market_class, BoundMarket) else market_class


def restored(market_class: type[MarketTables], state: dict[str, Any]) -> MarketTables:
    """Make a bound market of its class and its `BoundMarket.saved_state`."""
    market = object.__new__(_bound_class(market_class))
    if hasattr(market, "__setstate__"):
        market.__setstate__(state)
    else:
        market.__dict__.update(state)
    _default_context.note_market(cast("BoundMarket", market))
    return market


_restore = restored  # the name in pickles
