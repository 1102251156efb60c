"""Pages of the engine's headers: each declaration with the comment that stands above it."""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from pathlib import Path

from sphinx.application import Sphinx

ENGINE = Path(__file__).parents[2] / "src" / "corvex" / "engine"
FOLDERS = {
    "portfolio": "The simulator",
    "statistics": "Figures of a curve",
    "drawdown": "Drawdowns",
    "calendar": "Periods and schedules",
    "series": "Bars, periods and returns",
    "trades": "Round trips",
    "metrics": "Cells of tables",
    "confidence": "Skill or luck",
    "core": "Dates, tables, threads",
}
# Parts of the simulator that its header needs and nobody calls.
INNER = {
    "asset_set", "book", "cooldowns", "lanes", "pending_exits", "rebalance_solver", "require",
    "row_rebalance", "stop_monitor", "waiting_orders",
}  # fmt: skip
KIND = re.compile(r"(?:struct|class|enum class|using) (\w+)")
NAME = re.compile(r"(\w+)(?:\(| = |\{)")
COMMAND = re.compile(r"@(param|throws|return)\s+(?:(\S+)\s+)?")


@dataclass
class Declaration:
    """What stands at the namespace's level: its comment, and its code without bodies."""

    comment: list[str] = field(default_factory=list)
    code: list[str] = field(default_factory=list)

    @property
    def name(self) -> str:
        line = next(text for text in self.code if not text.startswith("template"))
        found = KIND.match(line) or NAME.search(" ".join(self.code))
        return found[1] if found else line

    @property
    def is_whole(self) -> bool:
        """Whether the last line ends it."""
        last = self.code[-1]
        if self.code[0].startswith(("struct", "class", "enum")) and self.code[0].endswith("{"):
            return last == "};"
        if any(line.endswith("{") for line in self.code):
            return last == "}"
        return last.endswith((";", "}"))


def declarations(text: str) -> list[Declaration]:
    """The declarations of a header, in its order."""
    inside = text.partition("namespace corvex::engine::inline v1 {\n")[2]
    inside = inside.rpartition("} // namespace")[0]
    found: list[Declaration] = []
    now = Declaration()
    for line in inside.splitlines():
        if not now.code and line.startswith("///"):
            now.comment.append(line[3:].removeprefix(" "))
        elif not now.code and (not line or line.startswith("//")):
            now = Declaration()
        else:
            now.code.append(line)
            if now.is_whole:
                now.code = without_bodies(now.code)
                found.append(now)
                now = Declaration()
    return found


def without_bodies(code: list[str]) -> list[str]:
    """What a reader of an interface wants: no private part, no body of a function."""
    if code[-1] != "};":
        kept = []
        for line in code:
            head, brace, _ = line.partition(" {")
            kept.append(head + ";" if brace else line)
            if brace:
                break
        return kept
    kept, hidden = [], False
    for line in code[:-1]:
        hidden = hidden or line.strip() == "private:"
        if not hidden:
            kept.append(line)
    while kept and not kept[-1].strip():
        kept.pop()
    return [*kept, code[-1]]


def prose(comment: list[str]) -> str:
    """A comment's text: lists stay, Doxygen's commands become a list."""
    lines = []
    for line in comment:
        command = COMMAND.match(line)
        if command is None:
            lines.append(line.replace("<", "\\<"))
            continue
        what, name = command.groups()
        rest = line[command.end() :]
        if what == "return":
            rest = " ".join(part for part in (name, rest) if part)
            name = None
        label = {"param": f"`{name}`", "throws": f"Throws `{name}`", "return": "Returns"}[what]
        previous = lines[-1] if lines else ""
        if previous and not previous.startswith(("- ", "  ")):
            lines.append("")
        lines.append(f"- {label} {rest.strip()}")
    return "\n".join(lines)


def page(folder: str, title: str) -> str:
    """The page of a folder of headers."""
    parts = [f"# {title}\n"]
    for header in sorted((ENGINE / folder).glob("*.hpp")):
        if header.stem in INNER:
            continue
        entries = declarations(header.read_text(encoding="utf-8"))
        if entries:
            parts.append(f"## {header.name}\n")
            parts.append(f'`#include "corvex/engine/{folder}/{header.name}"`\n')
        for entry in entries:
            code = "\n".join(entry.code)
            parts.append(f"### `{entry.name}`\n\n{prose(entry.comment)}\n")
            parts.append(f"```cpp\n{code}\n```\n")
    return "\n".join(parts)


def write_pages(app: Sphinx) -> None:
    """Write those that changed, so that Sphinx reads only these again."""
    target = Path(app.srcdir, "reference", "engine")
    target.mkdir(exist_ok=True)
    for folder in sorted(place.name for place in ENGINE.iterdir() if place.is_dir()):
        title = FOLDERS.get(folder, folder.capitalize())
        place, text = target / f"{folder}.md", page(folder, title)
        if not place.exists() or place.read_text(encoding="utf-8") != text:
            place.write_text(text, encoding="utf-8")


def setup(app: Sphinx) -> dict[str, bool]:
    app.connect("builder-inited", write_pages)
    return {"parallel_read_safe": True, "parallel_write_safe": True}
