"""Times corvex beside its peers: python bench/run.py [CASE ...].

Each contestant runs in a process and an environment of its own, one after the other, on the same
input. Prints a table for each case, and writes all results to build/bench.json.
"""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
from pathlib import Path
from typing import Any

import numpy as np

import environments
import machine
from cases import CASES, Case, Goal

HERE = Path(__file__).parent
BUILD = HERE.parent / "build"
SCRIPTS = {"corvex": "corvex_itself.py"}

Row = dict[str, Any]
VERDICTS: list[tuple[bool, str]] = []  # reached or not, and what was asked


def run_contestant(name: str, case: str, data: Path) -> list[Row] | None:
    """Return a row for each entry, none where something it needs is not there; None on failure."""
    # As an installation has it, with byte code: start and import are timed in new processes.
    environment = {**os.environ, "PYTHONPATH": str(HERE)}
    environment.pop("PYTHONDONTWRITEBYTECODE", None)
    script = HERE / "contestants" / SCRIPTS.get(name, f"peer_{name}.py")
    command = [environments.interpreter(name), "-W", "ignore", script, case, data]
    done = subprocess.run(
        command,
        check=False,
        stdout=subprocess.PIPE,
        text=True,
        env=environment,
    )
    if done.returncode:
        print(f"{name} failed on {case}", file=sys.stderr)
        return None
    result = json.loads(done.stdout.splitlines()[-1])
    return [{"contestant": name, "version": result["version"], **e} for e in result["entries"]]


def run_case(case: Case, variant: str) -> tuple[list[Row], bool]:
    """Return the rows of all contestants, and whether one of them failed."""
    folder = BUILD / "bench-data"
    folder.mkdir(parents=True, exist_ok=True)
    data = folder / f"{' '.join([case.name, variant]).strip().replace(' ', '-')}.npz"
    case.prepare(data, variant)
    found = [run_contestant(name, case.name, data) for name in case.contestants]
    data.unlink()
    return [row for rows in found if rows for row in rows], None in found


def seconds(value: float) -> str:
    for unit, size in (("s", 1.0), ("ms", 1e-3), ("us", 1e-6)):
        if value >= size:
            return f"{value / size:.3g} {unit}"
    return f"{value / 1e-9:.3g} ns"


def show(case: Case, variant: str, rows: list[Row]) -> None:
    print(f"\n{case.name}{variant and ' ' + variant}: {case.title}")
    if "equity" in rows[0]:
        show_agreement(rows)
    else:
        show_times(case, variant, rows)


def show_agreement(rows: list[Row]) -> None:
    """Print how far each equity curve is from the first, relative, at the worst date."""
    first = np.array(rows[0]["equity"])
    for row in rows:
        equity = np.array(row["equity"])
        distance = np.max(np.abs(equity / first - 1)) if len(equity) == len(first) else np.nan
        print(f"  {_title(row)}: {len(equity)} days to {equity[-1]:.6f}, off by {distance:.1e}")


def show_times(case: Case, variant: str, rows: list[Row]) -> None:
    heads = {r["label"]: r["best"] for r in rows if r["contestant"] == "corvex"}
    columns = [c for c in case.columns if c in heads]
    width = max(len(_title(r)) for r in rows)
    memory = any("peak" in r for r in rows)
    line = f"  {'':{width}}  {'best':>9}  {'median':>9}"
    line += f"  {'peak':>9}" if memory else ""
    print(line + "".join(f"   / {c}" for c in columns))
    for row in rows:
        line = f"  {_title(row):{width}}  {seconds(row['best']):>9}  {seconds(row['median']):>9}"
        if memory:
            line += f"  {row['peak']:>5.0f} MiB" if "peak" in row else " " * 11
        print(line + "".join(f"  {row['best'] / heads[c]:>{len(c) + 3},.3g}" for c in columns))
    for label, most in {**case.limits, **case.limits_of.get(variant, {})}.items():
        if label in heads:
            wish = f"{label.strip()} at most {seconds(most)}"
            got = f"{seconds(heads[label])}, {heads[label] / most:.2g} of it"
            judge(case, variant, wish, heads[label] <= most, got)
    peaks = {r["label"]: r["peak"] for r in rows if r["contestant"] == "corvex" and "peak" in r}
    for label, most in case.room.items():
        if label not in peaks:
            continue
        wish = f"{label} at most {most:.0f} MiB"
        got = f"{peaks[label]:.0f} MiB, {peaks[label] / most:.2g} of it"
        judge(case, variant, wish, peaks[label] <= most, got)
    for goal in case.goals:
        if variant.startswith(goal.variant):
            show_goal(case, variant, goal, rows)
    for goal in case.lean:
        show_lean(case, variant, goal, rows)


def _title(row: Row) -> str:
    return f"{row['contestant']} {row['version']}  {row['label']}"


def judge(case: Case, variant: str, wish: str, reached: bool, got: str) -> None:
    """Print whether a goal was reached, and keep it for the table at the end."""
    verdict = f"{wish}: {'reached' if reached else 'MISSED'} ({got})"
    print(f"  goal: {verdict}")
    VERDICTS.append((reached, f"{case.name}{variant and ' ' + variant}: {verdict}"))


def show_verdicts() -> None:
    """Print all goals of the run once more, those that were missed last."""
    missed = sum(not reached for reached, _ in VERDICTS)
    print(f"\ngoals: {len(VERDICTS) - missed} reached, {missed} missed")
    for _, verdict in sorted(VERDICTS, key=lambda one: not one[0]):
        print(f"  {verdict}")


def show_goal(case: Case, variant: str, goal: Goal, rows: list[Row]) -> None:
    ours = [r["best"] for r in rows if r["contestant"] == "corvex" and r["label"] == goal.ours]
    peer = [r["best"] for r in rows if goal.peer in (r["contestant"], r["label"])]
    if ours and peer:
        ratio = peer[0] / ours[0]
        if goal.factor < 1:
            wish, got = f"at most {1 / goal.factor:g} times {goal.peer.strip()}", 1 / ratio
        else:
            wish, got = f"at least {goal.factor:g} times faster than {goal.peer.strip()}", ratio
        judge(case, variant, f"{goal.ours.strip()} {wish}", ratio >= goal.factor, f"{got:.3g}")


def show_lean(case: Case, variant: str, goal: Goal, rows: list[Row]) -> None:
    """Judge how far one call's peak of memory is below another's."""
    ours = [r["peak"] for r in rows if "peak" in r and r["label"] == goal.ours]
    peer = [r["peak"] for r in rows if "peak" in r and r["contestant"] == goal.peer]
    if ours and peer:
        ratio = peer[0] / max(ours[0], 1e-9)
        wish = f"{goal.ours} in a peak at least {goal.factor:g} times below that of {goal.peer}"
        judge(case, variant, wish, ratio >= goal.factor, f"{ratio:.3g}")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("case", nargs="*", choices=[[], *(c.name for c in CASES)], metavar="CASE")
    chosen = parser.parse_args().case
    about = machine.describe()
    print(", ".join(f"{key} {value}" for key, value in about.items()))
    results = []
    failed = False
    for case in CASES:
        if chosen and case.name not in chosen:
            continue
        for variant in case.variants:
            rows, has_failed = run_case(case, variant)
            if rows:
                show(case, variant, rows)
            failed |= has_failed
            results.append({"case": case.name, "variant": variant, "rows": rows})
    show_verdicts()
    target = BUILD / "bench.json"
    partial = target.with_suffix(".part")
    partial.write_text(json.dumps({"machine": about, "results": results}, indent=1))
    partial.replace(target)
    print(f"\nwritten: {target.relative_to(HERE.parent)}")
    sys.exit(failed)


if __name__ == "__main__":
    main()
