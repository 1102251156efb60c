#pragma once

#include "corvex/engine/portfolio/simulator.hpp"

#include <limits>
#include <vector>

namespace corvex::engine::portfolio {

inline constexpr double kGap = std::numeric_limits<double>::quiet_NaN();
using trades::ExitReason;

/// A small market whose tables are written out by hand, one row for each session.
struct Market {
    std::size_t assets = 1;
    std::vector<double> close;
    std::vector<double> fill{};
    std::vector<double> open{};
    std::vector<double> high{};
    std::vector<double> low{};
    std::vector<double> target{1.0};
    std::vector<std::int64_t> signals{0};
    FillAt fill_at = FillAt::kClose;
    Costs costs{};
    StopRules stops{};
    std::vector<double> position{};

    SimulationResult run() {
        SimulationInput input{};
        const auto table = [&](const std::vector<double>& values) {
            return PriceTable{values, assets};
        };
        position.assign(close.size(), -1.0);
        input.close = table(close);
        input.fill = table(fill);
        input.open = table(open);
        input.high = table(high);
        input.low = table(low);
        input.target = target;
        input.signal_session = signals;
        input.fill_at = fill_at;
        input.costs = costs;
        input.stops = stops;
        input.position = position;
        return simulate(input);
    }
};

} // namespace corvex::engine::portfolio
