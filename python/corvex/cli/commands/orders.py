"""``corvex orders``: what to trade to come to a report's weights."""

from __future__ import annotations

from pathlib import Path
from typing import TYPE_CHECKING, Annotated, Any

from corvex.cli.declared import Option
from corvex.cli.parameters import MaxSize, Saved, Trust
from corvex.cli.saved import load_report, target_file

if TYPE_CHECKING:
    import pandas as pd

__all__ = ["orders"]


def orders(
    file: Saved,
    capital: Annotated[float, Option(help="What the account is worth: cash and what it holds.")],
    prices: Annotated[
        Path | None,
        Option(
            help="Last closes: a table of dates x assets, or of two columns, asset and price;"
            " by default those of the report's market."
        ),
    ] = None,
    held: Annotated[
        Path | None, Option(help="Two columns: asset and quantity held; nothing by default.")
    ] = None,
    strategy: Annotated[
        str | None, Option(help="Which of several strategies of the report.")
    ] = None,
    whole_lots: Annotated[
        bool | None,
        Option(
            "--whole-lots/--odd-lots",
            help="Trade board lots only, or odd lots too; by default the lots of the account that"
            " the report was simulated with, else odd lots too.",
        ),
    ] = None,
    out: Annotated[Path | None, Option(help="Also write them, as .json or else as CSV.")] = None,
    max_size: MaxSize = 200,
    trust: Trust = False,
) -> None:
    """List the orders that bring an account to a report's target weights."""
    import corvex
    from corvex.cli.readers.asset_file import read_assets

    target = target_file(out, "orders.csv") if out is not None else None
    report = load_report(file, trust)
    source: Any = report
    fee_ratio: float | None = None
    tax_ratio: float | None = None
    if strategy is not None:
        execution: Any = report.execution
        if not isinstance(execution, dict) or strategy not in execution:
            known = ", ".join(map(repr, execution)) if isinstance(execution, dict) else "none"
            raise ValueError(f"there is no strategy {strategy!r}; there are: {known}")
        source = execution[strategy]
        fee_ratio, tax_ratio = report.fee_ratio, report.tax_ratio
    result = corvex.orders(
        source,
        capital,
        None if prices is None else read_assets(prices, max_size),
        None if held is None else read_assets(held, max_size),
        odd_lots=None if whole_lots is None else not whole_lots,
        fee_ratio=fee_ratio,
        tax_ratio=tax_ratio,
    )
    _print_orders(result)
    if target is not None:
        _write_orders(result, target)
        print(f"Written to {target}")


def _print_orders(table: pd.DataFrame) -> None:
    from corvex.plaintext import printable

    if len(table) == 0:
        print("Nothing to trade.")
    else:
        shown = table.drop(columns=["weight", "asset_name"]).dropna(axis=1, how="all")
        shown = shown.assign(asset_id=shown["asset_id"].map(printable))
        print(shown.to_string(index=False, float_format=lambda number: f"{number:.10g}"))
    print(f"\nCosts {table.attrs['costs']:,.2f}, cash left over {table.attrs['cash']:,.2f}")


def _write_orders(result: pd.DataFrame, target: Path) -> None:
    from corvex.cli.written import strict_json, write_table
    from corvex.files import write_text

    if target.suffix == ".json":
        write_text(
            target, strict_json({"orders": result.to_dict(orient="records"), **result.attrs})
        )
    else:
        write_table(result, target, "csv")
