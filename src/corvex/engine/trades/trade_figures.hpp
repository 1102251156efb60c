#pragma once

#include <cstddef>
#include <limits>
#include <span>

namespace corvex::engine::inline v1 {

/// How a set of trades ended, each trade alike whatever its size.
struct TradeFigures {
    static constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

    std::size_t count = 0;
    double win_rate = 0.0;             ///< share with a return above 0; 0 without trades
    double expectancy = kUndefined;    ///< mean return; NaN without trades
    double profit_factor = kUndefined; ///< sum of gains / sum of losses; NaN when none lost
};

/// @param returns  a fraction per trade; NaN = left out
/// @param counted  which of the trades count; empty = all
/// @throws std::invalid_argument when `counted` is neither empty nor of the same length
TradeFigures trade_figures(std::span<const double> returns, std::span<const bool> counted = {});

/// The mean of the values that count and are not NaN; NaN without any. Parameters as above.
double mean_present(std::span<const double> values, std::span<const bool> counted = {});

} // namespace corvex::engine::inline v1
