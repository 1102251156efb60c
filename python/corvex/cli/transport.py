"""The commands for what leaves the process: ``export``, ``inspect`` and ``orders``."""

from __future__ import annotations

import json
from pathlib import Path
from typing import TYPE_CHECKING, Annotated, Any, Literal

import typer

from corvex.cli.saved import MaxSize, Trust, load_report, target_file
from corvex.files import atomic_open, write_text
from corvex.plaintext import printable

if TYPE_CHECKING:
    import pandas as pd

    from corvex.core.report import Report

__all__ = ["export", "inspect", "orders"]


Saved = Annotated[Path, typer.Argument(help="A saved report (.corvex or a pickle).")]


def export(
    file: Saved,
    out: Annotated[Path, typer.Option(help="File, or existing folder, to write to.")],
    format: Annotated[
        Literal["payload", "holdings", "execution", "csv", "parquet"],
        typer.Option(help="What to write: a dictionary as JSON, or a table."),
    ] = "payload",
    table: Annotated[
        Literal["trades", "equity", "positions"],
        typer.Option(help="The table of --format csv or parquet."),
    ] = "trades",
    all_trades: Annotated[
        bool, typer.Option("--all-trades", help="Put every trade into the payload, not 500.")
    ] = False,
    trust: Trust = False,
) -> None:
    """Write a saved report in a form that other programs read.

    The dictionaries are written as strict JSON: a figure that does not exist is null.
    """
    suffix = format if format in ("csv", "parquet") else f"{format}.json"
    target = target_file(out, f"{file.stem}.{suffix}")
    report = load_report(file, trust)
    if format in ("csv", "parquet"):
        _write_table(_report_table(report, table), target, format)
    else:
        text = _strict_json(_dictionary(report, format, None if all_trades else 500))
        write_text(target, text)
    print(f"Written to {target} ({target.stat().st_size:,} bytes)")


def inspect(
    file: Annotated[Path, typer.Argument(help="A JSON file that corvex export has written.")],
    max_size: MaxSize = 200,
) -> None:
    """Tell what is in a payload, and whether it is complete.

    A report, execution or holdings dictionary alone is read as well. Exit status 1 when something
    is wrong with it.
    """
    from corvex.cli.inspection import described, name_of_schema
    from corvex.cli.readers.table_source import check_size
    from corvex.schemas import problems

    check_size(file, file.stat().st_size, max_size)
    try:
        value = json.loads(file.read_text(encoding="utf-8-sig"))
    except (ValueError, RecursionError) as error:
        raise ValueError(f"{file.name} is not JSON: {error}") from None
    name, part = name_of_schema(value)
    print(f"{file.name}: {name}, {file.stat().st_size:,} bytes")
    found = problems(part, name)
    if not found:
        found += described(part, name)
    if found:
        print("\n".join(f"  {line}" for line in found[:20]))
        if len(found) > 20:
            print(f"  and {len(found) - 20} more")
        raise ValueError(f"{file.name} is no valid {name}: {len(found)} faults")
    print("valid")


def orders(
    file: Saved,
    capital: Annotated[
        float, typer.Option(help="What the account is worth: cash and what it holds.")
    ],
    prices: Annotated[
        Path | None,
        typer.Option(
            help="Last closes: a table of dates x assets, or of two columns, asset and price;"
            " by default those of the report's market."
        ),
    ] = None,
    held: Annotated[
        Path | None, typer.Option(help="Two columns: asset and quantity held; nothing by default.")
    ] = None,
    strategy: Annotated[
        str | None, typer.Option(help="Which of several strategies of the report.")
    ] = None,
    whole_lots: Annotated[
        bool, typer.Option("--whole-lots", help="Trade board lots only.")
    ] = False,
    out: Annotated[
        Path | None, typer.Option(help="Also write them, as .json or else as CSV.")
    ] = None,
    max_size: MaxSize = 200,
    trust: Trust = False,
) -> None:
    """List the orders that bring an account to a report's target weights."""
    import corvex
    from corvex.cli.readers.asset_file import read_assets

    target = target_file(out, "orders.csv") if out is not None else None
    report = load_report(file, trust)
    execution: Any = report.execution
    if strategy is not None:
        if not isinstance(execution, dict) or strategy not in execution:
            known = ", ".join(map(repr, execution)) if isinstance(execution, dict) else "none"
            raise ValueError(f"there is no strategy {strategy!r}; there are: {known}")
        execution = execution[strategy]
    result = corvex.orders(
        execution,
        capital,
        None if prices is None else read_assets(prices, max_size),
        None if held is None else read_assets(held, max_size),
        odd_lots=not whole_lots,
        fee_ratio=report.fee_ratio,
        tax_ratio=report.tax_ratio,
    )
    _print_orders(result)
    if target is not None:
        _write_orders(result, target)
        print(f"Written to {target}")


def _dictionary(report: Report, form: str, trades_limit: int | None) -> dict[str, Any]:
    if form == "payload":
        return report.to_payload_dict(trades_limit=trades_limit)
    if form == "holdings":
        return report.to_holdings_dict()
    from corvex.core.report import ReportExecution

    schedulers = getattr(report, "position_schedulers", None)
    return ReportExecution.to_dict_collection(schedulers or report.execution)


def _strict_json(value: object) -> str:
    from corvex.core.dashboard.serialize import plain_values

    return json.dumps(plain_values(value), ensure_ascii=False, allow_nan=False)


def _report_table(report: Report, name: str) -> pd.DataFrame:
    if name == "trades":
        return report.trades.reset_index(drop=True)
    if name == "positions":
        return report.position.rename_axis(index="date").reset_index()
    curves = {"equity": report.creturn}
    if len(report.benchmark):
        curves["benchmark"] = report.benchmark.reindex(report.creturn.index)
    return report.creturn.to_frame("equity").assign(**curves).rename_axis("date").reset_index()


def _write_table(table: pd.DataFrame, target: Path, form: str) -> None:
    if form == "csv":
        write_text(target, table.to_csv(index=False))
        return
    with atomic_open(target) as file:
        table.set_axis([str(name) for name in table.columns], axis=1).to_parquet(file)


def _print_orders(table: pd.DataFrame) -> None:
    if len(table) == 0:
        print("Nothing to trade.")
    else:
        shown = table.drop(columns=["weight", "asset_name"]).dropna(axis=1, how="all")
        shown = shown.assign(asset_id=shown["asset_id"].map(printable))
        print(shown.to_string(index=False, float_format=lambda number: f"{number:.10g}"))
    print(f"\nCosts {table.attrs['costs']:,.2f}, cash left over {table.attrs['cash']:,.2f}")


def _write_orders(table: pd.DataFrame, target: Path) -> None:
    if target.suffix == ".json":
        record = {"orders": table.to_dict(orient="records"), **table.attrs}
        text = _strict_json(record)
        write_text(target, text)
    else:
        _write_table(table, target, "csv")
