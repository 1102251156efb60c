#include "corvex/engine/metrics/table_cells.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <stdexcept>

namespace corvex::engine::inline v1 {

namespace {

/// Where each day begins among rising dates: a calendar that finds a date without a search, since
/// most tables have one row a day.
class DayRows {
  public:
    DayRows(std::span<const std::int64_t> dates, std::int64_t per_day)
        : dates_(dates), per_day_(static_cast<std::uint64_t>(per_day)) {
        if (dates.empty()) {
            return;
        }
        first_ = dates.front();
        last_ = dates.back();
        if (last_ < first_ || day(last_) / kDaysPerRow > dates.size()) {
            return; // not worth a calendar
        }
        first_row_.assign(day(last_) + 2, dates.size());
        for (std::size_t row = dates.size(); row-- > 0;) {
            if (const std::int64_t date = dates[row]; knows(date)) {
                first_row_[day(date)] = row;
            }
        }
        // A day without a date begins where the next one does.
        for (std::size_t at = first_row_.size() - 1; at-- > 0;) {
            first_row_[at] = std::min(first_row_[at], first_row_[at + 1]);
        }
    }

    [[nodiscard]] std::int64_t row(std::int64_t time) const {
        if (dates_.empty() || !knows(time)) {
            return -1;
        }
        auto first = dates_.begin();
        auto last = dates_.end();
        if (!first_row_.empty()) {
            const std::size_t at = day(time);
            first = dates_.begin() + static_cast<std::ptrdiff_t>(first_row_[at]);
            last = dates_.begin() + static_cast<std::ptrdiff_t>(first_row_[at + 1]);
        }
        const auto found = std::lower_bound(first, last, time);
        return found != last && *found == time ? found - dates_.begin() : -1;
    }

  private:
    /// Whether a time lies between the first and the last date as they were when this was made:
    /// whoever owns the dates may be changing them, or may have given them in disorder.
    [[nodiscard]] bool knows(std::int64_t time) const { return time >= first_ && time <= last_; }

    /// Days from the first date on, each of them as long as a day but not begun at midnight.
    [[nodiscard]] std::size_t day(std::int64_t time) const {
        return static_cast<std::size_t>(
            (static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(first_)) / per_day_);
    }

    /// A calendar with more days than that for each date would cost more than searches.
    static constexpr std::size_t kDaysPerRow = 400;

    std::span<const std::int64_t> dates_;
    std::uint64_t per_day_;
    std::int64_t first_ = 0;
    std::int64_t last_ = -1;
    std::vector<std::size_t> first_row_;
};

constexpr std::size_t kNowhere = std::numeric_limits<std::size_t>::max();

/// Cells lie anywhere in a large table: asking for one this early halves the waiting for memory.
constexpr std::size_t kAhead = 16;

std::size_t place_in(const TableView& table, std::int64_t row, std::int64_t column) {
    if (row < 0 || column < 0) {
        return kNowhere;
    }
    if (static_cast<std::size_t>(row) >= table.rows ||
        static_cast<std::size_t>(column) >= table.columns) {
        throw std::invalid_argument("a cell lies outside the table");
    }
    return table.offset(static_cast<std::size_t>(row), static_cast<std::size_t>(column));
}

} // namespace

std::vector<std::int64_t> rows_of_times(std::span<const std::int64_t> dates,
                                        std::span<const std::int64_t> times, std::int64_t per_day) {
    if (per_day <= 0) {
        throw std::invalid_argument("a day must have a positive number of units");
    }
    const DayRows calendar(dates, per_day);
    std::vector<std::int64_t> rows(times.size());
    std::transform(times.begin(), times.end(), rows.begin(),
                   [&](std::int64_t time) { return calendar.row(time); });
    return rows;
}

std::vector<double> table_cells(const TableView& table, std::span<const std::int64_t> rows,
                                std::span<const std::int64_t> columns) {
    if (rows.size() != columns.size()) {
        throw std::invalid_argument("there must be one row and one column for each cell");
    }
    std::vector<std::size_t> places(rows.size());
    for (std::size_t cell = 0; cell < places.size(); ++cell) {
        places[cell] = place_in(table, rows[cell], columns[cell]);
    }
    std::vector<double> cells(rows.size(), std::numeric_limits<double>::quiet_NaN());
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        if (cell + kAhead < cells.size() && places[cell + kAhead] != kNowhere) {
            __builtin_prefetch(&table.values[places[cell + kAhead]]);
        }
        if (places[cell] != kNowhere) {
            cells[cell] = table.values[places[cell]];
        }
    }
    return cells;
}

} // namespace corvex::engine::inline v1
