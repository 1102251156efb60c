"""Gives the readers what no writer wrote: each input must yield a whole result or a ValueError.

    python tests/fuzz/readers.py RUNS [SEED]

Deterministic: a run fails again with the same seed. The input of a failure is printed, and told
before the call in the file that FUZZ_TRACE names, should the process end in the middle.
"""

import base64
import gzip
import io
import json
import os
import sys
import tempfile
import time
import warnings
import zipfile
from collections import Counter
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

sys.path.insert(0, str(Path(__file__).parent))

from mutate import Mutator

import corvex
from corvex.core.report import Report, ReportExecution
from corvex.core.trade_columns import decode_trades

LONGEST = 10.0  # seconds for one input: far more is a hang
ATTRIBUTES = (
    "weights next_weights resample actions next_trading_date trade_at market stop_loss take_profit "
    "trail_stop total_weight data_readiness planned_rebalance_date"
).split()


def real_report() -> corvex.Report:
    """A small one, so that changes hit what matters."""
    days = pd.bdate_range("2024-01-02", periods=60)
    walk = np.random.default_rng(1).normal(0, 0.02, (60, 3)).cumsum(axis=0)
    prices = pd.DataFrame(np.exp(walk), days, ["2330 Chips", "AAPL", "C"])
    weights = pd.DataFrame({"2330 Chips": 0.5, "AAPL": [0.5, 0.0, 0.5] * 4}, days[::5])
    return corvex.simulate(weights, prices, market="us_stock", resample="W", stop_loss=0.05)


def real_records() -> dict[str, list[Any]]:
    """Dictionaries as reports write them."""
    report = real_report()
    days = report.position.index
    execution = report.execution
    dated = execution._replace(resample=list(days[:3]), take_profit=0.2)
    payload = report.to_payload_dict(trades_limit=5)
    return {
        "execution": [execution.to_dict(), dated.to_dict(), report.position_info2(),
                      execution.to_legacy_position_info2()],
        "collection": [ReportExecution.to_dict_collection({"a": execution, "config": dated})],
        "payload": [payload, {"payload_v1": payload}, payload["report"]],
        "rows": [json.loads(gzip.decompress(base64.b64decode(payload["report"]["trades"])))],
    }  # fmt: skip


def packed(content: bytes) -> str:
    return base64.b64encode(gzip.compress(content, 1)).decode()


class Fuzzer:
    """Draws inputs and judges what the readers make of them."""

    def __init__(self, seed: int) -> None:
        self.mutator = Mutator(seed)
        self.records = real_records()
        self.counts: Counter[str] = Counter()
        self.slowest = 0.0
        self.trace = os.environ.get("FUZZ_TRACE")
        self.targets: list[tuple[str, Callable[[Any], Any], Callable[[], Any]]] = [
            ("from_dict", ReportExecution.from_dict, lambda: self._drawn("execution")),
            ("from_json", ReportExecution.from_json, lambda: self._drawn("execution")),
            ("collection", ReportExecution.from_dict_collection, lambda: self._drawn("collection")),
            ("payload", Report.from_payload_dict, lambda: self._drawn("payload")),
            ("decode_trades", decode_trades, self._trades_text),
            ("load", self._loaded, self._saved_file),
        ]
        self.folder = tempfile.TemporaryDirectory()
        self.file = Path(self.folder.name) / "fuzzed.corvex"
        corvex.save(real_report(), self.file)
        self.saved = self.file.read_bytes()
        with zipfile.ZipFile(self.file) as parts:
            self.parts = {name: parts.read(name) for name in parts.namelist()}

    def _drawn(self, kind: str) -> Any:
        if self.mutator.random.random() < 0.15:
            return self.mutator.value()
        return self.mutator.mutated(self.mutator.random.choice(self.records[kind]))

    def _trades_text(self) -> Any:
        layer = self.mutator.random.random()
        rows = self._drawn("rows")
        if layer < 0.1:
            return rows  # no text at all
        text = json.dumps(rows)
        if layer < 0.75:
            return packed(text.encode("utf-8", "replace"))
        if layer < 0.85:
            return packed(self.mutator.flipped(text.encode("utf-8", "replace")))
        stream = gzip.compress(text.encode("utf-8", "replace"), 1)
        if layer < 0.95:
            return base64.b64encode(self.mutator.flipped(stream)).decode()
        return self.mutator.flipped(base64.b64encode(stream)).decode("latin-1")

    def _saved_file(self) -> bytes:
        layer = self.mutator.random.random()
        if layer < 0.3:
            return self.mutator.flipped(self.saved)
        parts = dict(self.parts)
        name = self.mutator.random.choice(list(parts) if layer < 0.6 else ["report.json"])
        if layer < 0.6:
            parts[name] = self.mutator.flipped(parts[name])
        else:
            text = json.dumps(self.mutator.mutated(json.loads(parts[name])))
            parts[name] = text.encode("utf-8", "replace")
        content = io.BytesIO()
        with zipfile.ZipFile(content, "w", zipfile.ZIP_DEFLATED) as file:
            for part, value in parts.items():
                file.writestr(part, value)
        return content.getvalue()

    def _loaded(self, content: bytes) -> corvex.Report:
        self.file.write_bytes(content)
        return corvex.load(self.file)

    def run(self, runs: int) -> None:
        for number in range(runs):
            name, read, draw = self.targets[number % len(self.targets)]
            given = draw()
            if self.trace:
                Path(self.trace).write_text(f"{number} {name} {given!r}", errors="replace")
            begun = time.perf_counter()
            try:
                outcome = self._judged(name, read, given, thorough=number % 97 < len(self.targets))
            except BaseException:
                print(f"input {number} of {name}: {given!r}"[:20_000].encode(errors="replace"))
                raise
            self.counts[f"{name}: {outcome}"] += 1
            self.slowest = max(self.slowest, time.perf_counter() - begun)
            assert self.slowest < LONGEST, f"input {number} of {name} took {self.slowest:.1f} s"

    def _judged(self, name: str, read: Callable[[Any], Any], given: Any, thorough: bool) -> str:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")  # pandas warns of some texts that it guesses dates from
            try:
                result = read(given)
            except ValueError:
                return "refused"
            if name == "payload":
                assert list(result) == ["schema", "report", "execution", "holdings"]
            elif name == "load":
                assert len(result.creturn.index) == len(result.creturn)
            elif name == "decode_trades":
                assert isinstance(result, pd.DataFrame)
            else:
                several = result.values() if isinstance(result, dict) else [result]
                for execution in several:
                    self._check_whole(execution, thorough)
        return "read"

    @staticmethod
    def _check_whole(execution: ReportExecution, thorough: bool) -> None:
        assert all(hasattr(execution, name) for name in ATTRIBUTES)
        assert execution.weights.index.equals(execution.next_weights.index)
        if thorough:
            json.dumps(execution.to_dict())


def main() -> None:
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 100_000
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    fuzzer = Fuzzer(seed)
    begun = time.perf_counter()
    fuzzer.run(runs)
    seconds = time.perf_counter() - begun
    for outcome, count in sorted(fuzzer.counts.items()):
        print(f"  {outcome:<24}{count:>10,}")
    print(f"{runs:,} inputs, seed {seed}: {seconds:.0f} s, slowest {fuzzer.slowest * 1e3:.0f} ms")


if __name__ == "__main__":
    main()
