"""Saves reports in one environment and reads them in another, with another pandas.

    python tests/pickle_across.py write FOLDER
    python tests/pickle_across.py read FOLDER
    python tests/pickle_across.py try FOLDER      tell what cannot be read instead of failing

pandas 2.2 cannot read what pandas 3 has pickled: text columns and dates in microseconds are of
types that it does not know. Files go forward only.
"""

import json
import sys
from pathlib import Path
from typing import Any

import pandas as pd

from corvex.core.report import Report

sys.path.insert(0, str(Path(__file__).parent / "python"))

from transport.reports import report as made

KINDS = ("stops", "intraday", "taiwan")  # dates and labels that pandas stores in kinds of their own


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
