#include "corvex/engine/confidence/block_length.hpp"
#include "corvex/engine/confidence/drawn_paths.hpp"
#include "corvex/engine/confidence/intervals.hpp"
#include "corvex/engine/confidence/normal.hpp"
#include "corvex/engine/confidence/overfitting.hpp"
#include "corvex/engine/confidence/path_figures.hpp"
#include "corvex/engine/confidence/random_targets.hpp"
#include "corvex/engine/confidence/sharpe_tests.hpp"
#include "corvex/engine/confidence/superiority.hpp"

#include <nanobind/nanobind.h>

#include <stdexcept>
#include <string_view>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

using Floats = InputArray<double>;
using Table = nb::ndarray<const double, nb::ndim<2>, nb::c_contig, nb::device::cpu>;

std::span<const double> all_of(const Table& table) {
    return {table.data(), table.shape(0) * table.shape(1)};
}

engine::Advantages advantages_of(const Table& table) {
    return {all_of(table), table.shape(0), table.shape(1)};
}

engine::Resampling resampling(std::size_t draws, double block, std::uint64_t seed,
                              unsigned threads) {
    return {draws, block, seed, threads};
}

nb::object sharpe_sample(const Floats& returns, double riskfree) {
    const engine::SharpeSample found = engine::sharpe_sample(as_span(returns), riskfree);
    return nb::make_tuple(found.sharpe, found.skewness, found.kurtosis, found.count);
}

double probabilistic_sharpe(double sharpe, double skewness, double kurtosis, std::size_t count,
                            double threshold) {
    return engine::probabilistic_sharpe({sharpe, skewness, kurtosis, count}, threshold);
}

double minimum_track_record(double sharpe, double skewness, double kurtosis, std::size_t count,
                            double threshold, double confidence) {
    return engine::minimum_track_record({sharpe, skewness, kurtosis, count}, threshold, confidence);
}

nb::object path_figures(const Floats& returns, double periods, double riskfree) {
    const auto found = engine::path_figures(as_span(returns), {periods, riskfree});
    return nb::cast(to_numpy(std::vector<double>(found.begin(), found.end())));
}

nb::object bootstrap_figures(const Floats& returns, double periods, double riskfree,
                             std::size_t draws, double block, std::uint64_t seed, unsigned threads,
                             bool moments_only) {
    std::vector<double> table;
    {
        const nb::gil_scoped_release released;
        table = engine::bootstrap_figures(as_span(returns), {periods, riskfree},
                                          resampling(draws, block, seed, threads), moments_only);
    }
    return nb::cast(to_numpy(std::move(table), {draws, engine::kPathFigures}));
}

nb::object figures_without_each(const Floats& returns, double periods, double riskfree,
                                unsigned threads) {
    std::vector<double> table;
    {
        const nb::gil_scoped_release released;
        table = engine::figures_without_each(as_span(returns), {periods, riskfree}, threads);
    }
    return nb::cast(to_numpy(std::move(table), {returns.shape(0), engine::kPathFigures}));
}

engine::IntervalMethod method_named(std::string_view name) {
    if (name == "percentile") {
        return engine::IntervalMethod::kPercentile;
    }
    if (name == "basic") {
        return engine::IntervalMethod::kBasic;
    }
    if (name == "bca") {
        return engine::IntervalMethod::kBca;
    }
    throw std::invalid_argument("method must be 'percentile', 'basic' or 'bca'");
}

nb::tuple bootstrap_interval(const Floats& draws, double observed, double level,
                             const nb::str& method, const Floats& jackknife) {
    const engine::Interval found = engine::bootstrap_interval(
        as_span(draws), observed, level, method_named(method.c_str()), as_span(jackknife));
    return nb::make_tuple(found.low, found.high);
}

std::vector<std::size_t> bars_of(const InputArray<std::int64_t>& given) {
    std::vector<std::size_t> bars;
    for (const std::int64_t bar : as_span(given)) {
        if (bar < 0) {
            throw std::invalid_argument("the points and the horizons must not be below 0");
        }
        bars.push_back(static_cast<std::size_t>(bar));
    }
    return bars;
}

nb::tuple draw_paths(const Floats& returns, const InputArray<std::int64_t>& points,
                     const InputArray<std::int64_t>& horizons, std::size_t draws, double block,
                     std::uint64_t seed, unsigned threads) {
    const std::vector<std::size_t> noted = bars_of(points);
    const std::vector<std::size_t> ends = bars_of(horizons);
    engine::DrawnPaths paths;
    {
        const nb::gil_scoped_release released;
        paths = engine::draw_paths(as_span(returns), noted, ends,
                                   resampling(draws, block, seed, threads));
    }
    return nb::make_tuple(to_numpy(std::move(paths.wealth), {draws, noted.size()}),
                          to_numpy(std::move(paths.deepest), {draws, ends.size()}),
                          to_numpy(std::move(paths.longest), {draws, ends.size()}));
}

nb::tuple superiority_test(const Table& advantages, std::size_t draws, double block,
                           std::uint64_t seed, unsigned threads) {
    engine::SuperiorityTest test;
    {
        const nb::gil_scoped_release released;
        test = engine::superiority_test(advantages_of(advantages),
                                        resampling(draws, block, seed, threads));
    }
    return nb::make_tuple(test.statistic, test.lower, test.consistent, test.upper, test.reality);
}

nb::object superior_models(const Table& advantages, double size, std::size_t draws, double block,
                           std::uint64_t seed, unsigned threads) {
    std::vector<std::int64_t> columns;
    {
        const nb::gil_scoped_release released;
        for (const std::size_t column : engine::superior_models(
                 advantages_of(advantages), size, resampling(draws, block, seed, threads))) {
            columns.push_back(static_cast<std::int64_t>(column));
        }
    }
    return nb::cast(to_numpy(std::move(columns)));
}

nb::tuple block_sums(const Table& returns, std::size_t blocks) {
    engine::BlockSums found;
    {
        const nb::gil_scoped_release released;
        found = engine::block_sums(all_of(returns), returns.shape(0), returns.shape(1), blocks);
    }
    const std::vector<std::int64_t> counts(found.counts.begin(), found.counts.end());
    return nb::make_tuple(to_numpy(std::move(found.sums), {blocks, found.trials}),
                          to_numpy(std::move(found.squares), {blocks, found.trials}),
                          to_numpy(counts));
}

nb::tuple backtest_overfitting(const Table& sums, const Table& squares,
                               const InputArray<std::int64_t>& counts) {
    const auto first = all_of(sums);
    const auto second = all_of(squares);
    engine::BlockSums blocks;
    blocks.sums.assign(first.begin(), first.end());
    blocks.squares.assign(second.begin(), second.end());
    for (const std::int64_t count : as_span(counts)) {
        if (count < 1) {
            throw std::invalid_argument("there must be at least one row for each block");
        }
        blocks.counts.push_back(static_cast<std::size_t>(count));
    }
    blocks.trials = sums.shape(1);
    engine::Overfitting found;
    {
        const nb::gil_scoped_release released;
        found = engine::backtest_overfitting(blocks);
    }
    return nb::make_tuple(found.probability, found.loss, found.slope,
                          to_numpy(std::move(found.logits)), to_numpy(std::move(found.inside)),
                          to_numpy(std::move(found.outside)));
}

double effective_trials(const Table& returns, unsigned threads) {
    const nb::gil_scoped_release released;
    return engine::effective_trials(all_of(returns), returns.shape(0), returns.shape(1), threads);
}

nb::object bootstrap_deviations(const Table& advantages, double block) {
    return nb::cast(to_numpy(engine::bootstrap_deviations(advantages_of(advantages), block)));
}

nb::object
random_targets(const Table& weights,
               const nb::ndarray<const bool, nb::ndim<2>, nb::c_contig, nb::device::cpu>& priced,
               std::size_t first_draw, std::size_t draws, std::uint64_t seed) {
    const std::span<const double> values = all_of(weights);
    const std::vector<std::uint8_t> known(priced.data(), priced.data() + priced.size());
    std::vector<double> drawn(draws * values.size());
    {
        const nb::gil_scoped_release released;
        engine::RandomTargets targets({values, known, weights.shape(1)});
        for (std::size_t draw = 0; draw < draws; ++draw) {
            engine::RandomStream stream(seed, first_draw + draw);
            targets.draw(stream, std::span(drawn).subspan(draw * values.size(), values.size()));
        }
    }
    return nb::cast(to_numpy(std::move(drawn), {draws, weights.shape(0), weights.shape(1)}));
}

void bind_single_series(nb::module_& module) {
    nb::list names;
    for (const std::string_view name : engine::path_figure_names()) {
        names.append(nb::str(name.data(), name.size()));
    }
    module.attr("PATH_FIGURE_NAMES") = nb::tuple(names);
    module.def("normal_cdf", &engine::normal_cdf, "value"_a, "Standard normal distribution.");
    module.def("normal_quantile", &engine::normal_quantile, "probability"_a, "Its inverse.");
    module.def("sharpe_sample", &sharpe_sample, "returns"_a, "riskfree"_a,
               "(sharpe, skewness, kurtosis, count) per bar.");
    module.def("probabilistic_sharpe", &probabilistic_sharpe, "sharpe"_a, "skewness"_a,
               "kurtosis"_a, "count"_a, "threshold"_a,
               "Probability that the true ratio per bar is above the threshold.");
    module.def("minimum_track_record", &minimum_track_record, "sharpe"_a, "skewness"_a,
               "kurtosis"_a, "count"_a, "threshold"_a, "confidence"_a,
               "Bars that it takes to say so.");
    module.def("expected_largest_sharpe", &engine::expected_largest_sharpe, "spread"_a, "trials"_a,
               "Largest ratio to expect of trials without skill.");
    module.def(
        "autocorrelated_scale",
        [](const Floats& returns, double periods, std::size_t lags) {
            return engine::autocorrelated_scale(as_span(returns), periods, lags);
        },
        "returns"_a, "periods"_a, "lags"_a, "What annualises an autocorrelated ratio.");
    module.def(
        "mean_t_statistic",
        [](const Floats& returns, std::size_t lags) {
            return engine::mean_t_statistic(as_span(returns), lags);
        },
        "returns"_a, "lags"_a, "Newey-West t-statistic of the mean.");
    module.def("usual_lags", &engine::usual_lags, "count"_a, "Lags for so many returns.");
    module.def(
        "automatic_block_length",
        [](const Floats& values) { return engine::automatic_block_length(as_span(values)); },
        "values"_a, "Mean block of a stationary bootstrap.");
}

void bind_resampling(nb::module_& module) {
    module.def("path_figures", &path_figures, "returns"_a, "periods"_a, "riskfree"_a,
               "Figures in the order of PATH_FIGURE_NAMES.");
    module.def("bootstrap_figures", &bootstrap_figures, "returns"_a, "periods"_a, "riskfree"_a,
               "draws"_a, "block"_a, "seed"_a, "threads"_a = 0, "moments_only"_a = false,
               "(draws, figures) of paths resampled in blocks.");
    module.def("figures_without_each", &figures_without_each, "returns"_a, "periods"_a,
               "riskfree"_a, "threads"_a = 0, "(returns, figures), one return left out each.");
    module.def("bootstrap_interval", &bootstrap_interval, "draws"_a, "observed"_a, "level"_a,
               "method"_a, "jackknife"_a, "(low, high).");
    module.def("draw_paths", &draw_paths, "returns"_a, "points"_a, "horizons"_a, "draws"_a,
               "block"_a, "seed"_a, "threads"_a = 0,
               "(wealth of shape (draws, points), deepest drawdowns and longest stays below a high "
               "of shape (draws, horizons)).");
}

void bind_many_trials(nb::module_& module) {
    module.def("superiority_test", &superiority_test, "advantages"_a, "draws"_a, "block"_a,
               "seed"_a, "threads"_a = 0,
               "(statistic, lower, consistent, upper, reality check) of a (rows, models) array.");
    module.def("superior_models", &superior_models, "advantages"_a, "size"_a, "draws"_a, "block"_a,
               "seed"_a, "threads"_a = 0, "Columns of the models that are better.");
    module.def("bootstrap_deviations", &bootstrap_deviations, "advantages"_a, "block"_a,
               "Deviations of sqrt(T) times the means under the bootstrap.");
    module.def("block_sums", &block_sums, "returns"_a, "blocks"_a,
               "(sums, sums of squares, rows) of consecutive blocks of a (rows, trials) array.");
    module.def("backtest_overfitting", &backtest_overfitting, "sums"_a, "squares"_a, "counts"_a,
               "(probability, loss, slope, logits, inside, outside) over all halvings.");
    module.def("random_targets", &random_targets, "weights"_a, "priced"_a, "first_draw"_a,
               "draws"_a, "seed"_a,
               "(draws, rebalances, assets): the weights on assets drawn at random.");
    module.def("effective_trials", &effective_trials, "returns"_a, "threads"_a = 0,
               "Participation ratio of a (rows, trials) array.");
}

} // namespace

void bind_confidence(nb::module_& module) {
    bind_single_series(module);
    bind_resampling(module);
    bind_many_trials(module);
}

} // namespace corvex::bindings
