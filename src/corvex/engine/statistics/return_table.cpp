#include "corvex/engine/statistics/return_table.hpp"

#include "corvex/engine/series/bars.hpp"
#include "corvex/engine/series/curve.hpp"
#include "corvex/engine/series/returns.hpp"

#include <limits>

namespace corvex::engine::inline v1 {

std::vector<YearReturns> return_table(std::span<const double> values,
                                      std::span<const Nanos> times) {
    const PresentCurve curve(values, times);
    const std::vector<Period> months = month_periods(curve.times());
    const std::vector<Period> years = year_periods(months);
    const bool has_months = infer_convention(curve.times()).bar <= Bar::kMonth;
    std::vector<YearReturns> table;
    table.reserve(years.size());
    std::size_t month = 0;
    for (std::size_t i = 0; i < years.size(); ++i) {
        YearReturns row{
            static_cast<int>(years[i].number), {}, return_within(curve.values(), years, i)};
        row.months.fill(std::numeric_limits<double>::quiet_NaN());
        for (; month < months.size() && months[month].number / 12 == years[i].number; ++month) {
            if (has_months) {
                row.months[static_cast<std::size_t>(months[month].number % 12)] =
                    return_within(curve.values(), months, month);
            }
        }
        table.push_back(row);
    }
    return table;
}

} // namespace corvex::engine::inline v1
