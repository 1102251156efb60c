"""What ``corvex inspect`` tells of a dictionary."""

from __future__ import annotations

from typing import Any

from corvex.core.trade_columns import decode_trades
from corvex.plaintext import printable
from corvex.schemas import names

__all__ = ["described", "name_of_schema"]

type Record = dict[str, Any]


def name_of_schema(value: object) -> tuple[str, Record]:
    """Return the schema of a dictionary, and the dictionary without an older envelope around it."""
    if not isinstance(value, dict):
        raise ValueError(f"a JSON object was expected, got {type(value).__name__}")
    inner = value.get("payload_v1")
    if isinstance(inner, dict):
        value = inner
    name = value.get("schema")
    if isinstance(name, str) and name in names():
        return name, value
    raise ValueError(f"its schema is {name!r}; known are {', '.join(names())}")


def described(part: Record, name: str) -> list[str]:
    """Print what is in a valid dictionary; return what its schema cannot tell to be wrong."""
    return _described(_one_line_texts(part), name)


def _one_line_texts(value: Any) -> Any:
    """Escape what could steer a terminal, or pass for a line of ours, in every text."""
    if isinstance(value, dict):
        return {_one_line_texts(key): _one_line_texts(member) for key, member in value.items()}
    if isinstance(value, list):
        return [_one_line_texts(member) for member in value]
    return printable(value) if isinstance(value, str) else value


def _described(part: Record, name: str) -> list[str]:
    if name == "report.payload.v1":
        faults = _described(part["report"], "report.v1")
        execution = part["execution"]
        named = {"": execution} if isinstance(execution.get("schema"), str) else execution
        for strategy, record in named.items():
            _print_execution(record, strategy)
        _print_holdings(part["holdings"])
        return faults
    if name == "report.v1":
        return _report(part)
    if name == "report.execution.v1":
        _print_execution(part, "")
    else:
        _print_holdings(part)
    return []


def _report(report: Record) -> list[str]:
    days, curve = report["timestamps"], report["strategy"]
    backtest, ratio = report["metrics"]["backtest"], report["metrics"]["ratio"]
    span = f"{days[0]} to {days[-1]}" if days else "no dates"
    print(f"  report: {span}, {len(days)} days, {backtest['market']}, freq {backtest['freq']}")
    print(
        f"    yearly return {_percent(report['metrics']['profitability']['annualReturn'])}, "
        f"largest drawdown {_percent(report['metrics']['risk']['maxDrawdown'])}, "
        f"Sharpe ratio {_figure(ratio['sharpeRatio'])}, benchmark {len(report['benchmark'])} days"
    )
    faults = []
    if len(days) != len(curve):
        faults.append(f"$.report: {len(days)} timestamps for {len(curve)} values of strategy")
    try:
        trades = decode_trades(report["trades"])
    except ValueError as error:
        return [*faults, f"$.report.trades: {error}"]
    still_open = int(trades["exit_date"].isna().sum()) if "exit_date" in trades else 0
    size = len(report["trades"])
    print(f"    {len(trades)} trades, {still_open} of them open ({size:,} bytes packed)")
    return faults


def _print_execution(record: Record, strategy: str) -> None:
    config = record["config"]
    title = f"execution {strategy!r}" if strategy else "execution"
    print(
        f"  {title}: {len(record['positions'])} assets, {config['market']}, rebalanced "
        f"{_schedule(config['resample'])}, next signal {config['nextSignalAt'] or 'unknown'}"
    )
    for position in record["positions"][:10]:
        label = f"{position['assetId']} {position['assetName']}".strip()
        now, then = _percent(position["currentWeight"]), _percent(position["nextWeight"])
        print(f"    {label}: {now} -> {then}, {position['action']}")
    if len(record["positions"]) > 10:
        print(f"    and {len(record['positions']) - 10} more")


def _print_holdings(holdings: Record) -> None:
    positions = holdings["positions"]
    actions = [position["action"] for position in positions]
    kinds = ", ".join(f"{actions.count(kind)} {kind}" for kind in dict.fromkeys(actions))
    print(f"  holdings: {len(positions)} positions" + (f": {kinds}" if kinds else ""))


def _schedule(resample: object) -> str:
    if isinstance(resample, list):
        return f"on {len(resample)} dates"
    return "when the weights change" if resample is None else f"by {resample}"


def _percent(number: float | None) -> str:
    return "-" if number is None else f"{number:.2%}"


def _figure(number: float | None) -> str:
    return "-" if number is None else f"{number:.2f}"
