#include "corvex/engine/metrics/trade_figures.hpp"

#include <cmath>

namespace corvex::engine {

TradeFigures trade_figures(std::span<const double> returns) {
    TradeFigures figures;
    std::size_t won = 0;
    double gains = 0.0;
    double losses = 0.0;
    for (const double value : returns) {
        if (std::isnan(value)) {
            continue;
        }
        ++figures.count;
        won += value > 0.0 ? 1U : 0U;
        gains += value > 0.0 ? value : 0.0;
        losses -= value < 0.0 ? value : 0.0;
    }
    if (figures.count > 0) {
        const auto count = static_cast<double>(figures.count);
        figures.win_rate = static_cast<double>(won) / count;
        figures.expectancy = (gains - losses) / count;
    }
    if (losses > 0.0) {
        figures.profit_factor = gains / losses;
    }
    return figures;
}

double mean_present(std::span<const double> values) {
    double sum = 0.0;
    std::size_t count = 0;
    for (const double value : values) {
        if (!std::isnan(value)) {
            sum += value;
            ++count;
        }
    }
    return count > 0 ? sum / static_cast<double>(count) : TradeFigures::kUndefined;
}

} // namespace corvex::engine
