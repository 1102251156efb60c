#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Keeps stopped assets out of the rebalances that follow the stop.
class Cooldowns {
  public:
    /// @param rebalances  how many each stop lasts; 0 = none.
    Cooldowns(std::size_t assets, std::int64_t rebalances)
        : rebalances_{rebalances}, left_(rebalances > 0 ? assets : 0, 0) {}

    [[nodiscard]] bool active() const { return rebalances_ > 0; }

    void start(std::size_t asset) {
        if (active()) {
            left_[asset] = rebalances_;
        }
    }
    /// Whether the next rebalance leaves an asset out.
    [[nodiscard]] bool keeps_out(std::size_t asset) const { return active() && left_[asset] > 0; }
    /// Counts a rebalance; returns its weights, zero where an asset is left out. They hold until
    /// the next call.
    std::span<const double> apply(std::span<const double> weights);

    /// For each asset, in how many more rebalances it is left out.
    [[nodiscard]] std::vector<std::int64_t> left(std::size_t assets) const {
        return active() ? left_ : std::vector<std::int64_t>(assets, 0);
    }

  private:
    std::int64_t rebalances_;
    std::vector<std::int64_t> left_;
    std::vector<double> weights_;
};

} // namespace corvex::engine::inline v1
