#pragma once

#include "corvex/engine/portfolio/price_table.hpp"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace corvex::engine::inline v1 {

/// When in a session orders fill: it decides whether the session's own move and its range count.
enum class FillAt { kClose, kOpen, kOther };

/// The tables of a price set; those that are not needed are empty.
struct PriceTables {
    PriceTable close;
    FillAt fill_at = FillAt::kClose;
    PriceTable fill{}; ///< unused when orders fill at the close
    PriceTable open{}; ///< open, high, low: with touched stops only; open may be empty
    PriceTable high{};
    PriceTable low{};
};

/// Prices that runs share: read once, and never changed. The tables are views.
class PriceSet {
  public:
    /// @throws std::invalid_argument for tables that do not have the shape of the close table, no
    ///         assets, or no fill prices where orders fill at them.
    explicit PriceSet(const PriceTables& tables);

    [[nodiscard]] const PriceTable& close() const { return tables_.close; }
    [[nodiscard]] const PriceTable& open() const { return tables_.open; }
    [[nodiscard]] const PriceTable& high() const { return tables_.high; }
    [[nodiscard]] const PriceTable& low() const { return tables_.low; }
    /// The prices at which orders fill.
    [[nodiscard]] const PriceTable& fill() const {
        return fills_at(FillAt::kClose) ? tables_.close : tables_.fill;
    }
    [[nodiscard]] bool fills_at(FillAt when) const { return tables_.fill_at == when; }
    [[nodiscard]] std::size_t assets() const { return tables_.close.assets; }
    [[nodiscard]] std::size_t sessions() const { return tables_.close.sessions(); }

    /// The last session with a close, -1 for an asset without any.
    [[nodiscard]] std::int64_t last_priced(std::size_t asset) const { return last_priced_[asset]; }
    /// The sessions after the last close of an asset, and the asset; ascending.
    [[nodiscard]] const std::vector<std::pair<std::int64_t, std::uint32_t>>& ends() const {
        return ends_;
    }

  private:
    PriceTables tables_;
    std::vector<std::int64_t> last_priced_;
    std::vector<std::pair<std::int64_t, std::uint32_t>> ends_;
};

} // namespace corvex::engine::inline v1
