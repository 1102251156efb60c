#include "corvex/engine/portfolio/result.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kRounding = 1e-12;

bool has_moved(double equity) { return std::abs(equity - 1.0) > kRounding; }

} // namespace

CurveStart SimulationResult::curve_start() const {
    if (equity.empty()) {
        return {};
    }
    const auto filled =
        std::ranges::find_if(trading_rows, [&](std::size_t row) { return traded[row] != 0.0; });
    std::size_t ahead =
        filled == trading_rows.end() ? 0 : *filled - std::min<std::size_t>(*filled, 1);
    if (account.has_value()) { // money that came or went by then is part of it
        const auto& flows = account->columns[static_cast<std::size_t>(AccountColumn::kFlows)];
        const auto flowed = std::ranges::find_if(flows, [](double money) { return money != 0.0; });
        ahead = std::min(ahead, static_cast<std::size_t>(flowed - flows.begin()));
    }
    const auto end = equity.begin() + static_cast<std::ptrdiff_t>(ahead) + 1;
    const auto moved = std::find_if(equity.begin(), end, has_moved);
    if (moved == end) {
        return {ahead, false};
    }
    const auto row = static_cast<std::size_t>(moved - equity.begin());
    return row == 0 ? CurveStart{0, true} : CurveStart{row - 1, false};
}

} // namespace corvex::engine::inline v1
