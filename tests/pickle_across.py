"""Saves reports in one environment and reads them in another, with another pandas.

    python tests/pickle_across.py write FOLDER
    python tests/pickle_across.py read FOLDER
    python tests/pickle_across.py try FOLDER      tell what cannot be read instead of failing

pandas 2.2 cannot read what pandas 3 has pickled: text columns and dates in microseconds are of
types that it does not know. Files go forward only.
"""

from __future__ import annotations

import json
import sys
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

import corvex
from corvex.core.report import Report

KINDS = ("daily", "intraday", "labels")


def made(kind: str) -> Report:
    """A report whose dates and labels pandas stores in a kind of its own."""
    days = pd.bdate_range("2023-01-02", periods=200)
    if kind == "intraday":
        days = pd.date_range("2024-01-02", periods=300, freq="h", tz="Asia/Taipei")
    walk = np.random.default_rng(2).normal(0, 0.02, (len(days), 3)).cumsum(axis=0)
    names = ["2330 台積電", "1101", "2603"] if kind == "labels" else ["A", "B", "C"]
    prices = pd.DataFrame(np.exp(walk), days, names)
    weights = (prices.pct_change(10).rank(axis=1) > 1).astype(float).iloc[10::10] / 2
    market = {"daily": "us_stock", "intraday": "crypto", "labels": "tw_stock"}[kind]
    return corvex.simulate(
        weights, prices, market=market, stop_loss=0.1, benchmark=prices.iloc[:, 1]
    )


def answers(report: Report) -> dict[str, Any]:
    """What must be the same in both environments."""
    holdings = json.dumps(report.position_info2()["positions"])
    trades = report.get_trades()
    stats = report.get_stats()
    return {
        "cagr": round(stats["cagr"], 12),
        "positions": report.execution.to_dict()["positions"],
        "holdings": json.loads(holdings, parse_constant=str),
        "trades": [str(value) for value in trades["entry_date"]],
        "text": report.to_text("x"),
    }


def outcome(file: Path) -> str:
    try:
        Report.from_pickle(file)
    except Exception as error:
        return f"not readable: {type(error).__name__}: {str(error).splitlines()[:1]}"[:100]
    return "readable"


def main() -> None:
    action, folder = sys.argv[1], Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    for kind in KINDS:
        file, expected = folder / f"{kind}.pkl", folder / f"{kind}.json"
        if action == "write":
            report = made(kind)
            report.to_pickle(file)
            expected.write_text(json.dumps(answers(report)))
        elif action == "try":
            print(f"  {kind}: {outcome(file)}")
        else:
            found = json.loads(json.dumps(answers(Report.from_pickle(file))))
            assert found == json.loads(expected.read_text()), f"{file} answers otherwise"
    print(f"pandas {pd.__version__}: {action} {', '.join(KINDS)}")


if __name__ == "__main__":
    main()
