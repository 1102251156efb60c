#pragma once

#include "corvex/engine/account/corporate_actions.hpp"
#include "corvex/engine/account/terms.hpp"
#include "corvex/engine/portfolio/price_table.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Square-root impact from the window of sessions before a fill.
///
/// The windows of many assets are gone through together, row by row, and what comes of them is
/// kept for the session: an order's impact is asked for many times until its size is found.
class Impact {
  public:
    Impact(const AccountTerms& terms, const PriceTable& close, const SplitFactors& splits);

    /// The ratio by which an order of one share moves the price; 0 where the window tells nothing.
    [[nodiscard]] double of_one_share(std::size_t asset, std::size_t session) {
        if (!active()) {
            return 0.0;
        }
        if (session_[asset] != static_cast<std::int64_t>(session)) {
            const auto one = static_cast<std::uint32_t>(asset);
            look_back({&one, 1}, session);
        }
        return ratio_[asset];
    }
    /// Works out the ratios of assets, ascending, that are going to be asked for.
    void look_back(std::span<const std::uint32_t> assets, std::size_t session);
    [[nodiscard]] bool active() const { return terms_.impact.coefficient > 0.0; }

  private:
    /// Sums over a window, an entry for each asset that is looked at.
    struct Sums {
        std::vector<double> count;
        std::vector<double> total;

        void reset(std::size_t assets);
    };

    void find_volatility(std::span<const std::uint32_t> assets, std::size_t begin, std::size_t end);
    void find_volume(std::span<const std::uint32_t> assets, std::size_t begin, std::size_t end);

    const AccountTerms& terms_;
    const PriceTable& close_; ///< quoted
    const SplitFactors& splits_;
    std::vector<double> ratio_;
    std::vector<std::int64_t> session_; ///< that the ratio of an asset is for
    Sums sums_;
    std::vector<std::size_t> split_; ///< the entries whose shares are split some day
    std::vector<double> closes_;     ///< of two rows
    std::vector<double> changes_;    ///< of each session of the window
    std::vector<double> moves_;      ///< the volatility of each asset
    std::vector<double> volume_;     ///< its mean volume
};

} // namespace corvex::engine::inline v1
