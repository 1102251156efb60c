#pragma once

#include "corvex/engine/account/terms.hpp"
#include "corvex/engine/portfolio/options.hpp"
#include "corvex/engine/portfolio/price_set.hpp"

#include <cstddef>
#include <cstdint>
#include <span>

namespace corvex::engine::inline v1 {

/// Target weights and when they are signalled.
struct Plan {
    std::span<const double> target;               ///< rebalances x assets, no NaN
    std::span<const std::int64_t> signal_session; ///< ascending, -1 = before the table
    std::size_t first_session = 0;                ///< where the results start

    [[nodiscard]] std::size_t rebalances() const { return signal_session.size(); }
    [[nodiscard]] std::span<const double> weights(std::size_t rebalance) const {
        const std::size_t assets = target.size() / rebalances();
        return target.subspan(rebalance * assets, assets);
    }
};

/// What a run writes down beside its curves.
struct Recording {
    bool trades = true;
    bool excursions = true; ///< of the trades
    bool fills = false;
    /// Receives the target weights in force after each close, from the first session of the plan
    /// on; empty = off.
    std::span<double> position{};
    bool counts_only = false; ///< of the trades: no list of them
};

/// One run. The prices are shared and outlive it.
struct SimulationInput {
    const PriceSet& prices;
    Plan plan{};
    Options options{};
    Recording record{};
    const AccountTerms* account = nullptr; ///< outlives the run; nullptr = none is kept
};

/// @throws std::invalid_argument for shapes that do not fit, options out of range, signals out of
///         order, or a weight that would fill before the first session.
///
/// Weights are looked at when their rebalance comes, while they are read anyway.
void validate(const SimulationInput& input);

/// @throws std::invalid_argument for a weight that is missing or infinite.
void require_finite(std::span<const double> weights);

} // namespace corvex::engine::inline v1
