#pragma once

#include "corvex/engine/confidence/random_stream.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Target weights whose assets are to be exchanged for others at random.
struct TargetTable {
    std::span<const double> weights;      ///< rebalances x assets
    std::span<const std::uint8_t> priced; ///< the same shape: whether the asset has a price then
    std::size_t assets = 0;

    [[nodiscard]] std::size_t rebalances() const {
        return assets == 0 ? 0 : weights.size() / assets;
    }
};

/// Draws portfolios that differ from a strategy's in their assets alone: on each date as many
/// positions of the same weights. Where the strategy begins to hold an asset, one that has a price
/// and is not held is drawn, and kept for as long as the strategy keeps its own; so holding periods
/// and turnover stay as they were. A weight for which no asset is left stays in cash.
class RandomTargets {
  public:
    /// @throws std::invalid_argument for tables of different shapes
    explicit RandomTargets(const TargetTable& table);

    /// One such portfolio, written to `out`, of the same shape.
    void draw(RandomStream& stream, std::span<double> out);

  private:
    [[nodiscard]] std::uint32_t pick(RandomStream& stream, std::span<const std::uint8_t> priced);

    TargetTable table_;
    std::vector<std::uint32_t> stand_in_; ///< of each asset that the strategy holds
    std::vector<std::uint8_t> held_;      ///< by the drawn portfolio
};

} // namespace corvex::engine::inline v1
