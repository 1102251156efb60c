#pragma once

#include <cstddef>
#include <span>

namespace corvex::engine::inline v1 {

/// What the tests of a Sharpe ratio need to know of the returns; all per bar.
struct SharpeSample {
    double sharpe;   ///< mean excess return / standard deviation (n - 1)
    double skewness; ///< third central moment / variance^1.5, of the population
    double kurtosis; ///< fourth central moment / variance^2; the normal distribution's is 3
    std::size_t count;
};

/// @param returns   fractions; NaN = missing, left out
/// @param riskfree  return per bar
/// NaN throughout for fewer than two returns or without dispersion.
SharpeSample sharpe_sample(std::span<const double> returns, double riskfree);

/// Variance of the estimated ratio times n - 1: 1 - g3 SR + (g4 - 1) / 4 SR^2.
double sharpe_dispersion(const SharpeSample& sample);

/// Probability that the true Sharpe ratio per bar is above `threshold`:
/// Phi((SR - SR*) sqrt(T - 1) / sqrt(1 - g3 SR + (g4 - 1) / 4 SR^2)). NaN where undefined.
/// Source: D. H. Bailey and M. Lopez de Prado, "The Sharpe ratio efficient frontier", Journal of
/// Risk 15 (2012).
double probabilistic_sharpe(const SharpeSample& sample, double threshold);

/// Bars that are needed to say with `confidence` that the ratio is above `threshold`:
/// 1 + (1 - g3 SR + (g4 - 1) / 4 SR^2) (z / (SR - SR*))^2. Infinite when SR is not above it.
/// Source: as probabilistic_sharpe.
double minimum_track_record(const SharpeSample& sample, double threshold, double confidence);

/// The largest Sharpe ratio to expect from `trials` independent strategies without skill whose
/// ratios have the standard deviation `spread`:
/// spread [(1 - g) z(1 - 1/N) + g z(1 - 1/(N e))], g = 0.5772... (Euler's constant). The
/// probabilistic Sharpe ratio at this threshold is the deflated one.
///
/// NaN for fewer than one trial or a missing spread; 0 for one trial, which was not chosen.
/// Source: D. H. Bailey and M. Lopez de Prado, "The deflated Sharpe ratio", JPM 40 (2014).
double expected_largest_sharpe(double spread, double trials);

/// What a Sharpe ratio per bar is multiplied by for `periods` bars when the returns are
/// autocorrelated: q / sqrt(q + 2 sum_{k < q} (q - k) rho_k), with the first `lags`
/// autocorrelations. sqrt(q) without autocorrelation; NaN where the sum leaves no variance.
/// Source: A. W. Lo, "The statistics of Sharpe ratios", FAJ 58 (2002).
double autocorrelated_scale(std::span<const double> returns, double periods, std::size_t lags);

/// t-statistic of the mean with errors that allow for autocorrelation over `lags` bars (Bartlett's
/// weights). NaN for fewer than two returns or without dispersion.
/// Source: W. K. Newey and K. D. West, Econometrica 55 (1987).
double mean_t_statistic(std::span<const double> returns, std::size_t lags);

/// floor(4 (n / 100)^(2/9)), the usual number of lags for n returns.
/// Source: W. K. Newey and K. D. West, Review of Economic Studies 61 (1994).
std::size_t usual_lags(std::size_t count);

} // namespace corvex::engine::inline v1
