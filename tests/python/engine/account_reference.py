"""A slow simulator of a run that keeps an account, written from the guide: plain loops, bisection.

It has no stops: for these, runs on quoted prices with splits are compared with adjusted ones.
"""

from collections import Counter
from math import ceil, copysign, floor, inf, isnan, nan, sqrt
from statistics import stdev


def at(grid, t, j, otherwise=0.0):
    if grid is None:
        return otherwise
    return float(grid[0 if len(grid) == 1 else t][0 if len(grid[0]) == 1 else j])


def bisect(works, low, high):
    """The largest value that works, of those from low on."""
    if works(high):
        return high
    for _ in range(200):
        middle = (low + high) / 2
        low, high = (middle, high) if works(middle) else (low, middle)
    return low


class SlowAccount:
    def __init__(self, close, target, signal, terms, ratios):
        self.close, self.target, self.signal, self.k, self.ratios = (
            close, target, signal, terms, ratios,
        )  # fmt: skip
        self.count = len(close[0])
        self.cash = self.units = self.equity = terms.capital
        self.shares = [0.0] * self.count
        self.mark = [nan] * self.count
        self.latest, self.before = [nan] * self.count, [nan] * self.count
        self.waiting, self.rows, self.called = {}, [], False
        last = [[t for t, row in enumerate(close) if not isnan(row[j])] for j in range(self.count)]
        self.last = [days[-1] if days else -1 for days in last]

    def run(self):
        for t in range(len(self.close)):
            self.today = Counter()
            self.taken = Counter()
            self.begin(t)
            self.trade(t)
            self.end(t)
        return self

    def begin(self, t):
        k = self.k
        if t:
            years = float(k.years[t][0])
            values = self.marked(t - 1)
            shorts = -sum(value for value in values if value < 0)
            free = self.cash - shorts
            interest = max(free, 0) * at(k.cash_rate, t - 1, 0)
            interest += sum(
                -value * at(k.short_rebate, t - 1, j) for j, value in enumerate(values) if value < 0
            )
            interest *= years
            loan = max(-free, 0) * at(k.financing_rate, t - 1, 0) * years
            borrow = sum(
                -value * self.known_rate(t - 1, j) * years
                for j, value in enumerate(values)
                if value < 0
            )
            moved = sum(self.marked(t)) - sum(values)  # the prices have not
            self.today.update(interest=interest, financing=loan, borrow=borrow, currency=moved)
            self.cash += interest - loan - borrow
            self.equity += interest - loan - borrow
        for _, amount in (flow for flow in k.flows if flow[0] == t):
            self.units *= 1 + amount / self.equity
            self.equity += amount
            self.cash += amount
            self.today["flows"] += amount
        for j in range(self.count):  # the close of the day before, as a limit sees it
            if t and not isnan(self.close[t - 1][j]):
                self.latest[j] = self.close[t - 1][j]
        if t and k.years[t][0]:
            self.before = self.latest.copy()
        for when, j, ratio in zip(*k.splits, strict=True):
            if when == t:
                self.shares[j] *= ratio
                self.mark[j] /= ratio
                self.latest[j] /= ratio
                self.before[j] /= ratio
        for when, j, amount in zip(*k.dividends, strict=True):
            if when == t:
                gross = self.shares[j] * amount * self.fx(t, j)
                tax = max(gross, 0.0) * at(k.withholding_tax, t, j)
                self.cash += gross - tax
                self.today.update(dividends=gross, tax=tax)
                self.latest[j] -= amount
                self.before[j] -= amount

    def known_rate(self, t, j):
        rates = [at(self.k.borrow_rate, s, j) for s in range(t + 1)]
        return next((rate for rate in reversed(rates) if not isnan(rate)), 0.0)

    def fx(self, t, j):
        return 1.0 if self.k.fx is None else float(self.k.fx[t][self.k.fx_column[j]])

    def marked(self, t):
        marks = zip(self.shares, self.mark, strict=True)
        return [s * m * self.fx(t, j) if s else 0.0 for j, (s, m) in enumerate(marks)]

    def quote(self, t, j):
        return nan if t > self.last[j] else self.close[t][j]

    def price(self, t, j):
        return self.quote(t, j) * self.fx(t, j)

    def value(self, t, j):
        price = self.price(t, j)
        return self.marked(t)[j] if isnan(price) else self.shares[j] * price

    def worth(self, t):
        return self.cash + sum(self.value(t, j) for j in range(self.count))

    def cost(self, t, j, shares):
        """Fee, tax, slippage and impact of an order at this session's price."""
        k, price = self.k, self.price(t, j)
        grids = k.fee_ratio, k.tax_ratio, k.slippage_ratio
        given = ((at(grid, t, j, own), own) for grid, own in zip(grids, self.ratios, strict=True))
        fee, tax, slip = (own if isnan(value) else value for value, own in given)
        count, value = abs(shares), abs(shares) * price
        if not value:
            return 0.0, 0.0, 0.0, 0.0
        moved = min(self.impact(t, j) * sqrt(count), 0.5)
        done = value * (1 + copysign(slip + moved, shares))
        done_there = done / self.fx(t, j)  # a commission is counted in the asset's currency
        paid = done_there * fee
        if k.fees.fee_table:
            steps = [*k.fees.fee_table, (inf, 0.0)]
            paid = sum(
                ratio * max(0.0, min(done_there, steps[i + 1][0]) - start)
                for i, (start, ratio) in enumerate(k.fees.fee_table)
            )
        per_share = at(k.fee_per_share, 0, j, k.fees.fee_per_share)
        paid = max(paid + count * per_share, at(k.min_fee, 0, j, k.fees.min_fee))
        paid = min(paid, k.fees.max_fee_ratio * done_there) * self.fx(t, j)
        return paid, done * tax if shares < 0 else 0.0, value * slip, value * moved

    def need(self, t, j, shares, equity):
        """What it costs to hold so many shares; what is held already takes no order."""
        change = shares - self.shares[j]
        dust = shares and abs(change) * self.price(t, j) <= 1e-12 * equity
        return 0.0 if dust else sum(self.cost(t, j, change))

    def impact(self, t, j):
        k = self.k
        if not k.impact:
            return 0.0
        days = range(max(0, t - k.impact_window), t)
        grown = {s: self.grown(s, j) for s in [*days, t, *(d - 1 for d in days)] if s >= 0}
        moves = [
            self.close[s][j] * grown[s] / (self.close[s - 1][j] * grown[s - 1]) - 1
            for s in days
            if s > 0
        ]
        moves = [move for move in moves if not isnan(move)]
        volumes = [float(k.volume[s][j]) * grown[t] / grown[s] for s in days]
        volumes = [volume for volume in volumes if not isnan(volume)]
        if len(moves) < 2 or not volumes or not sum(volumes):
            return 0.0
        return k.impact * stdev(moves) / sqrt(sum(volumes) / len(volumes))

    def grown(self, t, j):
        result = 1.0
        for when, asset, ratio in zip(*self.k.splits, strict=True):
            result *= ratio if asset == j and when <= t else 1.0
        return result

    def trade(self, t):
        for j in range(self.count):
            if self.last[j] == t - 1 and self.shares[j]:  # prices have ended
                self.close[t][j], self.last[j] = self.mark[j], t
                self.order(t, j, 0.0)
                self.close[t][j], self.last[j] = nan, t - 1
        due = [row for row, when in enumerate(self.signal) if when + 1 == t]
        if due:
            self.rebalance(t, due[-1])
        else:
            if self.called:
                self.cut_for_margin(t)
            self.retry(t)

    def cut_for_margin(self, t):
        gross = sum(abs(self.value(t, j)) for j in range(self.count))
        share = self.worth(t) / (self.k.maintenance_margin * gross)
        if share < 1:
            self.waiting.clear()
            for j in range(self.count):
                if self.shares[j] and not isnan(self.price(t, j)):
                    self.order(t, j, self.allowed(t, j, share * self.shares[j])[0])

    def rebalance(self, t, row):
        self.waiting.clear()
        weights = self.target[row]
        before = self.worth(t)
        self.plan = sum(weights)
        free, fixed, fixed_weight = {}, 0.0, 0.0
        for j, weight in enumerate(weights):
            if not weight and not self.shares[j]:
                continue
            to = None if isnan(self.price(t, j)) else self.banded(t, j, weight, before)
            if to is None:
                fixed, fixed_weight = fixed + self.value(t, j), fixed_weight + weight
                if isnan(self.price(t, j)):
                    self.waiting[j] = weight, 0
            else:
                free[j] = to
        longs = sum(w for w in free.values() if w > 0)
        shorts = sum(w for w in free.values() if w <= 0)

        def shares_at(equity, total):
            return {
                j: (w * total / longs if w > 0 else w * equity) / self.price(t, j)
                for j, w in free.items()
            }

        def solve(total_of):
            def affordable(equity):
                wanted = shares_at(equity, total_of(equity))
                return equity + sum(self.need(t, j, s, equity) for j, s in wanted.items()) <= before

            equity = bisect(affordable, 0.0, before)
            return equity, shares_at(equity, total_of(equity))

        floor_share = min(0.0, 1 - (longs + shorts + fixed_weight))
        equity, wanted = solve(lambda e: longs * e)
        if longs and equity * (1 - longs - shorts) - fixed < equity * floor_share - 1e-13 * before:
            equity, wanted = solve(lambda e: max(0.0, e * (1 - shorts - floor_share) - fixed))
        if equity:  # else the orders would cost more than there is
            self.place(t, {j: (shares, weights[j]) for j, shares in wanted.items()}, equity)

    def banded(self, t, j, weight, equity):
        k, held = self.k, self.value(t, j) / equity
        if k.band is None or weight * held <= 0:
            return weight
        width = at(k.band, t, j) * (abs(weight) if k.band_relative else 1)
        if abs(held - weight) <= width:
            return None
        return weight + copysign(width, held - weight) if k.band_to_edge else weight

    def retry(self, t):
        ready = [j for j in self.waiting if not isnan(self.price(t, j))]
        sells = [j for j in ready if self.waiting[j][0] * self.worth(t) < self.value(t, j)]
        for j in sells + [j for j in ready if j not in sells]:
            weight, side = self.waiting.pop(j)
            equity, price, held = self.worth(t), self.price(t, j), self.shares[j]

            def affordable(left, j=j, weight=weight, price=price, held=held, equity=equity):
                return left + self.need(t, j, weight * left / price, left) <= equity

            left = bisect(affordable, 0.0, equity)
            if not left:  # the order would cost more than there is
                continue
            exact = weight * left / price
            if side * (exact - held) < 0:
                exact = held
            self.place(t, {j: (exact, weight)}, equity)

    def lots(self, j, shares, *, nearest=False):
        lot = at(self.k.lot_size, 0, j)
        if not lot:
            return shares
        whole = ceil(abs(shares) / lot - 0.5 - 1e-9) if nearest else floor(abs(shares) / lot + 1e-9)
        return copysign(whole * lot, shares)

    def furthest(self, limit, rounded):
        ticks = [tick for start, tick in self.k.price_ticks if start <= limit]
        whole = 1e-9 if rounded is floor else -1e-9
        return rounded(limit / ticks[-1] + whole) * ticks[-1] if ticks else limit

    def allowed(self, t, j, exact):
        k, held = self.k, self.shares[j]
        after = self.lots(j, exact, nearest=k.round_to_nearest)
        if after < min(held, 0) and isnan(at(k.borrow_rate, t, j)):
            after = min(held, 0)
        if after == held:
            return held, False
        if k.price_limit is not None and not isnan(self.before[j]):
            limit, reference = at(k.price_limit, t, j), self.before[j]
            opens = self.quote(t, j) if k.opens is None else at(k.opens, t, j)
            opens = self.quote(t, j) if isnan(opens) else opens
            if after > held and opens >= self.furthest(reference * (1 + limit), floor) * (1 - 1e-9):
                return held, True
            if after < held and opens <= self.furthest(reference * (1 - limit), ceil) * (1 + 1e-9):
                return held, True
        if k.volume_share:
            room = k.volume_share * float(k.volume[t][j]) - self.taken[j]
            room = 0.0 if isnan(room) else max(room, 0.0)
            if abs(after - held) > room:
                return held + copysign(self.lots(j, room), after - held), True
        return after, False

    def place(self, t, wanted, equity):
        after = {}
        for j, (exact_shares, weight) in wanted.items():
            dust = abs(exact_shares - self.shares[j]) * self.price(t, j) <= 1e-12 * equity
            exact = self.shares[j] if exact_shares and dust else exact_shares
            after[j], unfilled = self.allowed(t, j, exact)
            if unfilled and not self.k.unfilled_lapses:
                self.waiting[j] = weight, 1 if exact > self.shares[j] else -1
        for j in [j for j in after if after[j] <= self.shares[j]]:
            self.order(t, j, after.pop(j))
        lowest = min(0.0, 1 - self.plan) * equity

        def spent(share=1.0):
            orders = {j: self.part(j, after[j], share) for j in after}
            return sum(s * self.price(t, j) + sum(self.cost(t, j, s)) for j, s in orders.items())

        if self.k.round_to_nearest:
            gained = {j: (after[j] - wanted[j][0]) * self.price(t, j) for j in after}
            for j in sorted(after, key=lambda j: -gained[j]):
                if gained[j] > 0 and self.cash - spent() < lowest:
                    after[j] = max(self.lots(j, wanted[j][0]), self.shares[j])
        if after and self.cash - spent() < lowest - 1e-12 * equity:
            share = bisect(lambda share: self.cash - spent(share) >= lowest, 0.0, 1.0)
            for j in after:
                cover = self.part(j, after[j], 0.0)
                more = self.part(j, after[j], share) - cover
                least = self.shares[j] + cover
                more = more if more * self.price(t, j) > 1e-12 * equity else 0.0
                after[j] = max(self.lots(j, least + more), least)
        for j, shares in after.items():
            self.order(t, j, shares)

    def part(self, j, after, share):
        cover = min(after - self.shares[j], max(0.0, -self.shares[j]))
        return cover + share * (after - self.shares[j] - cover)

    def order(self, t, j, after):
        change = after - self.shares[j]
        if not change:
            return
        fee, tax, slippage, impact = self.cost(t, j, change)
        self.today.update(fees=fee, tax=tax, slippage=slippage, impact=impact)
        self.cash -= change * self.price(t, j) + fee + tax + slippage + impact
        self.shares[j] = after
        self.mark[j] = self.quote(t, j)
        self.taken[j] += abs(change)

    def end(self, t):
        for j, price in enumerate(self.close[t]):
            self.mark[j] = self.mark[j] if isnan(price) else price
        values = self.marked(t)
        self.equity = self.cash + sum(values)
        gross = sum(map(abs, values))
        self.called = gross > 0 and self.equity < self.k.maintenance_margin * gross
        longs = sum(value for value in values if value > 0)
        self.today.update(cash=self.cash, equity=self.equity, units=self.units, long=longs)
        self.today["short"] = sum(values) - longs
        self.rows.append(self.today)
