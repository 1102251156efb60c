#pragma once

#include "corvex/engine/confidence/block_draw.hpp"

#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace corvex::engine::inline v1 {

/// What is asked of each path that a bootstrap draws, in the order of their columns.
enum class PathFigure { kSharpe, kVolatility, kCagr, kMaxDrawdown, kCalmar, kFinalValue };

inline constexpr std::size_t kPathFigures = 6;

/// Their names: "sharpe", "volatility", "cagr", "max_drawdown", "calmar", "final_value".
std::array<std::string_view, kPathFigures> path_figure_names();

/// How returns per bar become figures per year.
struct Annual {
    double periods_per_year; ///< bars in a year
    double riskfree;         ///< return per bar
};

/// The figures of one set of returns, as the statistics record defines them but for time, which is
/// counted in bars: Sharpe ratio and volatility with n - 1, CAGR over returns / periods_per_year
/// years, largest drawdown (negative or 0), CAGR over its size, growth of 1. NaN where undefined.
/// @param returns  fractions, without missing ones
std::array<double, kPathFigures> path_figures(std::span<const double> returns,
                                              const Annual& annual);

/// The figures of `draws` paths as long as `returns`, each resampled in blocks: draws x figures.
///
/// The same settings draw the same blocks from every series of the same length, so that two runs
/// make a paired bootstrap. Where only the Sharpe ratio and the volatility are asked for
/// (`moments_only`), sums over whole blocks do, and the other columns are NaN.
///
/// @param returns  at least one; fractions above or equal to -1, without missing ones
/// @throws std::invalid_argument for returns or settings out of these bounds
std::vector<double> bootstrap_figures(std::span<const double> returns, const Annual& annual,
                                      const Resampling& how, bool moments_only = false);

/// The figures with one return left out, for each: returns x figures. For jackknife estimates.
std::vector<double> figures_without_each(std::span<const double> returns, const Annual& annual,
                                         unsigned threads);

} // namespace corvex::engine::inline v1
