"""Saving a report as data, and opening it again."""

from __future__ import annotations

import os
from dataclasses import fields
from typing import Any

import numpy as np
import pandas as pd

import corvex
from corvex.core.report import Report, ReportExecution
from corvex.market import Market
from corvex.safe_file.arrays import ArrayReader, ArrayWriter, DamagedFileError
from corvex.safe_file.container import FORMAT, VERSION, read_container, write_container
from corvex.safe_file.decoder import Decoder
from corvex.safe_file.encoder import TAG, Encoder
from corvex.safe_file.markets import market_from_record, market_record
from corvex.significance.random_draws import report_among_random
from corvex.significance.random_result import RandomDraws
from corvex.significance.trials import TrialStatistics

__all__ = ["load", "save"]

# What is known of how a report was found, by the tags of its records, with the kinds of the fields.
_FINDINGS: dict[str, tuple[type, dict[str, type | tuple[type, ...]]]] = {
    "trials": (TrialStatistics, {"float": (float, int), "_Floats": np.ndarray}),
    "random": (RandomDraws, {"str": str, "float": (float, int), "pd.DataFrame": pd.DataFrame}),
}

# What every report has, and of which kind it must be to be shown at all.
_NEEDED: dict[str, type | tuple[type, ...]] = {
    "creturn": pd.Series,
    "position": pd.DataFrame,
    "market": Market,
    "trades": pd.DataFrame,
    "benchmark": pd.Series,
    "daily_creturn": pd.Series,
    "daily_benchmark": pd.Series,
    "weights": pd.Series,
    "next_weights": pd.Series,
    "actions": pd.Series,
    "current_trades": pd.DataFrame,
    "_execution_override": (ReportExecution, dict, type(None)),
    # These may be whatever their user has set, but are read everywhere.
    "trade_at": object,
    "next_trading_date": object,
}


def save(
    report: Report, path: str | os.PathLike[str], *, random_portfolios: int | None = 0
) -> None:
    """Write a report to a file that holds data alone, so that opening it can run nothing.

    Parameters
    ----------
    report : Report
        The report; it stays as it is.
    path : str or path
        The file, by custom ``.corvex``. It appears whole, or the one that was there stays.
    random_portfolios : int, optional
        Among how many random portfolios to set the report, for its page and `corvex.confidence` to
        tell once it is opened: a file holds no prices to draw them from. Each is a simulation, so
        the default is 0, none; 200 take some tenths of a second, None takes as many as a page
        would. A report that has `random_draws` keeps them, and a result of nothing that
        `corvex.simulate` did in this process has none.

    Raises
    ------
    ValueError
        For a negative number of portfolios.
    TypeError
        When the report has an attribute that is no data (a function, an object of a class of
        yours); the message names it. A pickle keeps such a report.
    OSError
        When the file cannot be written.

    Notes
    -----
    The file is a zip of JSON and Parquet tables. It holds all that the report's page, figures and
    live queries need: of price tables above two million cells, the prices from thirty bars before
    an entry to five bars after the exit, and the last thirty bars of all. A market class of your
    own is kept by its name; register it (`corvex.markets.register_market`) before you open the
    file.
    """
    if not isinstance(report, Report):
        raise TypeError(f"report must be a Report, got {type(report).__name__}")
    if random_portfolios is not None and random_portfolios < 0:
        raise ValueError(f"random_portfolios must be 0 or more, got {random_portfolios}")
    arrays = ArrayWriter()

    def special(value: Any, at: str) -> dict[str, Any] | None:
        if isinstance(value, ReportExecution):
            return {TAG: "execution", "v": encoder.encode(vars(value), at)}
        if isinstance(value, Market):
            return {TAG: "market", **market_record(value, report, encoder, at)}
        for tag, (kind, _) in _FINDINGS.items():
            if type(value) is kind:
                return {TAG: tag, "v": encoder.encode(vars(value), at)}
        return None

    encoder = Encoder(arrays, special)
    state = {name: value for name, value in vars(report).items() if name != "metrics"}
    if random_portfolios != 0 and state.get("random_draws") is None:
        rate = state.get("riskfree_rate")
        rate = 0.02 if rate is None else float(rate)
        drawn = report_among_random(report, random_portfolios, riskfree_rate=rate)
        state |= {} if drawn is None else {"random_draws": drawn}
    record = {name: encoder.encode(value, name) for name, value in state.items()}
    manifest = {"format": FORMAT, "version": VERSION, "corvex": corvex.__version__}
    write_container(path, manifest, record, arrays.tables())


def load(path: str | os.PathLike[str], *, max_size: float = 2000.0) -> Report:
    """Open a report that `save` has written. Nothing in the file is run.

    Parameters
    ----------
    path : str or path
        The file.
    max_size : float, default 2000
        Most megabytes that its content may take, unpacked. A file that holds more is refused.

    Raises
    ------
    ValueError
        When it is no such file, is damaged, holds more than `max_size`, or was written by a newer
        version in a form that this one does not know; the message says which.
    OSError
        When it cannot be read.
    """
    budget = int(max_size * (1 << 20))
    manifest: Any = None
    try:
        manifest, record, tables = read_container(path, budget)
        _check_manifest(manifest)
        return _report(record, ArrayReader(tables, budget))
    except OSError:
        raise
    except DamagedFileError as error:
        raise ValueError(
            f"{os.fsdecode(path)} cannot be opened: {error}{_other_writer(manifest)}"
        ) from None
    except MemoryError:
        raise ValueError(f"{os.fsdecode(path)} cannot be opened: it holds too much") from None
    except Exception as error:  # the file may hold anything in any place
        raise ValueError(
            f"{os.fsdecode(path)} cannot be opened: it is damaged ({type(error).__name__}: "
            f"{str(error)[:200]}){_other_writer(manifest)}"
        ) from error


def _check_manifest(manifest: Any) -> None:
    if not isinstance(manifest, dict) or manifest.get("format") != FORMAT:
        raise DamagedFileError("it is no saved report")
    version = manifest.get("version")
    if version != VERSION:
        raise DamagedFileError(
            f"it is of version {version!r} of the format; this corvex reads {VERSION}"
        )


def _other_writer(manifest: Any) -> str:
    """Tell which corvex wrote a file, where it is another one: a newer one may write more."""
    written = manifest.get("corvex") if isinstance(manifest, dict) else None
    if written in (None, corvex.__version__):
        return ""
    return f" (it was written by corvex {str(written)[:20]}, this is {corvex.__version__})"


def _report(record: Any, arrays: ArrayReader) -> Report:
    if not isinstance(record, dict):
        raise DamagedFileError("it is no saved report")

    def special(tag: str, node: Any) -> Any:
        if tag == "market":
            return market_from_record(node, decoder)
        if tag == "execution":
            return _filled(ReportExecution, decoder.decode(node["v"]))
        if tag in _FINDINGS:
            return _finding(tag, decoder.decode(node["v"]))
        raise DamagedFileError(f"there is no kind of value {tag!r}")

    decoder = Decoder(arrays, special)
    report = _filled(Report, {name: decoder.decode(node) for name, node in record.items()})
    for name, kind in _NEEDED.items():
        if name not in record or not isinstance(getattr(report, name), kind):
            raise DamagedFileError(f"its {name} is missing, or no {kind}")
    for curve in (report.creturn, report.position):
        if not isinstance(curve.index, pd.DatetimeIndex):
            raise DamagedFileError("its curves have no dates")
    return report


def _filled[T](kind: type[T], state: Any) -> T:
    # A method cannot be replaced by what a file holds under its name.
    if (
        not isinstance(state, dict)
        or "metrics" in state
        or any(_is_method(kind, name) for name in state)
    ):
        raise DamagedFileError(f"it holds no state of a {kind.__name__}")
    made = object.__new__(kind)
    made.__dict__.update(state)
    return made


def _finding(tag: str, state: Any) -> Any:
    kind, kinds = _FINDINGS[tag]
    if not isinstance(state, dict) or not all(
        isinstance(state.get(field.name, field.default), kinds[str(field.type)])
        for field in fields(kind)
    ):
        raise DamagedFileError(f"it holds no state of a {kind.__name__}")
    # A newer version may know more, as an older one knew less.
    return kind(**{field.name: state[field.name] for field in fields(kind) if field.name in state})


def _is_method(kind: type, name: Any) -> bool:
    if not isinstance(name, str) or name.startswith("__") or name == "metrics":
        return True
    return callable(getattr(kind, name, None))
