#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The prices of current trades, one per trade, from a market's tables.
class PriceSource {
  public:
    /// @param trade_at  what the fills are: a field's name or a price table of the user's own
    PriceSource(nanobind::handle market, nanobind::handle trade_at, nanobind::handle labels);

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
};

} // namespace corvex::report
