"""A slow simulator in plain Python, written from the rules and not from the engine.

It keeps whole lists of what each position saw and finds the equity of a rebalance by bisection.
"""

from dataclasses import dataclass, field
from math import inf, isfinite, isnan, nan

OPEN, REBALANCE, STOP_LOSS, TAKE_PROFIT, TRAIL_STOP, ENDED, RUIN = range(7)


@dataclass
class Position:
    shares: float
    sign: int
    asset: int
    rebalance: int
    session: int
    quoted: float
    executed: float
    weight: float
    best: float
    seen: list = field(default_factory=list)  # closes (and the exit) that it lived through
    bars: list = field(default_factory=list)  # those of them that count as bars
    stop: tuple | None = None  # (session, reason) of a stop that waits for its fill

    def gain(self, price):
        return self.sign * (price / self.executed - 1)


@dataclass
class Case:
    close: list
    target: list
    signal: list
    first: int = 0
    fill_at: str = "close"
    fill: list | None = None
    open: list | None = None
    high: list | None = None
    low: list | None = None
    fee: float = 0.0
    tax: float = 0.0
    slippage: float = 0.0
    stop_loss: float = inf
    take_profit: float = inf
    trail_stop: float = inf
    touched: bool = False
    cooldown: int = 0


class SlowSimulator:
    def __init__(self, case: Case):
        self.c = case
        self.sessions, self.assets = len(case.close), len(case.close[0])
        priced = [
            [t for t in range(self.sessions) if not isnan(case.close[t][j])]
            for j in range(self.assets)
        ]
        self.last_priced = [p[-1] if p else -1 for p in priced]
        self.cash = 1.0
        self.held: dict[int, Position] = {}
        self.value_price = [nan] * self.assets  # what a missing price counts as
        self.weights = [0.0] * self.assets
        self.waiting: dict[int, tuple] = {}  # asset -> (rebalance, weight)
        self.out_for = [0] * self.assets  # rebalances that a stopped asset still stays out of
        self.leaving: dict[int, float] = {}  # shares of ended trips that an order takes over
        self.ordered: dict[int, float] | None = None  # holdings before the orders of a session
        self.trades, self.equity, self.cashes, self.position, self.paid = [], [], [], [], []
        self.executed, self.ruined, self.broke = -1, -1, False

    def cost(self, change):
        """Fee, tax and slippage of a trade by its signed quoted value."""
        c, size = self.c, abs(change)
        executed = size * (1 + c.slippage) if change > 0 else size * (1 - c.slippage)
        return executed * c.fee, executed * c.tax * (change < 0), size * c.slippage, size

    def total_cost(self, change):
        return sum(self.cost(change)[:3])

    def run(self):
        for t in range(self.c.first, self.sessions):
            self.paid.append([0.0] * 4)
            if self.ruined < 0:
                self.session(t)
            else:
                self.equity.append(0.0)
                self.cashes.append(0.0)
            self.position.append(list(self.weights))
        if self.ruined < 0:
            self.signal_beyond()
        self.trades.sort(key=lambda x: (x["entry_rebalance"], x["asset"]))
        return self

    def session(self, t):
        c = self.c
        self.ordered = None
        stops = min(c.stop_loss, c.take_profit, c.trail_stop) < inf
        for j in sorted(self.held):
            if self.last_priced[j] == t - 1:
                self.exit(j, t, self.value_price[j], (ENDED, t, -1))
        if stops and c.touched and c.fill_at != "open":
            self.touch(t)
        before = dict(self.held)
        self.orders(t)
        if stops and c.touched and c.fill_at == "open":
            self.touch(t)
        for j, position in self.held.items():
            price = c.close[t][j]
            old = before.get(j) is position
            if isnan(price):
                continue
            if stops and not c.touched and (old or c.fill_at != "close"):
                self.check_close(t, position, price)
            if old or c.fill_at != "close":
                position.seen.append(price)
                position.bars.append(price)
            if not c.touched and (old or c.fill_at != "close"):
                position.best = self.better(position, position.best, price)
            self.value_price[j] = price
        for j in range(self.assets):
            if j not in self.held and not isnan(c.close[t][j]):
                self.value_price[j] = c.close[t][j]
        equity = self.cash + sum(p.shares * self.value_price[j] for j, p in self.held.items())
        if equity <= 0 or self.broke:
            self.ruined, equity = t, 0.0
            for j in sorted(self.held):
                self.exit(j, t, self.value_price[j], (RUIN, t, -1))
            self.cash = 0.0
            self.waiting.clear()
        self.equity.append(equity)
        self.cashes.append(self.cash)

    @staticmethod
    def better(position, a, b):
        return max(a, b) if position.sign > 0 else min(a, b)

    def levels(self, p):
        loss = p.executed - p.sign * p.executed * self.c.stop_loss
        profit = p.executed + p.sign * p.executed * self.c.take_profit
        trail = p.best - p.sign * p.best * self.c.trail_stop
        return loss, profit, trail

    def check_close(self, t, p, price):
        if p.stop:
            return
        loss, profit, trail = (p.sign * level for level in self.levels(p))
        seen = p.sign * price
        if seen <= loss:
            p.stop = (t, STOP_LOSS)
        elif seen <= trail:
            p.stop = (t, TRAIL_STOP)
        elif seen >= profit:
            p.stop = (t, TAKE_PROFIT)
        if p.stop:
            self.waiting.pop(p.asset, None)
            self.out_for[p.asset] = self.c.cooldown

    def touch(self, t):
        c = self.c
        for j in sorted(self.held):
            p = self.held[j]
            worst, best = (c.low, c.high) if p.sign > 0 else (c.high, c.low)
            worst, best = p.sign * worst[t][j], p.sign * best[t][j]
            start = p.sign * c.open[t][j] if c.open else nan
            loss, profit, trail = (p.sign * level for level in self.levels(p))
            lower = max(loss, trail)
            reason = TRAIL_STOP if trail > loss else STOP_LOSS
            if not (worst <= lower or best >= profit):
                if not isnan(best):
                    p.best = self.better(p, p.best, p.sign * best)
                continue
            if start <= lower:
                price = start
            elif start >= profit:
                price, reason = start, TAKE_PROFIT
            elif worst <= lower:
                price = lower if isnan(best) else min(lower, best)
            else:
                price, reason = profit if isnan(worst) else max(profit, worst), TAKE_PROFIT
            self.waiting.pop(j, None)
            self.out_for[j] = c.cooldown
            at_orders, cause = p.sign * price == self.price(j, t), (reason, t, -1)
            if at_orders and c.fill_at != "open" and t - 1 in c.signal:
                self.leave(j, t, p.sign * price, cause, touched=True)
                continue
            if at_orders and self.ordered is not None:
                # The session's order filled at this price: only the net of both is traded.
                before = self.ordered.get(j, 0.0)
                self.pay((p.shares - before) * self.price(j, t), back=True)
                p.shares = before
            self.exit(j, t, p.sign * price, cause, touched=True)

    def price(self, j, t):
        table = self.c.close if self.c.fill_at == "close" else self.c.fill
        ok = t <= self.last_priced[j] and isfinite(table[t][j]) and table[t][j] > 0
        return table[t][j] if ok else nan

    def orders(self, t):
        due = [r for r, s in enumerate(self.c.signal) if s + 1 == t]
        for j in sorted(self.held):
            p = self.held[j]
            if p.stop and not isnan(self.price(j, t)):
                ends = self.leave if due or j in self.waiting else self.exit
                ends(j, t, self.price(j, t), (p.stop[1], p.stop[0], -1))
        if due:
            self.rebalance(due[-1], t)
        elif self.waiting:
            self.retry(t)
        for j, shares in self.leaving.items():  # no order came about
            self.pay(-shares * self.price(j, t))
            self.weights[j] = 0.0
        self.leaving.clear()

    def leave(self, j, t, price, cause, touched=False):
        """End a round trip whose shares an order takes over at the same price."""
        self.leaving[j] = self.held[j].shares
        self.finish(self.held[j], t, price, cause, touched)

    def holdings(self):
        return {j: p.shares for j, p in self.held.items()}

    def worth(self, j, t):
        """Value of a holding at the fill."""
        if j in self.leaving:
            return self.leaving[j] * self.price(j, t)
        if j not in self.held:
            return 0.0
        price = self.price(j, t)
        return self.held[j].shares * (self.value_price[j] if isnan(price) else price)

    def rebalance(self, r, t):
        self.waiting.clear()
        weights = self.wanted_weights(r)
        self.out_for = [max(0, left - 1) for left in self.out_for]
        owned = {*self.held, *self.leaving}
        wanted = [j for j in range(self.assets) if weights[j] != 0 or j in owned]
        free = [j for j in wanted if not isnan(self.price(j, t))]
        stuck = sum(self.worth(j, t) for j in wanted if j not in free)
        before = self.cash + sum(self.worth(j, t) for j in wanted)
        if before <= 0:
            self.broke = True
            return

        def equity_of(scale):
            def targets(equity):
                return {j: weights[j] * equity * (scale if weights[j] > 0 else 1) for j in free}

            low, high = 0.0, before
            for _ in range(200):
                middle = (low + high) / 2
                new = targets(middle)
                spent = sum(self.total_cost(new[j] - self.worth(j, t)) for j in free)
                low, high = (low, middle) if middle + spent > before else (middle, high)
            return high, targets(high)

        equity, new = equity_of(1.0)
        floor = min(0.0, 1 - sum(weights))
        if equity <= 1e-14:  # no equity above zero pays for these costs
            self.broke = True
            return
        if equity - sum(new.values()) - stuck < floor * equity - 1e-13:
            small, large = 0.0, 1.0
            for _ in range(100):
                scale = (small + large) / 2
                equity, new = equity_of(scale)
                fits = equity - sum(new.values()) - stuck >= floor * equity
                small, large = (scale, large) if fits else (small, scale)
            equity, new = equity_of(small if small > 1e-12 else 0.0)
        self.executed, self.ordered = r, self.holdings()
        for j in free:
            self.fill(j, t, new[j], weights[j], r)
        self.waiting = {j: (r, weights[j]) for j in wanted if j not in free}
        self.total_weight = sum(weights)

    def wanted_weights(self, r):
        return [0.0 if left else w for w, left in zip(self.c.target[r], self.out_for, strict=True)]

    def retry(self, t):
        ready = [j for j in sorted(self.waiting) if not isnan(self.price(j, t))]
        equity = self.cash + sum(self.worth(j, t) for j in {*self.held, *self.leaving})
        if ready:
            self.ordered = self.holdings()

        def is_sell(j):
            return self.waiting[j][1] * equity < self.worth(j, t)

        for j in [j for j in ready if is_sell(j)] + [j for j in ready if not is_sell(j)]:
            r, weight = self.waiting.pop(j)
            held = self.worth(j, t)
            equity = self.cash + sum(self.worth(k, t) for k in {*self.held, *self.leaving})
            if equity <= 0:
                self.broke = True
                continue
            low, high = -10.0 * abs(equity) - 10 * abs(held), 10.0 * abs(equity) + 10 * abs(held)
            for _ in range(200):
                middle = (low + high) / 2
                short_of = held + middle < weight * (equity - self.total_cost(middle))
                low, high = (middle, high) if short_of else (low, middle)
            change = high
            if change > 0:
                floor = min(0.0, 1 - self.total_weight) * equity
                cover = min(change, max(0.0, -held))
                unit = 1 + self.total_cost(1.0)
                extra = max(0.0, (self.cash - floor - cover * unit) / unit)
                change = cover + (min(change - cover, extra) if extra > 1e-12 * equity else 0.0)
            self.fill(j, t, held + change, weight, r)

    def fill(self, j, t, value, weight, r):
        if abs(value) < 1e-14:
            value = 0.0
        price, old = self.price(j, t), self.held.get(j)
        change = value - self.worth(j, t)
        self.pay(change)
        self.leaving.pop(j, None)
        sign = (value > 0) - (value < 0)
        if old and old.sign != sign:
            self.finish(old, t, price, (REBALANCE, self.c.signal[r], r))
        if sign and not (old and old.sign == sign):
            slip = 1 + sign * self.c.slippage
            self.held[j] = Position(0.0, sign, j, r, t, price, price * slip, weight, price * slip)
        if sign:
            self.held[j].shares = value / price
        self.weights[j] = weight if sign else 0.0
        self.value_price[j] = price

    def pay(self, change, back=False):
        sign = -1 if back else 1
        parts = [sign * part for part in self.cost(change)]
        self.paid[-1] = [a + b for a, b in zip(self.paid[-1], parts, strict=True)]
        self.cash -= sign * change + sum(parts[:3])

    def exit(self, j, t, price, cause, touched=False):
        p = self.held[j]
        self.pay(-p.shares * price)
        self.finish(p, t, price, cause, touched)
        self.weights[j] = 0.0

    def finish(self, p, t, price, cause, touched=False):
        del self.held[p.asset]
        p.seen.append(price)
        ends_bar = self.c.fill_at == "close" and cause[0] not in (ENDED, RUIN)
        if ends_bar and t > p.session:
            p.bars.append(price)
        self.record(p, price, cause, exit_session=t)

    def record(self, p, price, cause, exit_session):
        c, closed = self.c, exit_session >= 0
        buy, sell = (1 + c.slippage) * (1 + c.fee), (1 - c.slippage) * (1 - c.fee - c.tax)
        paid = p.quoted * (buy if p.sign > 0 else sell)
        back = price * ((sell if p.sign > 0 else buy) if closed else 1)
        peak, mae, mfe, mfe_before, drawdown = 1.0, 0.0, 0.0, 0.0, 0.0
        for seen in p.seen:
            gain = p.gain(seen)
            mfe, peak = max(mfe, gain), max(peak, 1 + gain)
            if gain < mae:
                mae, mfe_before = gain, mfe
            drawdown = min(drawdown, (1 + gain) / peak - 1)
        end = exit_session if closed else self.sessions - 1
        self.trades.append({
            "asset": p.asset, "entry_rebalance": p.rebalance, "exit_rebalance": cause[2],
            "exit_signal_session": cause[1], "entry_session": p.session,
            "exit_session": exit_session, "exit_reason": cause[0], "entry_price": p.quoted,
            "exit_price": price if closed else nan, "weight": p.weight,
            "return": p.sign * (back / paid - 1), "period": end - p.session, "mae": mae,
            "mfe": mfe, "mfe_before_mae": mfe_before, "max_drawdown": drawdown,
            "days_in_profit": sum(p.gain(bar) > 0 for bar in p.bars),
        })  # fmt: skip

    def signal_beyond(self):
        pending = [r for r, s in enumerate(self.c.signal) if s == self.sessions - 1]
        orders = dict(self.waiting)
        if pending:
            orders = {j: (pending[-1], w) for j, w in enumerate(self.wanted_weights(pending[-1]))}
        causes = {}
        for j, (r, weight) in orders.items():
            p = self.held.get(j)
            if p and not p.stop and p.sign * weight <= 0:
                causes[j] = (REBALANCE, self.c.signal[r], r)
            if weight and (not p or p.stop or p.sign * weight < 0):
                empty = dict.fromkeys(
                    ("entry_price", "exit_price", "return", "period", "mae", "mfe",
                     "mfe_before_mae", "max_drawdown", "days_in_profit"), nan
                )  # fmt: skip
                self.trades.append({
                    "asset": j, "entry_rebalance": r, "exit_rebalance": -1,
                    "exit_signal_session": -1, "entry_session": -1, "exit_session": -1,
                    "exit_reason": OPEN, "weight": weight, **empty,
                })  # fmt: skip
        for j, p in self.held.items():
            stop = (p.stop[1], p.stop[0], -1) if p.stop else None
            cause = stop or causes.get(j, (OPEN, -1, -1))
            self.record(p, self.value_price[j], cause, exit_session=-1)
