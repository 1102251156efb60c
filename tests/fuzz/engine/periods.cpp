// Arbitrary moments as curves and calendars: periods cover all rows once, whatever the moments are.
#include "corvex/engine/series/periods.hpp"

#include "corvex/engine/calendar/schedule.hpp"
#include "corvex/engine/series/bars.hpp"
#include "corvex/engine/statistics/record.hpp"
#include "corvex/engine/statistics/return_table.hpp"

#include <stdexcept>
#include <string>

#include "bytes.hpp"

namespace {

using namespace corvex::engine;
using corvex::fuzz::Bytes;
using corvex::fuzz::require;

void check_cover(std::span<const Period> periods, std::size_t rows) {
    std::size_t next = 0;
    for (const Period& period : periods) {
        require(period.first == next && period.last >= period.first, "periods leave a gap");
        next = period.last + 1;
    }
    require(next == rows, "periods do not end with the rows");
}

void check_calendar(Bytes& bytes, std::span<const Nanos> times) {
    constexpr const char* kRules[] = {
        "D", "W", "W-FRI",    "ME", "3MS", "QE-JAN", "YE",  "100000W", "7D",
        "h", "s", "100000YE", "B",  "0D",  "-1D",    "1e9", "",        "99999999999999999999D"};
    std::string alias = kRules[bytes.below(std::size(kRules))];
    if (bytes.below(8) == 0) {
        alias += static_cast<char>(bytes.raw<std::uint8_t>());
    }
    try {
        const auto rule = parse_period_rule(alias);
        const auto bounds = last_period_bounds(times, rule);
        const bool ordered = std::ranges::adjacent_find(times, std::greater_equal{}) == times.end();
        require(!ordered || bounds.start <= times.back(), "a period begins after its session");
        const auto rows = period_last_sessions(times, rule);
        require(rows.back() + 1 == static_cast<std::int64_t>(times.size()), "the last period");
        require(std::ranges::is_sorted(rows), "periods out of order");
    } catch (const std::invalid_argument&) {
        return;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes{{data, size}};
    const std::vector<Nanos> times = bytes.times(bytes.below(60));
    std::vector<double> values(times.size());
    std::ranges::generate(values, [&] { return bytes.price(false); });
    const auto months = month_periods(times);
    check_cover(months, times.size());
    check_cover(year_periods(months), times.size());
    require(day_ends(times).empty() == times.empty(), "days of a curve");
    require(usual_gap(times) >= 0, "a negative gap");
    infer_convention(times);
    const auto rows = rows_at_or_before(times, times);
    require(std::ranges::all_of(
                rows, [&](auto row) { return row < static_cast<std::int64_t>(times.size()); }),
            "a row after the last");
    check_calendar(bytes, times);
    try {
        performance_record(values, times, 0.02);
        return_table(values, times);
    } catch (const std::invalid_argument&) {
        return 0; // an infinite value
    }
    return 0;
}
