#include "corvex/engine/portfolio/row_rebalance.hpp"

#include "corvex/engine/core/lanes.hpp"
#include "corvex/engine/portfolio/require.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kRounding = 1e-12;

/// Calls `part(k, get)` for four assets from k on; `get(span, to, rest)` loads what the span has
/// for them, and `rest` for those beyond its end.
template <typename Part>
[[gnu::always_inline]] inline void for_lanes(std::size_t count, const Part& part) {
    std::size_t k = 0;
    for (; k + kLanes <= count; k += kLanes) {
        part(k, [k](std::span<const double> from, Lanes& to, double)
                    __attribute__((always_inline)) { load(from.data() + k, to); });
    }
    if (k < count) {
        part(k, [k, count](std::span<const double> from, Lanes& to, double rest) {
            to = Lanes{} + rest;
            for (std::size_t lane = 0; k + lane < count; ++lane) {
                to[lane] = from[k + lane];
            }
        });
    }
}

} // namespace

/// What one pass over the row finds at some equity.
struct RowRebalance::Pass {
    double bought;
    double net;
    double invested;
    double constant; ///< costs = constant + slope x equity near it
    double slope;
};

RowRebalance::RowRebalance(const Costs& costs, std::size_t assets)
    : buy_rate_{costs.buy_rate()}, sell_rate_{costs.sell_rate()}, assets_{assets},
      held_(assets + kLanes, 0.0), shares_(assets + kLanes, 0.0) {}

CORVEX_VECTOR_CLONES
RowRebalance::Sums RowRebalance::read(const Row& row) {
    Lanes value{};
    Lanes weight{};
    LaneMask bad{};
    for_lanes(assets_, [&](std::size_t k, const auto& get) __attribute__((always_inline)) {
        Lanes shares;
        Lanes price;
        Lanes target;
        get(row.shares, shares, 0.0);
        get(row.prices, price, 1.0);
        get(row.weights, target, 0.0);
        const LaneMask used = (shares != 0.0) | (target != 0.0);
        const LaneMask tradable = (price > 0.0) & (price < kInfinity);
        bad |= used & ~tradable;
        const Lanes held = used != 0 ? shares * price : Lanes{};
        value += held;
        weight += target;
        store(held, &held_[k]);
    });
    return {any(bad) ? kNaN : sum(value), sum(weight)};
}

RowRebalance::Solution RowRebalance::solve(const Row& row, double equity_before) {
    constexpr int kMostSteps = 64;
    double equity = equity_before;
    if (buy_rate_ != 0.0 || sell_rate_ != 0.0) {
        equity = step(row, equity_before, equity_before * (1.0 - cost_share_));
    }
    Pass pass = trade(row, equity);
    for (int tries = 0; equity > 0.0 && tries < kMostSteps; ++tries) {
        const double divisor = 1.0 + pass.slope;
        const double next = divisor > 0.0 ? (equity_before - pass.constant) / divisor : 0.0;
        if (std::abs(next - equity) <= 4e-16 * equity) {
            break;
        }
        equity = next;
        pass = trade(row, equity);
    }
    if (!(equity > 0.0)) {
        return {0.0, {}};
    }
    cost_share_ = 1.0 - equity / equity_before;
    double cash = equity - pass.invested;
    // Weights that sum to one leave no cash; a rounding error must not look like a debt.
    if (cash < 0.0 && cash > -kRounding * equity) {
        cash = 0.0;
    }
    return {equity, {pass.bought, pass.bought - pass.net, cash}};
}

/// One step of Newton's method; 0 when the costs grow as fast as the equity.
CORVEX_VECTOR_CLONES
double RowRebalance::step(const Row& row, double equity_before, double equity) const {
    Lanes constant{};
    Lanes slope{};
    const Lanes buy = Lanes{} + buy_rate_;
    const Lanes sell = Lanes{} - sell_rate_;
    for_lanes(assets_, [&](std::size_t k, const auto& get) __attribute__((always_inline)) {
        Lanes target;
        Lanes held;
        get(row.weights, target, 0.0);
        load(&held_[k], held);
        const Lanes rate = target * equity > held ? buy : sell;
        constant -= rate * held;
        slope += rate * target;
    });
    const double divisor = 1.0 + sum(slope);
    return divisor > 0.0 ? (equity_before - sum(constant)) / divisor : 0.0;
}

/// Works out the new shares at some equity, and which holdings turn.
CORVEX_VECTOR_CLONES
RowRebalance::Pass RowRebalance::trade(const Row& row, double equity) {
    Lanes bought{};
    Lanes net{};
    Lanes invested{};
    Lanes constant{};
    Lanes slope{};
    const Lanes buy = Lanes{} + buy_rate_;
    const Lanes sell = Lanes{} - sell_rate_;
    LaneMask turned{};
    const std::size_t ahead = std::min(row.next_prices.size(), row.next_weights.size());
    for_lanes(assets_, [&](std::size_t k, const auto& get) __attribute__((always_inline)) {
        Lanes target;
        Lanes price;
        Lanes before;
        Lanes held;
        get(row.weights, target, 0.0);
        get(row.prices, price, 1.0);
        get(row.shares, before, 0.0);
        load(&held_[k], held);
        if (k + 8 < ahead) {
            prefetch(&row.next_prices[k]);
            prefetch(&row.next_weights[k]);
        }
        const Lanes value = target * equity;
        const Lanes change = value - held;
        const Lanes rate = change > 0.0 ? buy : sell;
        bought += change > 0.0 ? change : Lanes{};
        net += change;
        invested += value;
        constant -= rate * held;
        slope += rate * target;
        const Lanes after = target != 0.0 ? value / price : Lanes{};
        store(after, &shares_[k]);
        // On another side than before, on none before or now, or beyond what a number holds: the
        // product of shares that a list of the turned then looks at one by one.
        const Lanes product = before * after;
        turned |= (~(product > 0.0) | (product == kInfinity)) & ((before != 0.0) | (after != 0.0));
    });
    list_turned(row.shares, any(turned));
    return {sum(bought), sum(net), sum(invested), sum(constant), sum(slope)};
}

/// Without branches: which assets turn cannot be foretold.
void RowRebalance::list_turned(std::span<const double> before, bool any_turned) {
    turned_.resize(any_turned ? assets_ : 0);
    std::size_t count = 0;
    double excess = 0.0;
    for (std::size_t asset = 0; asset < turned_.size(); ++asset) {
        const double after = shares_[asset];
        const bool kept = ((before[asset] > 0.0) & (after > 0.0)) |
                          ((before[asset] < 0.0) & (after < 0.0)) |
                          ((before[asset] == 0.0) & (after == 0.0));
        turned_[count] = static_cast<std::uint32_t>(asset);
        count += static_cast<std::size_t>(!kept);
        excess += after * 0.0; // zero unless missing or infinite
    }
    turned_.resize(count);
    require_countable(excess);
}

} // namespace corvex::engine::inline v1
