#pragma once

#include "corvex/engine/portfolio/costs.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace corvex::engine::inline v1 {

/// Changes of holdings in the order in which they happened, one entry of each column for each.
struct Fills {
    std::vector<std::int32_t> session;
    std::vector<std::int32_t> asset;
    std::vector<double> shares; ///< held afterwards
    std::vector<double> price;  ///< quoted, before slippage
    std::vector<double> cost;   ///< fees, taxes and slippage
};

/// Writes fills as they happen. A log that is off ignores every call.
class FillLog {
  public:
    /// @param most  how many fills there can be; memory is reserved for no more than these.
    FillLog(const Costs& costs, std::size_t most, bool enabled)
        : buy_rate_{costs.buy_rate()}, sell_rate_{costs.sell_rate()}, enabled_{enabled} {
        if (enabled) {
            // Reserved memory that is never written costs nothing, growing would copy and write
            // twice.
            const std::size_t count = std::min(most, kMostReserved);
            fills_.session.reserve(count);
            fills_.asset.reserve(count);
            fills_.shares.reserve(count);
            fills_.price.reserve(count);
            fills_.cost.reserve(count);
        }
    }

    [[nodiscard]] bool enabled() const { return enabled_; }

    void add(std::size_t session, std::size_t asset, double before, double after, double price) {
        const double bought = (after - before) * price;
        add(session, asset, before, after, price,
            bought > 0.0 ? bought * buy_rate_ : -bought * sell_rate_);
    }
    /// The same with a cost that the ratios do not tell.
    void add(std::size_t session, std::size_t asset, double before, double after, double price,
             double cost) {
        if (!enabled_ || before == after) {
            return;
        }
        fills_.session.push_back(static_cast<std::int32_t>(session));
        fills_.asset.push_back(static_cast<std::int32_t>(asset));
        fills_.shares.push_back(after);
        fills_.price.push_back(price);
        fills_.cost.push_back(cost);
    }

    /// Forgets an asset's last fill, when it was in this session.
    void remove_last(std::size_t session, std::size_t asset);

    Fills take() { return std::exchange(fills_, {}); }

  private:
    static constexpr std::size_t kMostReserved = std::size_t{1} << 24U;

    double buy_rate_;
    double sell_rate_;
    bool enabled_;
    Fills fills_;
};

inline void FillLog::remove_last(std::size_t session, std::size_t asset) {
    const auto same = [](std::int32_t stored, std::size_t wanted) {
        return static_cast<std::size_t>(stored) == wanted;
    };
    for (std::size_t end = fills_.session.size(); end > 0 && same(fills_.session[end - 1], session);
         --end) {
        if (same(fills_.asset[end - 1], asset)) {
            const auto place = static_cast<std::ptrdiff_t>(end - 1);
            fills_.session.erase(fills_.session.begin() + place);
            fills_.asset.erase(fills_.asset.begin() + place);
            fills_.shares.erase(fills_.shares.begin() + place);
            fills_.price.erase(fills_.price.begin() + place);
            fills_.cost.erase(fills_.cost.begin() + place);
            return;
        }
    }
}

} // namespace corvex::engine::inline v1
