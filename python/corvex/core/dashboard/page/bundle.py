"""Leaving out of the charting library's script what no chart of a page uses.

The script knows some fifty kinds of charts, maps and three dimensions among them; a page draws
three. The rest would be three quarters of what a browser unpacks and compiles before the first
chart stands.
"""

from __future__ import annotations

import re
from collections import Counter
from collections.abc import Collection
from itertools import pairwise

__all__ = ["without_unused"]

# The bundler wraps each module, `var a=wrap((exports,module)=>{...});`, so that it runs when `a()`
# is called for the first time. Modules of the newer kind have a wrapper of their own, and their
# functions and variables stand beside it: those too are of use only after that call.
_WRAPPER = re.compile(r"([\w$]+)=\(\w+,(\w+)\)=>\(\)=>.{0,20}?\b\2\|\|\(?\w+\(\(\2=\{exports:")
_NEW_WRAPPER = re.compile(r"([\w$]+)=\((\w+),(\w+)(?:,\w+)?\)=>\(\)=>.{0,60}?\b\3=\2\(\2=0\)")
_CALL = re.compile(r"(?<![\w$.])([A-Za-z_$][\w$]*)\(\)")

# The module that is run hands all kinds but lines, which are always there, to the core.
_KINDS = re.compile(r"\.register\(\[((?:[\w$]+\(\),?){20,})\]\)")
_ENTRY = re.compile(r"return ([\w$]+)\(\);?\}")


def without_unused(script: str, kinds: Collection[str]) -> str:
    """Return the script with those modules alone that some kinds of charts need.

    Parameters
    ----------
    script : str
        The library's script, bundled and minified.
    kinds : collection of str
        Names of the kinds beside lines ("scatter"), such as "bar".

    Returns
    -------
    str
        The script as it is where it is bundled in an unknown way: it then starts slower.
    """
    wrapper = _WRAPPER.search(script)
    lists = list(_KINDS.finditer(script))
    if wrapper is None or len(lists) != 1:
        return script
    new = _NEW_WRAPPER.search(script)
    wrappers = "|".join(re.escape(found[1]) for found in (wrapper, new) if found)
    parts = _parts(script, wrapper[1])
    named = re.compile(rf"(?<![\w$.])([\w$]+)=(?:{wrappers})\(")
    homes = [(name, at) for at, part in enumerate(parts) for name in named.findall(part)]
    home = dict(homes)
    entry = _ENTRY.search(parts[-1])
    if len(home) < len(homes) or entry is None or home.get(entry[1]) != len(parts) - 1:
        return script
    listed = _CALL.findall(lists[0][1])
    kept = [name for name in listed if name in home and _kind(name, parts, home) in kinds]
    if len(kept) != len(kinds):
        return script
    calls = "".join(f"{name}()," for name in kept)
    parts[-1] = parts[-1].replace(lists[0][0], f".register([{calls}])")
    needed = sorted(_reached(parts, home))
    alone = Counter(home.values())
    return "".join(
        _run_at_once(parts[at], wrapper[1]) if alone[at] == 1 else parts[at] for at in needed
    )


def _parts(script: str, wrapper: str) -> list[str]:
    """Cut the script before each wrapped module; what follows a module stays with it."""
    starts = [m.end() for m in re.finditer(rf";(?=var [\w$]+={re.escape(wrapper)}\()", script)]
    return [script[start:end] for start, end in pairwise([0, *starts, len(script)])]


def _run_at_once(part: str, wrapper: str) -> str:
    """Put the function of a module with nothing beside it in parentheses.

    Nearly all modules that are kept run at the start. A browser parses such a function once; one
    without parentheses it reads over first, and parses when it is called.
    """
    module = re.fullmatch(rf"(var [\w$]+={re.escape(wrapper)}\()(.*\}})(\);)", part, re.DOTALL)
    return f"{module[1]}({module[2]}){module[3]}" if module else part


def _kind(name: str, parts: list[str], home: dict[str, int]) -> str | None:
    """The kind of chart that a listed module, which only passes another on, stands for."""
    passed_on = re.search(r"exports=([\w$]+)\(\)", parts[home[name]])
    if passed_on is None or passed_on[1] not in home:
        return None
    kind = re.search(r'moduleType:"trace",name:"(\w+)"', parts[home[passed_on[1]]])
    return kind and kind[1]


def _reached(parts: list[str], home: dict[str, int]) -> set[int]:
    """Places of the parts that run or can be called: the first and the last, and what they call.

    A call in a text or of a local function of the same name keeps a part too many, which does no
    harm.
    """
    reached: set[int] = set()
    waiting = [0, len(parts) - 1]
    while waiting:
        at = waiting.pop()
        if at not in reached:
            reached.add(at)
            waiting += [home[name] for name in _CALL.findall(parts[at]) if name in home]
    return reached
