#include "corvex/engine/trades/excursion.hpp"

#include "corvex/engine/core/lanes.hpp"

namespace corvex::engine::inline v1 {

namespace {

/// Sessions of one block: with 2,000 assets they take an eighth of a megabyte of cache.
constexpr std::size_t kBlock = 8;

/// The running figures of one asset (double) or several (Lanes), in mirrored prices.
template <typename Number>
struct Running {
    Number lowest;
    Number highest;
    Number highest_at_lowest;
    Number trough;
    Number peak;
    Number profit_bars;

    /// Every comparison with a missing price is false, so it changes nothing. The largest drawdown
    /// is compared by cross multiplication, which spares a division for each price.
    [[gnu::always_inline]] void observe(const Number& price, const Number& entry) {
        highest = price > highest ? price : highest;
        const auto lower = price < lowest;
        lowest = lower ? price : lowest;
        highest_at_lowest = lower ? highest : highest_at_lowest;
        const auto deeper = price * peak < trough * highest;
        trough = deeper ? price : trough;
        peak = deeper ? highest : peak;
        profit_bars = price > entry ? profit_bars + 1.0 : profit_bars;
    }
};

} // namespace

ExcursionTracker::ExcursionTracker(const PriceTable& close, std::size_t first_session, bool enabled)
    : close_{close}, next_session_{first_session} {
    if (enabled) {
        for (auto* values : {&side_, &shift_, &entry_, &lowest_, &highest_, &highest_at_lowest_,
                             &trough_, &peak_, &profit_bars_}) {
            values->resize(close.assets, 0.0);
        }
    }
}

void ExcursionTracker::open(std::size_t asset, bool is_long, double fill_price) {
    if (!enabled()) {
        return;
    }
    side_[asset] = is_long ? 1.0 : -1.0;
    shift_[asset] = is_long ? 0.0 : 2.0 * fill_price;
    entry_[asset] = lowest_[asset] = highest_[asset] = highest_at_lowest_[asset] = fill_price;
    trough_[asset] = peak_[asset] = fill_price;
    profit_bars_[asset] = 0.0;
}

void ExcursionTracker::split(std::size_t asset, double ratio) {
    if (!enabled()) {
        return;
    }
    for (auto* values :
         {&shift_, &entry_, &lowest_, &highest_, &highest_at_lowest_, &trough_, &peak_}) {
        (*values)[asset] /= ratio;
    }
}

CORVEX_VECTOR_CLONES
void ExcursionTracker::observe_strip(std::size_t asset, std::size_t begin, std::size_t end) {
    Lanes side;
    load(&side_[asset], side);
    if (!any(side != 0.0)) {
        return;
    }
    Lanes shift;
    Lanes entry;
    Running<Lanes> running;
    load(&shift_[asset], shift);
    load(&entry_[asset], entry);
    load(&lowest_[asset], running.lowest);
    load(&highest_[asset], running.highest);
    load(&highest_at_lowest_[asset], running.highest_at_lowest);
    load(&trough_[asset], running.trough);
    load(&peak_[asset], running.peak);
    load(&profit_bars_[asset], running.profit_bars);
    for (std::size_t session = begin; session < end; ++session) {
        Lanes price;
        load(close_.row(session) + asset, price);
        running.observe(side * price + shift, entry);
    }
    store(running.lowest, &lowest_[asset]);
    store(running.highest, &highest_[asset]);
    store(running.highest_at_lowest, &highest_at_lowest_[asset]);
    store(running.trough, &trough_[asset]);
    store(running.peak, &peak_[asset]);
    store(running.profit_bars, &profit_bars_[asset]);
}

void ExcursionTracker::observe_before(std::size_t end) {
    if (!enabled() || end <= next_session_) {
        return;
    }
    std::size_t asset = 0;
    for (; asset + kLanes <= side_.size(); asset += kLanes) {
        observe_strip(asset, next_session_, end);
    }
    for (; asset < side_.size(); ++asset) {
        observe_asset(asset, end);
    }
    next_session_ = end;
}

void ExcursionTracker::observe_block(std::size_t end) {
    if (end >= next_session_ + kBlock) {
        observe_before(end);
    }
}

void ExcursionTracker::observe_price(std::size_t asset, double price) {
    Running<double> running{lowest_[asset], highest_[asset], highest_at_lowest_[asset],
                            trough_[asset], peak_[asset],    profit_bars_[asset]};
    running.observe(side_[asset] * price + shift_[asset], entry_[asset]);
    lowest_[asset] = running.lowest;
    highest_[asset] = running.highest;
    highest_at_lowest_[asset] = running.highest_at_lowest;
    trough_[asset] = running.trough;
    peak_[asset] = running.peak;
    profit_bars_[asset] = running.profit_bars;
}

void ExcursionTracker::observe_asset(std::size_t asset, std::size_t end) {
    for (std::size_t session = next_session_; session < end; ++session) {
        observe_price(asset, close_.at(session, asset));
    }
}

ExcursionFigures ExcursionTracker::close(std::size_t asset, std::size_t end, double price,
                                         bool counts_as_bar) {
    if (!enabled()) {
        return {};
    }
    observe_asset(asset, end);
    const double bars = profit_bars_[asset];
    observe_price(asset, price);
    if (!counts_as_bar) {
        profit_bars_[asset] = bars;
    }
    const ExcursionFigures result = figures(asset, 0);
    side_[asset] = 0.0;
    return result;
}

ExcursionFigures ExcursionTracker::figures(std::size_t asset, std::size_t end) {
    if (!enabled()) {
        return {};
    }
    observe_asset(asset, end);
    const double entry = entry_[asset];
    return {lowest_[asset] / entry - 1.0, highest_[asset] / entry - 1.0,
            highest_at_lowest_[asset] / entry - 1.0, trough_[asset] / peak_[asset] - 1.0,
            profit_bars_[asset]};
}

} // namespace corvex::engine::inline v1
