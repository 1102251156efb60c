// Look-ups by arbitrary dates and places: what is found is what was asked for.
#include "corvex/engine/metrics/table_cells.hpp"

#include "corvex/engine/metrics/holding_counts.hpp"

#include <stdexcept>

#include "bytes.hpp"

namespace {

using namespace corvex::engine;
using corvex::fuzz::Bytes;
using corvex::fuzz::require;

void check_rows(Bytes& bytes) {
    const std::vector<std::int64_t> dates = bytes.times(bytes.below(40));
    std::vector<std::int64_t> times = bytes.times(bytes.below(10));
    times.insert(times.end(), dates.begin(), dates.end());
    constexpr std::int64_t kPerDay[] = {86'400'000'000'000, 86'400, 1, 1000};
    const auto rows = rows_of_times(dates, times, kPerDay[bytes.below(std::size(kPerDay))]);
    const bool rising = std::ranges::adjacent_find(dates, std::greater_equal{}) == dates.end();
    for (std::size_t at = 0; at < times.size(); ++at) {
        const bool found = rows[at] >= 0;
        require(!found || dates[static_cast<std::size_t>(rows[at])] == times[at], "another date");
        require(!rising || found == std::ranges::binary_search(dates, times[at]), "a date missed");
    }
}

void check_cells(Bytes& bytes) {
    const std::size_t rows = bytes.below(9);
    const std::size_t columns = bytes.below(9);
    std::vector<double> values(rows * columns);
    std::ranges::generate(values, [&] { return bytes.price(false); });
    const TableView table{values, rows, columns, bytes.flag() ? Layout::kRows : Layout::kColumns};
    require(holding_counts(table).largest <= columns, "more held than there are");
    std::vector<std::int64_t> places(2 * bytes.below(9));
    for (std::int64_t& place : places) {
        place = bytes.below(30) > 0 ? static_cast<std::int64_t>(bytes.below(10)) - 1
                                    : bytes.raw<std::int64_t>();
    }
    const std::span all{places};
    try {
        const auto cells =
            table_cells(table, all.first(places.size() / 2), all.last(places.size() / 2));
        require(cells.size() == places.size() / 2, "one cell for each place");
    } catch (const std::invalid_argument&) {
        return; // outside the table
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes{{data, size}};
    check_rows(bytes);
    check_cells(bytes);
    return 0;
}
