"""A sweep as the command line asks for it, written beside its runs so that it can go on."""

from __future__ import annotations

import contextlib
import dataclasses
import functools
import json
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import TYPE_CHECKING, Any

from corvex.cli.given_inputs import (
    account_of,
    benchmark_of,
    by_name,
    prices_of,
    split_prices,
)
from corvex.cli.parameter_texts import read_options, read_signals, read_values
from corvex.cli.strategy_file import load_function

if TYPE_CHECKING:
    from corvex.sweeping import Sweep

__all__ = ["SweepCommand", "is_interrupted", "workers_of"]

_FILE = "command.json"
#: The options whose values may be files, and what reads one.
_FILES: dict[str, Callable[..., Any]] = {"account": account_of, "benchmark": benchmark_of}


@dataclasses.dataclass(frozen=True, slots=True, kw_only=True)
class SweepCommand:
    """What a sweep is made of, as texts.

    Attributes
    ----------
    strategy : str
        ``FILE.py:function``.
    prices : list of str
        As `corvex.cli.given_inputs.prices_of` takes them.
    signal, option : list of str
        As `corvex.cli.parameter_texts` reads them.
    curves : bool
        Keep the curve of each run.
    riskfree : float
        A year.
    max_size : int
        Most MB that a file may hold.
    batched : bool
        The strategy makes the weights of many combinations in one call.
    """

    strategy: str
    prices: list[str]
    signal: list[str]
    option: list[str]
    curves: bool
    riskfree: float
    max_size: int
    batched: bool = False

    def run(
        self, store: Path | None, executor: Any = None, *, check_lookahead: bool = False
    ) -> Sweep:
        """Run what is missing in the store, or everything without one.

        Raises
        ------
        OSError, ValueError, TypeError
            As `corvex.sweep`, and when a text or a file cannot be read.
        """
        import corvex

        signal = read_signals(self.signal)
        read, fixed = read_options(self.option)
        varying: dict[str, Any] = {**read}
        for name, make in _FILES.items():
            place_of = functools.partial(make, max_megabytes=self.max_size)
            if name in varying:
                varying[name] = by_name(varying[name], place_of)
            elif fixed.get(name) is not None:
                fixed[name] = place_of(fixed[name])
        prices = prices_of(self.prices, self.max_size)
        strategy = load_function(self.strategy)
        found = corvex.sweep(
            strategy, prices, signal=signal or None, options=varying or None,
            keep="curves" if self.curves else "figures", store=store,
            riskfree_rate=self.riskfree, executor=executor, check_lookahead=check_lookahead,
            batched=self.batched,
            **fixed,
        )  # fmt: skip
        if store is not None:
            self.write(store)
        return found

    def labels(self, where: list[str]) -> dict[str, Any]:
        """Read values of parameters, each as the sweep has read those of that parameter.

        Raises
        ------
        ValueError
            When a text cannot be read, or has several values.
        """
        read, options = read_signals(where), read_signals(self.option)
        for text, (name, values) in zip(where, read.items(), strict=True):
            if len(values) != 1:
                raise ValueError(f"--where takes one value of {name!r}, got {len(values)}")
            if name in options:
                (value,) = read_options([text])[1].values()
                read[name] = ["none" if value is None and name in _FILES else value]
        return {name: values[0] for name, values in read.items()}

    def write(self, folder: Path) -> None:
        """Write it into the folder of its runs, files by their whole paths."""
        from corvex.files import write_text

        path, _, name = self.strategy.rpartition(":")
        content = dataclasses.asdict(self) | {
            "strategy": f"{Path(path).absolute()}:{name}",
            "prices": [_whole(text, split_prices(text)[1]) for text in self.prices],
            "option": [_whole_option(text) for text in self.option],
        }
        write_text(folder / _FILE, json.dumps(content, indent=2, ensure_ascii=False) + "\n")

    @classmethod
    def read(cls, folder: Path) -> SweepCommand:
        """Read what `write` has written.

        Raises
        ------
        ValueError
            When the folder was not made by the command line, or the file is not whole.
        """
        path = folder / _FILE
        if not path.exists():
            raise ValueError(
                f"{folder} does not say how its runs were made, since corvex sweep did not make "
                "it; corvex.walk_forward takes what corvex.sweep returns"
            )
        try:
            return cls(**json.loads(path.read_text(encoding="utf-8")))
        except (ValueError, TypeError) as error:
            raise ValueError(f"{path} cannot be read: {error}") from None


def _whole(text: str, place: str) -> str:
    """Return a text that ends in a place with its whole path, where that is a file."""
    known = Path(place).is_file()
    return f"{text.removesuffix(place)}{Path(place).absolute()}" if known else text


def _whole_option(text: str) -> str:
    """Return an option with whole paths where its values may be files."""
    name, _, values = text.partition("=")
    if name.strip() not in _FILES:
        return text
    places = read_values(values, name, numeric=False)
    whole = [place if place is None else _whole(place, place) for place in places]
    return f"{name}={json.dumps(whole, ensure_ascii=False)}"


def is_interrupted(found: Sweep) -> bool:
    """Whether Ctrl-C has ended a sweep before its runs were made."""
    from corvex.sweeping.run_results import INTERRUPTED

    return bool((found.errors == INTERRUPTED).any())


@contextlib.contextmanager
def workers_of(workers: int | None, dask: str | None) -> Iterator[Any]:
    """Give the executor that a command asks for, None for this process, and end what it began.

    Raises
    ------
    ValueError
        When both are asked for, or Dask is not installed.
    """
    if workers is not None and dask is not None:
        raise ValueError(
            "--workers and --dask exclude each other: a cluster has workers of its own"
        )
    if workers is not None:
        import multiprocessing
        from concurrent.futures import ProcessPoolExecutor

        # The engine's threads may run already: a fork would take their locks along.
        with ProcessPoolExecutor(workers, multiprocessing.get_context("spawn")) as pool:
            yield pool
    elif dask is not None:
        try:
            from distributed import Client
        except ImportError:
            raise ValueError("--dask needs Dask: pip install 'corvex[dask]'") from None
        with Client(dask) as client:  # type: ignore[no-untyped-call, unused-ignore]
            yield client
    else:
        yield None
