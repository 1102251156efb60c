#include "corvex/engine/metrics/holding_counts.hpp"
#include "corvex/engine/metrics/table_cells.hpp"

#include <nanobind/nanobind.h>

#include <vector>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

/// Rows or columns in one piece, either way: pandas keeps both, and a copy costs more than the
/// count.
using Table = nb::ndarray<const double, nb::ndim<2>, nb::any_contig, nb::device::cpu>;

engine::TableView view_of(const Table& table) {
    const bool by_row = table.stride(1) == 1 || table.shape(1) == 1;
    return {{table.data(), table.size()},
            table.shape(0),
            table.shape(1),
            by_row ? engine::Layout::kRows : engine::Layout::kColumns};
}

nb::tuple holding_counts(const Table& weights) {
    engine::HoldingCounts counts;
    {
        const nb::gil_scoped_release released;
        counts = engine::holding_counts(view_of(weights));
    }
    return nb::make_tuple(counts.mean, counts.largest);
}

OutputArray<std::int64_t> rows_of_times(const InputArray<std::int64_t>& dates,
                                        const InputArray<std::int64_t>& times,
                                        std::int64_t per_day) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        rows = engine::rows_of_times(as_span(dates), as_span(times), per_day);
    }
    return to_numpy(std::move(rows));
}

OutputArray<double> table_cells(const Table& table, const InputArray<std::int64_t>& rows,
                                const InputArray<std::int64_t>& columns) {
    std::vector<double> cells;
    {
        const nb::gil_scoped_release released;
        cells = engine::table_cells(view_of(table), as_span(rows), as_span(columns));
    }
    return to_numpy(std::move(cells));
}

} // namespace

void bind_metrics(nb::module_& module) {
    module.def("holding_counts", &holding_counts, "weights"_a,
               "Mean and largest number of assets held at once.");
    module.def("rows_of_times", &rows_of_times, "dates"_a, "times"_a, "per_day"_a,
               "The row of each time among rising dates, -1 where it is none of them.");
    module.def("table_cells", &table_cells, "table"_a, "rows"_a, "columns"_a,
               "One value for each pair of a row and a column, NaN where either is negative.");
}

} // namespace corvex::bindings
