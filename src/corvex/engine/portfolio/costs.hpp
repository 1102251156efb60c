#pragma once

namespace corvex::engine::inline v1 {

/// The ratios that a trade costs; all fractions in [0, 1).
struct Costs {
    double fee = 0.0;      ///< commission on the executed value, each side
    double tax = 0.0;      ///< on the executed value of sells, short entries among them
    double slippage = 0.0; ///< buys fill at price x (1 + slippage), sells at price x (1 - slippage)

    /// What a buy of quoted value 1 costs beyond that value.
    [[nodiscard]] double buy_rate() const { return (1.0 + slippage) * (1.0 + fee) - 1.0; }
    /// What a sell of quoted value 1 lacks to that value.
    [[nodiscard]] double sell_rate() const { return 1.0 - (1.0 - slippage) * (1.0 - fee - tax); }
    /// The price at which an order on the given side executes.
    [[nodiscard]] double executed(double quoted, bool buy) const {
        return quoted * (buy ? 1.0 + slippage : 1.0 - slippage);
    }
};

/// Sums over fills, in units of the initial equity.
struct CostTotals {
    double fees = 0.0;
    double taxes = 0.0;
    double slippage = 0.0;
    double traded = 0.0; ///< quoted value of buys and sells

    [[nodiscard]] bool any() const {
        return traded != 0.0 || fees != 0.0 || taxes != 0.0 || slippage != 0.0;
    }
    /// Adds the fills of one moment by their quoted values (both positive).
    void add(const Costs& costs, double bought, double sold);
};

/// Net return of a round trip: exit over entry after slippage, fees and tax, minus 1; for a short
/// one minus cost of the cover over proceeds of the sale.
double round_trip_return(const Costs& costs, bool is_long, double entry_price, double exit_price);

/// The same of a position that is still open, at its value without exit costs.
double open_return(const Costs& costs, bool is_long, double entry_price, double price);

} // namespace corvex::engine::inline v1
