#include "corvex/engine/metrics/trade_figures.hpp"

#include <array>
#include <cmath>
#include <stdexcept>

namespace corvex::engine {

namespace {

/// Sums over some of the values.
struct Mean {
    double count = 0.0;
    double sum = 0.0;

    void add(double value) {
        const bool present = !std::isnan(value);
        count += present ? 1.0 : 0.0;
        sum += present ? value : 0.0;
    }

    Mean& operator+=(const Mean& other) {
        count += other.count;
        sum += other.sum;
        return *this;
    }
};

struct Outcomes {
    double count = 0.0;
    double won = 0.0;
    double gains = 0.0;
    double losses = 0.0;

    void add(double value) {
        count += std::isnan(value) ? 0.0 : 1.0;
        won += value > 0.0 ? 1.0 : 0.0;
        gains += value > 0.0 ? value : 0.0;
        losses -= value < 0.0 ? value : 0.0;
    }

    Outcomes& operator+=(const Outcomes& other) {
        count += other.count;
        won += other.won;
        gains += other.gains;
        losses += other.losses;
        return *this;
    }
};

/// Every fourth value goes to the same part: four sums that do not wait for each other.
constexpr std::size_t kParts = 4;

template <typename Sums, typename ValueAt>
Sums sum_of(std::size_t size, ValueAt value_at) {
    std::array<Sums, kParts> parts;
    std::size_t row = 0;
    for (; row + kParts <= size; row += kParts) {
        for (std::size_t part = 0; part < kParts; ++part) {
            parts[part].add(value_at(row + part));
        }
    }
    for (; row < size; ++row) {
        parts[0].add(value_at(row));
    }
    for (std::size_t part = 1; part < kParts; ++part) {
        parts[0] += parts[part];
    }
    return parts[0];
}

template <typename Sums>
Sums sum_counted(std::span<const double> values, std::span<const bool> counted) {
    if (counted.empty()) {
        return sum_of<Sums>(values.size(), [&](std::size_t row) { return values[row]; });
    }
    if (counted.size() != values.size()) {
        throw std::invalid_argument(
            "there must be one mark for each trade that tells if it counts");
    }
    return sum_of<Sums>(values.size(), [&](std::size_t row) {
        return counted[row] ? values[row] : TradeFigures::kUndefined;
    });
}

} // namespace

TradeFigures trade_figures(std::span<const double> returns, std::span<const bool> counted) {
    const auto sum = sum_counted<Outcomes>(returns, counted);
    TradeFigures figures;
    figures.count = static_cast<std::size_t>(sum.count);
    if (figures.count > 0) {
        figures.win_rate = sum.won / sum.count;
        figures.expectancy = (sum.gains - sum.losses) / sum.count;
    }
    if (sum.losses > 0.0) {
        figures.profit_factor = sum.gains / sum.losses;
    }
    return figures;
}

double mean_present(std::span<const double> values, std::span<const bool> counted) {
    const auto mean = sum_counted<Mean>(values, counted);
    return mean.count > 0.0 ? mean.sum / mean.count : TradeFigures::kUndefined;
}

} // namespace corvex::engine
