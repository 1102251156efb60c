"""What is to be said of a run that kept an account: orders that were cut, money that ran out."""

from __future__ import annotations

from typing import TYPE_CHECKING

from corvex.simulation.notices import date_text, warn
from corvex.simulation.plan.plan import Plan
from corvex.simulation.read.clock import Clock

if TYPE_CHECKING:
    from corvex._engine import SimulationResult
    from corvex.simulation.account.account_terms import AccountTerms

__all__ = ["CUTS", "tell_of_account"]

#: Why orders were cut, in the order of the engine's bits.
CUTS = ("borrow", "price_limit", "volume", "cash", "margin")
_TOLD = {
    "borrow": "short sales were cut, as the asset cannot be borrowed (borrow_rate is missing)",
    "margin": "positions were cut by the maintenance margin",
}


def tell_of_account(
    result: SimulationResult, plan: Plan, clock: Clock, terms: AccountTerms
) -> None:
    """Warn of what was not done as the weights, or the flows, wanted it.

    Raises
    ------
    ValueError
        When a withdrawal leaves nothing.
    """
    found, labels = result["account"], plan.labels
    if found["overdrawn_session"] >= 0:
        date = date_text(clock.index[found["overdrawn_session"]])
        raise ValueError(f"the withdrawal of {date} is no less than the equity of that time")

    def first(counts: tuple[int, int, int]) -> str:
        return f"the first that of {labels[counts[2]]!r} on {date_text(clock.index[counts[1]])}"

    for name, counts in zip(CUTS, found["cuts"], strict=True):
        if counts[0] and name in _TOLD:
            warn(f"{counts[0]} {_TOLD[name]}; {first(counts)}")
    counts = found["unknown_volume"]
    if counts[0]:
        warn(
            f"{counts[0]} orders met a session whose volume is missing, so nothing of them filled "
            f"there; {first(counts)}"
        )
    counts = found["unpaid"]
    if counts[0]:
        warn(
            f"{counts[0]} rebalances were left out, as their costs would have been more than the "
            f"equity, the first on {date_text(clock.index[counts[1]])}; is the capital too small "
            "for the fees?"
        )
    _tell_of_lost_flows(result["ruin_session"], clock, terms.flows)
    _tell_of_nothing(result, plan, terms)


def _tell_of_nothing(result: SimulationResult, plan: Plan, terms: AccountTerms) -> None:
    """Tell why a run that wanted to trade never did."""
    found = result["account"]
    if plan.is_idle or result["executed_rebalance"] < 0 or result["traded"].any():
        return
    cuts = [name for name, counts in zip(CUTS, found["cuts"], strict=True) if counts[0]]
    if cuts:
        warn(f"nothing was traded: every order was cut ({', '.join(cuts)})")
    elif terms.lot_size is not None:
        warn(
            "nothing was traded: no target comes to a whole lot; is the capital of "
            f"{terms.capital:g} too small, or its default?"
        )


def _tell_of_lost_flows(ruin: int, clock: Clock, flows: list[tuple[int, float]]) -> None:
    late = [session for session, amount in flows if 0 <= ruin < session and amount]
    if late:
        warn(
            f"{len(late)} flows after the equity fell to zero on {date_text(clock.index[ruin])}, "
            f"the first on {date_text(clock.index[late[0]])}, were left out: a curve of 0 stays 0, "
            "whatever is paid in; begin another run there"
        )
