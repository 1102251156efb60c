#pragma once

#include "corvex/engine/portfolio/asset_set.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvex::engine::inline v1 {

/// The orders of the last rebalance that met a missing price: each waits for the next one.
class WaitingOrders {
  public:
    explicit WaitingOrders(std::size_t assets) : orders_{assets}, weight_(assets, 0.0) {}

    /// Drops all orders; those that follow belong to another rebalance.
    void restart(std::int64_t rebalance) {
        orders_.clear();
        rebalance_ = rebalance;
    }
    void add(std::size_t asset, double weight) {
        orders_.add(asset);
        weight_[asset] = weight;
    }
    void cancel(std::size_t asset) { orders_.remove(asset); }

    [[nodiscard]] bool empty() const { return orders_.empty(); }
    [[nodiscard]] bool has(std::size_t asset) const { return orders_.has(asset); }
    [[nodiscard]] const std::vector<std::uint32_t>& assets() const { return orders_.list(); }
    /// The target weight of an order.
    [[nodiscard]] double weight(std::size_t asset) const { return weight_[asset]; }
    [[nodiscard]] std::int64_t rebalance() const { return rebalance_; }

    /// For each asset the rebalance whose order waits, -1 = none.
    [[nodiscard]] std::vector<std::int64_t> rebalances() const {
        std::vector<std::int64_t> found(weight_.size(), -1);
        for (const std::uint32_t asset : assets()) {
            found[asset] = rebalance_;
        }
        return found;
    }

  private:
    AssetSet orders_;
    std::vector<double> weight_;
    std::int64_t rebalance_ = -1;
};

} // namespace corvex::engine::inline v1
