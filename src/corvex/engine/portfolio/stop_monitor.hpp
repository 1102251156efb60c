#pragma once

#include "corvex/engine/core/lanes.hpp"
#include "corvex/engine/portfolio/settings.hpp"
#include "corvex/engine/trades/round_trip.hpp"

#include <cstdint>
#include <vector>

namespace corvex::engine::portfolio {

/// A stop that was touched inside a session.
struct TouchedStop {
    std::uint32_t asset;
    double price;
    trades::ExitReason reason;
};

/// A stop that a close has set off.
struct FiredStop {
    std::uint32_t asset;
    trades::ExitReason reason;
};

/// The stop levels of all positions.
///
/// Prices are taken times the side (1 long, -1 short), so that for both sides a fall is a loss.
/// The arrays cover every asset; the levels of assets without a position never compare true, so
/// the check is one loop without branches over a whole row of prices.
class StopMonitor {
  public:
    StopMonitor(const StopRules& rules, std::size_t assets);

    [[nodiscard]] bool active() const { return rules_.any(); }

    /// Watches a new position by its first fill price, slippage in.
    void enter(std::size_t asset, bool is_long, double fill_price);
    [[nodiscard]] bool watches(std::size_t asset) const { return side_[asset] != 0.0; }
    /// Stops watching an asset.
    void leave(std::size_t asset);

    /// Stops that a session's closes set off. The best price follows after the check, so a
    /// trailing stop counts from the best price up to the session before. A missing close is not
    /// checked.
    void check_closes(const double* close, std::vector<FiredStop>& fired);

    /// Stops that a session touches, each with the price that it fills at.
    /// @param open  may be null; a stop that the whole range lies beyond then fills at its end.
    void check_range(const double* open, const double* high, const double* low,
                     std::vector<TouchedStop>& fired);

  private:
    [[nodiscard]] double trail_level(std::size_t asset) const {
        return best_[asset] - best_[asset] * trail_[asset];
    }
    [[nodiscard]] bool reaches(std::size_t asset, double worst, double best) const;
    [[nodiscard]] bool scan(std::size_t asset, const Lanes& worst, const Lanes& best_now);
    void check_close(std::size_t asset, double close, std::vector<FiredStop>& fired);
    void check_touch(std::size_t asset, double open, double high, double low,
                     std::vector<TouchedStop>& fired);
    [[nodiscard]] TouchedStop touch(std::size_t asset, double open, double worst,
                                    double best) const;

    StopRules rules_;
    std::vector<double> side_;
    std::vector<double> loss_level_;
    std::vector<double> profit_level_;
    std::vector<double> best_;
    std::vector<double> trail_; ///< side x trail_stop
};

} // namespace corvex::engine::portfolio
