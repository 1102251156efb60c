#pragma once

#include "corvex/engine/core/lanes.hpp"
#include "corvex/engine/portfolio/options.hpp"
#include "corvex/engine/portfolio/price_set.hpp"
#include "corvex/engine/trades/exit_reason.hpp"

#include <array>
#include <cstdint>
#include <vector>

namespace corvex::engine::inline v1 {

/// A stop that was touched inside a session.
struct TouchedStop {
    std::uint32_t asset;
    double price;
    ExitReason reason;
};

/// A stop that a close has set off.
struct FiredStop {
    std::uint32_t asset;
    ExitReason reason;
};

/// The stop levels of all positions.
///
/// Prices are taken times the side (1 long, -1 short), so that for both sides a fall is a loss.
/// The arrays cover every asset; the levels of assets without a position never compare true.
///
/// When a stop is reached depends on nothing but the position's own prices, so the monitor looks
/// for it in blocks of sessions, four assets at a time with their levels in registers. A result
/// is told only when its session comes, and dropped if the position has ended by then.
class StopMonitor {
  public:
    StopMonitor(const PriceSet& prices, const StopRules& rules);

    [[nodiscard]] bool active() const { return rules_.any(); }
    [[nodiscard]] bool on_closes() const { return active() && !rules_.touched; }
    [[nodiscard]] bool inside_sessions() const { return active() && rules_.touched; }

    /// Watches a new position by its first fill price, slippage in.
    /// @param first_check  the first session that can set off its stops.
    void enter(std::size_t asset, bool is_long, double fill_price, std::size_t first_check);
    [[nodiscard]] bool watches(std::size_t asset) const { return side_[asset] != 0.0; }
    /// Stops watching an asset.
    void leave(std::size_t asset);
    /// Levels that one share had count for the several that it becomes. To be called at the
    /// beginning of a session; no block may reach beyond it before.
    void split(std::size_t asset, double ratio);

    /// The first session from this one on that has to be asked for its stops.
    [[nodiscard]] std::size_t quiet_until(std::size_t session) const;

    /// Stops that a session's closes set off. A trailing stop counts from the best price up to the
    /// session before. A missing close is not checked.
    /// @param until  a block ends before it: the next session in which many positions may open.
    void check_closes(std::size_t session, std::size_t until, std::vector<FiredStop>& fired);

    /// Stops that a session touches, each with the price that it fills at. Without an open, a stop
    /// that the whole range lies beyond fills at the near end of the range.
    void check_range(std::size_t session, std::size_t until, std::vector<TouchedStop>& fired);

  private:
    static constexpr std::size_t kBlock = 8;

    /// The worst and the best price of a session, times the side.
    struct Range {
        double worst;
        double best;
    };

    [[nodiscard]] Range range(std::size_t asset, std::size_t session) const;
    [[nodiscard]] double trail_level(std::size_t asset) const {
        return best_[asset] - best_[asset] * trail_[asset];
    }
    const std::vector<std::uint32_t>& reached_in(std::size_t session, std::size_t until);
    void scan_closes();
    void scan_ranges();
    template <typename Prices>
    [[gnu::always_inline]] void scan_strip(std::size_t asset, const Prices& prices);
    template <typename Prices>
    [[gnu::always_inline]] void find_reached(std::size_t asset, const Prices& prices);
    void scan_asset(std::size_t asset, std::size_t begin);
    void note(std::size_t asset, std::size_t session);
    [[nodiscard]] TouchedStop touch(std::size_t asset, std::size_t session) const;

    const PriceSet& prices_;
    StopRules rules_;
    std::vector<double> side_;
    std::vector<double> loss_level_;
    std::vector<double> profit_level_;
    std::vector<double> best_;  ///< up to the end of the block, or to the session before a stop
    std::vector<double> trail_; ///< side x trail_stop
    std::size_t block_begin_ = 0;
    std::size_t block_end_ = 0;
    /// Assets whose stop is reached in each session of the block; one that has left since, or
    /// entered anew, has another session in reached_.
    std::array<std::vector<std::uint32_t>, kBlock> hits_;
    std::vector<std::int64_t> reached_; ///< session, -1 = none in this block
    std::vector<std::uint32_t> current_;
};

} // namespace corvex::engine::inline v1
