#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Sums of the returns of several trials over consecutive blocks of the rows: all that a Sharpe
/// ratio over any set of blocks needs. blocks x trials, one block after the other.
struct BlockSums {
    std::vector<double> sums;
    std::vector<double> squares;
    std::vector<std::size_t> counts; ///< rows of each block
    std::size_t trials = 0;
};

/// Cuts `rows` into `blocks` of which the first are one row longer where they cannot be equal.
/// @param returns  rows x trials, one row after the other, none missing; less the riskless return
/// @throws std::invalid_argument for a size that is not rows x trials, values that are not finite,
///         or more blocks than rows
BlockSums block_sums(std::span<const double> returns, std::size_t rows, std::size_t trials,
                     std::size_t blocks);

/// How the trial that was best inside did outside, over all ways to take half of the blocks.
struct Overfitting {
    double probability; ///< share of the halvings with logit <= 0: the probability of overfitting
    double loss;        ///< share in which the chosen trial has a negative ratio outside
    double slope;       ///< of its ratio outside on the one inside, by least squares
    std::vector<double> logits; ///< ln(w / (1 - w)) of each halving
    std::vector<double> inside; ///< Sharpe ratio per bar of the chosen trial
    std::vector<double> outside;
};

inline constexpr std::size_t kMostBlocks = 20; ///< 184,756 halvings

/// Probability of backtest overfitting by combinatorially symmetric cross-validation.
///
/// w = rank of the inside winner among the trials outside / (N + 1), 1 for the worst; equals share
/// the mean of their ranks, and of equals inside the first is chosen. A trial without dispersion in
/// a half counts there as ratio 0. Everything is NaN or empty for fewer than two trials.
///
/// @throws std::invalid_argument for a number of blocks that is odd, below 2 or above kMostBlocks
/// Source: D. H. Bailey, J. Borwein, M. Lopez de Prado and Q. J. Zhu, "The probability of backtest
/// overfitting", Journal of Computational Finance 20 (2016).
Overfitting backtest_overfitting(const BlockSums& blocks);

/// Participation ratio of the trials: (sum of eigenvalues)^2 / sum of their squares of the
/// correlation matrix, N^2 / sum of squared correlations. N for independent trials, 1 for copies
/// of one; trials without dispersion are left out.
/// @param returns  rows x trials, one row after the other, none missing
double effective_trials(std::span<const double> returns, std::size_t rows, std::size_t trials,
                        unsigned threads);

} // namespace corvex::engine::inline v1
