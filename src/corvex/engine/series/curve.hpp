#pragma once

#include "corvex/engine/core/dates.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// The present values of a curve with their times and the rows they came from.
///
/// Views the caller's arrays where nothing is missing, else holds its own compacted copy; so the
/// arrays given to the constructor must outlive it.
class PresentCurve {
  public:
    /// @param values  curve, NaN = missing
    /// @param times   local wall time of each value, increasing
    /// @throws std::invalid_argument when the lengths differ or a value is infinite
    PresentCurve(std::span<const double> values, std::span<const Nanos> times);

    PresentCurve(const PresentCurve&) = delete;
    PresentCurve& operator=(const PresentCurve&) = delete;

    std::size_t size() const { return values_.size(); }
    std::span<const double> values() const { return values_; }
    std::span<const Nanos> times() const { return times_; }
    /// Row in the arrays given to the constructor.
    std::size_t row(std::size_t i) const { return rows_.empty() ? i : rows_[i]; }

  private:
    std::span<const double> values_;
    std::span<const Nanos> times_;
    std::vector<double> kept_values_;
    std::vector<Nanos> kept_times_;
    std::vector<std::size_t> rows_;
};

/// Whether no value is missing or infinite.
bool all_finite(std::span<const double> values);

/// Row of the first time that is not later than the one before it; -1 when all increase.
std::ptrdiff_t first_unordered(std::span<const Nanos> times);

} // namespace corvex::engine::inline v1
