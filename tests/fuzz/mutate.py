"""Random JSON, and random changes of real JSON."""

import copy
import random
from typing import Any

_TEXTS = (
    "", " ", "A", "2330 Chips", "hold", "exit_p_sl", "NaT", "nan", "None", "now", "today", "ME",
    "2024-01-02", "2024-01-02T03:04:05.678901+08:00", "2024-01-02T25:00:00", "0000-00-00",
    "9999-12-31", "1677-09-21", "2262-04-12T00:00:00", "-2024-01-01", "2024-W05", "20240102",
    "1704153600", "1e400", "\ud800", "\x00", "\U0001f4ca", "x" * 5000, "tw_stock", "us_stock",
    "crypto", "2024-01-02 00:00:00 America/New_York", "2024-01-02T00:00:00+99:99", "01/02/2024",
)  # fmt: skip
_NUMBERS = (
    0, -1, 1, 0.5, -0.0, 1e-320, 1e308, float("nan"), float("inf"), -float("inf"), 2**31, 2**53,
    2**63, -(2**63), 2**64, 10**30, 10**400, 9.2e9, 9.3e9, -9.3e9, 1704153600.0, 1704153600000,
)  # fmt: skip
_KEYS = (
    "schema", "positions", "config", "positionConfig", "assetId", "asset_id", "assetName",
    "currentWeight", "nextWeight", "action", "market", "scheduled", "resample", "stopLoss",
    "takeProfit", "trailStop", "totalWeight", "currentSignalAt", "nextSignalAt", "currentWeightsAt",
    "currentRebalanceDate", "nextRebalanceDate", "plannedRebalanceDate", "dataReadiness",
    "entryTradePrice", "sl", "tp", "ts", "payload_v1", "report", "execution", "holdings", "trades",
    "timestamps", "strategy", "metrics", "symbol", "entryDate", "entry_date", "return", "",
)  # fmt: skip


class Mutator:
    """Deterministic by its seed."""

    def __init__(self, seed: int) -> None:
        self.random = random.Random(seed)

    def scalar(self) -> Any:
        choice = self.random.random()
        if choice < 0.4:
            return self.random.choice(_TEXTS)
        if choice < 0.8:
            return self.random.choice(_NUMBERS)
        if choice < 0.9:
            return self.random.choice((None, True, False))
        return "".join(chr(self.random.randrange(1, 0x3000)) for _ in range(8))

    def key(self) -> str:
        return self.random.choice(_KEYS) if self.random.random() < 0.9 else str(self.scalar())

    def value(self, depth: int = 3) -> Any:
        """Return any JSON value."""
        choice = self.random.random()
        if depth == 0 or choice < 0.5:
            return self.scalar()
        if choice < 0.505:
            return self._deep()
        count = self.random.randrange(4)
        if choice < 0.75:
            return [self.value(depth - 1) for _ in range(count)]
        return {self.key(): self.value(depth - 1) for _ in range(count)}

    def _deep(self) -> Any:
        nest: Any = self.scalar()
        for _ in range(self.random.choice((50, 400))):
            nest = [nest] if self.random.random() < 0.5 else {self.key(): nest}
        return nest

    def mutated(self, value: Any) -> Any:
        """Return a copy of a JSON value with one to four changes somewhere inside."""
        root = [copy.deepcopy(value)]
        for _ in range(self.random.randint(1, 4)):
            holder, at = self._place(root)
            self._change(holder, at)
        return root[0]

    def _place(self, root: list[Any]) -> tuple[Any, Any]:
        """Walk down to a random member; early members of long lists come first."""
        holder: Any = root
        at: Any = 0
        while True:
            inner = holder[at]
            if not isinstance(inner, dict | list) or not inner or self.random.random() < 0.15:
                return holder, at
            holder = inner
            at = self.random.choice(list(inner)) if isinstance(inner, dict) else (
                self.random.randrange(min(len(inner), 8))
            )  # fmt: skip

    def _change(self, holder: Any, at: Any) -> None:
        choice = self.random.randrange(6)
        old = holder[at]
        if choice == 0 and isinstance(holder, dict):
            del holder[at]
        elif choice == 1 and isinstance(holder, dict):
            holder[self.key()] = holder.pop(at)
        elif choice == 2 and isinstance(old, str) and old:
            cut = self.random.randrange(len(old))
            holder[at] = old[:cut] + str(self.random.choice(_TEXTS)) + old[cut + 1 :]
        elif choice == 3 and isinstance(old, list | dict):
            members = list(old) if isinstance(old, list) else list(old.values())
            numbered = {str(number): member for number, member in enumerate(members)}
            holder[at] = members if isinstance(old, dict) else numbered
        elif choice == 4:
            holder[at] = [copy.deepcopy(old), self.value(1)]
        else:
            holder[at] = self.value()

    def flipped(self, content: bytes) -> bytes:
        """Return bytes with a few changed, cut off or doubled."""
        changed = bytearray(content)
        for _ in range(self.random.randint(1, 4)):
            if changed:
                changed[self.random.randrange(len(changed))] = self.random.randrange(256)
        cut = self.random.randrange(len(changed) + 1)
        return bytes(self.random.choice((changed, changed[:cut], changed + changed[:cut])))
