#include "corvex/engine/trades/trade_figures.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace corvex::engine::inline v1 {

namespace {

/// Sums over some of the values, four at a time; NaN adds nothing.
struct Mean {
    Lanes count{};
    Lanes total{};

    [[gnu::always_inline]] void add(const Lanes& value) {
        const LaneMask present = value == value;
        count += present ? Lanes{} + 1.0 : Lanes{};
        total += present ? value : Lanes{};
    }
};

struct Outcomes {
    Lanes count{};
    Lanes won{};
    Lanes gains{};
    Lanes losses{};

    [[gnu::always_inline]] void add(const Lanes& value) {
        count += value == value ? Lanes{} + 1.0 : Lanes{};
        won += value > 0.0 ? Lanes{} + 1.0 : Lanes{};
        gains += value > 0.0 ? value : Lanes{};
        losses -= value < 0.0 ? value : Lanes{};
    }
};

/// Four values from `row` on, NaN for those that do not count or lie beyond the last.
[[gnu::always_inline]] inline void load_counted(std::span<const double> values,
                                                std::span<const bool> counted, std::size_t row,
                                                Lanes& to) {
    to = Lanes{} + TradeFigures::kUndefined;
    for (std::size_t lane = 0; lane < std::min(kLanes, values.size() - row); ++lane) {
        if (counted.empty() || counted[row + lane]) {
            to[lane] = values[row + lane];
        }
    }
}

template <typename Sums>
[[gnu::always_inline]] inline Sums sum_of(std::span<const double> values,
                                          std::span<const bool> counted) {
    Sums sums;
    Lanes value;
    std::size_t row = 0;
    for (; row + kLanes <= values.size(); row += kLanes) {
        load(&values[row], value);
        if (!counted.empty()) {
            const LaneMask kept{counted[row], counted[row + 1], counted[row + 2], counted[row + 3]};
            value = kept != 0 ? value : Lanes{} + TradeFigures::kUndefined;
        }
        sums.add(value);
    }
    if (row < values.size()) {
        load_counted(values, counted, row, value);
        sums.add(value);
    }
    return sums;
}

CORVEX_VECTOR_CLONES
Mean mean_of(std::span<const double> values, std::span<const bool> counted) {
    return sum_of<Mean>(values, counted);
}

CORVEX_VECTOR_CLONES
Outcomes outcomes_of(std::span<const double> values, std::span<const bool> counted) {
    return sum_of<Outcomes>(values, counted);
}

void check_marks(std::span<const double> values, std::span<const bool> counted) {
    if (!counted.empty() && counted.size() != values.size()) {
        throw std::invalid_argument(
            "there must be one mark for each trade that tells if it counts");
    }
}

} // namespace

TradeFigures trade_figures(std::span<const double> returns, std::span<const bool> counted) {
    check_marks(returns, counted);
    const Outcomes outcomes = outcomes_of(returns, counted);
    const double count = sum(outcomes.count);
    const double gains = sum(outcomes.gains);
    const double losses = sum(outcomes.losses);
    TradeFigures figures;
    figures.count = static_cast<std::size_t>(count);
    if (count > 0.0) {
        figures.win_rate = sum(outcomes.won) / count;
        figures.expectancy = (gains - losses) / count;
    }
    if (losses > 0.0) {
        figures.profit_factor = gains / losses;
    }
    return figures;
}

double mean_present(std::span<const double> values, std::span<const bool> counted) {
    check_marks(values, counted);
    const Mean mean = mean_of(values, counted);
    const double count = sum(mean.count);
    return count > 0.0 ? sum(mean.total) / count : TradeFigures::kUndefined;
}

} // namespace corvex::engine::inline v1
