#pragma once

#include <cstddef>
#include <span>

namespace corvex::engine::inline v1 {

/// What lies side by side in the memory of a table.
enum class Layout {
    kRows,    ///< the values of one row
    kColumns, ///< the values of one column
};

/// A table of dates x assets as it lies in memory, so that either order is read without a copy.
struct TableView {
    std::span<const double> values; ///< rows * columns of them
    std::size_t rows = 0;
    std::size_t columns = 0;
    Layout layout = Layout::kRows;

    [[nodiscard]] std::size_t offset(std::size_t row, std::size_t column) const {
        return layout == Layout::kRows ? row * columns + column : column * rows + row;
    }
};

} // namespace corvex::engine::inline v1
