#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The prices of current trades, one per trade, from a market's tables. A column is found by the
/// whole asset label, else by the asset id. Trades of a user's own price table are valued at the
/// close: a market cannot know that table.
class PriceSource {
  public:
    PriceSource(nanobind::handle market, nanobind::handle trade_at_label, nanobind::handle labels,
                nanobind::handle asset_ids);

    /// The adjusted trading prices on the trades' entry dates, a list; NaN where not known.
    [[nodiscard]] nanobind::object adjusted_on(nanobind::handle entry_dates) const;

    /// The latest trading prices, a list; the latest close where there is none.
    [[nodiscard]] nanobind::object latest() const;

  private:
    [[nodiscard]] nanobind::object trading_price(bool adjusted) const;
    [[nodiscard]] nanobind::object of_assets(const nanobind::object& prices) const;
    [[nodiscard]] nanobind::object columns_of(nanobind::handle table) const;
    [[nodiscard]] nanobind::object last_row(nanobind::handle table) const;

    nanobind::object market_;
    nanobind::object trade_at_;
    nanobind::object labels_;
    nanobind::object asset_ids_;
};

} // namespace corvex::report
