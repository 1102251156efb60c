"""``corvex export``: a saved report for other programs."""

from __future__ import annotations

from pathlib import Path
from typing import TYPE_CHECKING, Annotated, Any, Literal

from corvex.cli.declared import Option
from corvex.cli.parameters import Saved, Trust
from corvex.cli.saved import load_report, target_file

if TYPE_CHECKING:
    import pandas as pd

    from corvex.core.report import Report

__all__ = ["export"]


def export(
    file: Saved,
    out: Annotated[Path, Option(help="File, or existing folder, to write to.")],
    format: Annotated[
        Literal["payload", "holdings", "execution", "csv", "parquet", "xlsx"],
        Option(help="What to write: a dictionary as JSON, a table, or a workbook."),
    ] = "payload",
    table: Annotated[
        Literal["trades", "equity", "positions"] | None,
        Option(help="The table of --format csv or parquet; trades by default."),
    ] = None,
    all_trades: Annotated[
        bool, Option("--all-trades", help="Put every trade into the payload, not 500.")
    ] = False,
    xlsx: Annotated[
        bool,
        Option(
            "--xlsx",
            help="Write a workbook (as --format xlsx): figures, monthly returns, holdings, trades "
            "and daily equity.",
        ),
    ] = False,
    lang: Annotated[
        Literal["en", "zh-Hant"] | None,
        Option(help="Language of a workbook; en by default."),
    ] = None,
    trust: Trust = False,
) -> None:
    """Write a saved report in a form that other programs read.

    The dictionaries are written as strict JSON: a figure that does not exist is null. A workbook
    needs openpyxl: pip install 'corvex[excel]'.
    """
    from corvex.cli.written import strict_json, write_table
    from corvex.files import write_text

    if xlsx and format not in ("payload", "xlsx"):
        raise ValueError(f"--xlsx writes a workbook, --format {format} something else; give one")
    format = "xlsx" if xlsx else format
    if lang is not None and format != "xlsx":
        raise ValueError(f"--lang is for a workbook, --format {format} has no language")
    if table is not None and format not in ("csv", "parquet"):
        raise ValueError(f"--table is for --format csv or parquet, --format {format} has none")
    if all_trades and format != "payload":
        raise ValueError(f"--all-trades is for a payload, not for --format {format}")
    suffix = format if format in ("csv", "parquet", "xlsx") else f"{format}.json"
    target = target_file(out, f"{file.stem}.{suffix}")
    report = load_report(file, trust)
    if format == "xlsx":
        from corvex.exporting import save_workbook

        save_workbook(report, target, language=lang or "en")
    elif format in ("csv", "parquet"):
        write_table(_report_table(report, table or "trades"), target, format)
    else:
        text = strict_json(_dictionary(report, format, None if all_trades else 500))
        write_text(target, text)
    print(f"Written to {target} ({target.stat().st_size:,} bytes)")


def _dictionary(report: Report, form: str, trades_limit: int | None) -> dict[str, Any]:
    if form == "payload":
        return report.to_payload_dict(trades_limit=trades_limit)
    if form == "holdings":
        return report.to_holdings_dict()
    from corvex.core.report import ReportExecution

    schedulers = getattr(report, "position_schedulers", None)
    return ReportExecution.to_dict_collection(schedulers or report.execution)


def _report_table(report: Report, name: str) -> pd.DataFrame:
    if name == "trades":
        return report.trades.reset_index(drop=True)
    if name == "positions":
        return report.position.rename_axis(index="date").reset_index()
    curves = {"equity": report.creturn}
    if len(report.benchmark):
        curves["benchmark"] = report.benchmark.reindex(report.creturn.index)
    return report.creturn.to_frame("equity").assign(**curves).rename_axis("date").reset_index()
