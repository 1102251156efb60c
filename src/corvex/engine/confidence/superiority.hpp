#pragma once

#include "corvex/engine/confidence/block_draw.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// What each of several models earned above a benchmark: rows x models, one row after the other.
struct Advantages {
    std::span<const double> values; ///< none missing
    std::size_t rows = 0;
    std::size_t models = 0;
};

/// How likely the best model is not better than the benchmark, by three treatments of the models
/// that are worse. NaN without a model that has dispersion.
struct SuperiorityTest {
    double statistic;  ///< largest sqrt(T) mean / deviation over the models, at least 0
    double lower;      ///< p-value with all models that are worse set to their own mean: too small
    double consistent; ///< with those that are clearly worse left where they are
    double upper;      ///< with all recentred at 0: too large; White's reality check, studentised
    double reality;    ///< White's reality check as published: not studentised
};

/// Hansen's test of superior predictive ability and White's reality check.
/// @throws std::invalid_argument for fewer than two rows, no model, values that are not finite or
///         settings out of bounds
/// Sources: P. R. Hansen, JBES 23 (2005); H. White, Econometrica 68 (2000).
SuperiorityTest superiority_test(const Advantages& advantages, const Resampling& how);

/// The models that are better than the benchmark with a family-wise error of `size`, as columns,
/// found step by step: each round tests those that are left against their own largest draw.
/// Source: J. P. Romano and M. Wolf, Econometrica 73 (2005), with Hansen's consistent recentring.
std::vector<std::size_t> superior_models(const Advantages& advantages, double size,
                                         const Resampling& how);

/// Deviation of sqrt(T) times the mean of each model under the stationary bootstrap, without
/// drawing: gamma_0 + 2 sum_i [(1 - i/T) q^i + i/T q^(T-i)] gamma_i, q = 1 - 1/block.
/// Source: D. N. Politis and J. P. Romano, JASA 89 (1994), lemma 1.
std::vector<double> bootstrap_deviations(const Advantages& advantages, double mean_block);

} // namespace corvex::engine::inline v1
