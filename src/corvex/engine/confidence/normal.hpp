#pragma once

namespace corvex::engine::inline v1 {

/// The standard normal distribution function.
double normal_cdf(double value);

/// Its inverse; -infinity at 0, infinity at 1, NaN outside.
/// Source: P. J. Acklam's rational approximation (2003), refined by one step of Halley's method to
/// full double precision.
double normal_quantile(double probability);

} // namespace corvex::engine::inline v1
