#pragma once

#include <cstddef>
#include <span>

namespace corvex::engine::inline v1 {

/// A view of values by session and asset. One row stands for every session, one column for every
/// asset; an empty grid is one that was not given.
struct Grid {
    std::span<const double> values;
    std::size_t rows = 0;
    std::size_t columns = 0;

    [[nodiscard]] bool empty() const { return values.empty(); }
    [[nodiscard]] double at(std::size_t session, std::size_t asset) const {
        return values[(rows == 1 ? 0 : session) * columns + (columns == 1 ? 0 : asset)];
    }
    /// The values of a session; of a grid that has a column for each asset.
    [[nodiscard]] const double* row(std::size_t session) const {
        return values.data() + (rows == 1 ? 0 : session) * columns;
    }
    [[nodiscard]] bool fits(std::size_t sessions, std::size_t assets) const {
        return empty() || ((rows == 1 || rows == sessions) && (columns == 1 || columns == assets));
    }
};

} // namespace corvex::engine::inline v1
