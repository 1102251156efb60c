#pragma once

#include <cmath>
#include <cstddef>
#include <span>

namespace corvex::engine::inline v1 {

/// A view of prices, one row for each session and one column for each asset, row by row.
struct PriceTable {
    std::span<const double> values;
    std::size_t assets = 0;

    [[nodiscard]] bool empty() const { return values.empty(); }
    [[nodiscard]] std::size_t sessions() const { return assets == 0 ? 0 : values.size() / assets; }
    [[nodiscard]] const double* row(std::size_t session) const {
        return values.data() + session * assets;
    }
    [[nodiscard]] double at(std::size_t session, std::size_t asset) const {
        return row(session)[asset];
    }
};

inline bool is_missing(double price) { return std::isnan(price); }

/// Whether an order can fill at this price.
inline bool is_tradable(double price) { return price > 0.0 && std::isfinite(price); }

} // namespace corvex::engine::inline v1
