"""Why positions end: the engine's reasons, what each asks for in live trading, and the words."""

from __future__ import annotations

from corvex import _engine

__all__ = ["ACTIONS", "EXIT_REASONS", "STOPS", "ExitReason", "action_text", "reason_text"]


class ExitReason:
    """One reason.

    Attributes
    ----------
    english, chinese : str
        How a page calls it.
    action : str
        What a report's actions say while such an exit waits for its fill; "" for none of its own.
    """

    __slots__ = ("action", "chinese", "english")

    def __init__(self, english: str, chinese: str, action: str = "") -> None:
        self.english = english
        self.chinese = chinese
        self.action = action


_KNOWN = {
    "": ExitReason("", ""),  # of a trade that is open
    "rebalance": ExitReason("rebalance", "換股"),
    "stop_loss": ExitReason("stop-loss", "停損", "sl"),
    "take_profit": ExitReason("take-profit", "停利", "tp"),
    "trail_stop": ExitReason("trailing stop", "移動停損", "sl"),
    "prices_ended": ExitReason("prices ended", "價格終止"),
    "ruin": ExitReason("equity at zero", "淨值歸零"),
    "margin": ExitReason("margin call", "追繳保證金"),
}

#: By name, in the order of the engine's codes.
EXIT_REASONS = {name: _KNOWN[name] for name in _engine.EXIT_REASONS}
#: The names of the stops, which are those of the options that set them, too.
STOPS = tuple(name for name, reason in EXIT_REASONS.items() if reason.action)
#: What a report's actions say of an asset -> how a reader is told, in English and Chinese.
ACTIONS = {
    "enter": ("enter", "進場"),
    "exit": ("exit", "出場"),
    "hold": ("hold", "續抱"),
    "sl": ("stop-loss", "停損"),
    "tp": ("take-profit", "停利"),
    "sl_": ("stop-loss, with the rebalance", "停損（併入換股）"),
    "tp_": ("take-profit, with the rebalance", "停利（併入換股）"),
}


def reason_text(reason: str, lang: str = "en") -> str:
    """Return what a reader calls an exit's reason, in "en" or "zh-Hant"; another one as it is."""
    known = EXIT_REASONS.get(reason)
    if known is None:
        return reason
    return known.english if lang == "en" else known.chinese


def action_text(action: str, lang: str = "en") -> str:
    """Return what a reader calls an action, in "en" or "zh-Hant"; another one as it is."""
    known = ACTIONS.get(action, (action, action))
    return known[lang != "en"]
