#pragma once

#include "corvex/engine/account/corporate_actions.hpp"
#include "corvex/engine/account/terms.hpp"
#include "corvex/engine/portfolio/price_table.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvex::engine::inline v1 {

/// How many shares orders may still take of a session's volume.
class VolumeLimit {
  public:
    VolumeLimit(const VolumeTerms& terms, std::size_t assets);

    [[nodiscard]] bool active() const { return terms_.share > 0.0; }
    /// Infinite where there is no limit, missing where the volume is.
    [[nodiscard]] double room(std::size_t asset, std::size_t session) const;
    void take(std::size_t asset, std::size_t session, double shares);
    void give_back(std::size_t asset, double shares);

  private:
    const VolumeTerms& terms_;
    std::vector<double> taken_;
    std::vector<std::int64_t> session_; ///< in which they were taken
};

/// Square-root impact from the window of sessions before a fill.
class Impact {
  public:
    Impact(const AccountTerms& terms, const SplitPrices& prices);

    /// The ratio by which an order of one share moves the price; 0 where the window tells nothing.
    [[nodiscard]] double of_one_share(std::size_t asset, std::size_t session) const {
        return terms_.impact.coefficient > 0.0 ? from_window(asset, session) : 0.0;
    }

  private:
    [[nodiscard]] double from_window(std::size_t asset, std::size_t session) const;
    [[nodiscard]] double volatility(std::size_t asset, std::size_t begin, std::size_t end) const;
    [[nodiscard]] double mean_volume(std::size_t asset, std::size_t begin, std::size_t end) const;

    const AccountTerms& terms_;
    const SplitPrices& prices_;
};

} // namespace corvex::engine::inline v1
