#pragma once

#include <span>

namespace corvex::engine::inline v1 {

/// Bounds between which a figure lies with some probability.
struct Interval {
    double low;
    double high;
};

enum class IntervalMethod {
    kPercentile, ///< quantiles of the draws
    kBasic,      ///< the same, mirrored at the figure
    kBca,        ///< percentiles corrected for bias and skewness
};

/// The interval of a figure from its bootstrap draws. Missing draws are left out; NaN bounds where
/// none is left, and for kBca where the draws all lie on one side of the figure.
///
/// @param draws      in any order
/// @param observed   the figure itself
/// @param level      probability inside, between 0 and 1, for example 0.95
/// @param jackknife  the figure without each of the observations, for kBca alone
/// @throws std::invalid_argument for another level, or kBca without a jackknife
/// Source: B. Efron and R. J. Tibshirani, "An Introduction to the Bootstrap" (1993), chapters 13
/// and 14.
Interval bootstrap_interval(std::span<const double> draws, double observed, double level,
                            IntervalMethod method, std::span<const double> jackknife = {});

/// The value below which `share` of the sorted values lie, interpolated between neighbours.
/// @param sorted  ascending, not empty, none missing
double sorted_quantile(std::span<const double> sorted, double share);

} // namespace corvex::engine::inline v1
