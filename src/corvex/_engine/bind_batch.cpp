#include "corvex/engine/portfolio/batch.hpp"
#include "corvex/engine/portfolio/target_rows.hpp"

#include <nanobind/nanobind.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

#include "arrays.hpp"
#include "portfolio_arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

using engine::Batch;
using engine::BatchRun;
using engine::Options;
using engine::Plan;
using engine::RunSummary;

using Times = InputArray<std::int64_t>;
using RunTable =
    nb::ndarray<const std::int64_t, nb::ndim<2>, nb::c_contig, nb::device::cpu, nb::numpy>;

/// Plans as Python gives them: the arrays stay alive here, the signals are copied, so that no other
/// thread can change rows that have been checked.
class PlanList {
  public:
    PlanList(const nb::list& given, std::size_t assets) {
        const std::size_t count = nb::len(given);
        targets_.reserve(count);
        signals_.reserve(count);
        for (const nb::handle entry : given) {
            add(nb::cast<nb::tuple>(entry), assets);
        }
    }
    [[nodiscard]] const std::vector<Plan>& plans() const { return plans_; }

  private:
    void add(const nb::tuple& entry, std::size_t assets) {
        if (nb::len(entry) != 3) {
            throw std::invalid_argument("a plan is (target, signal_session, first_session)");
        }
        targets_.push_back(nb::cast<InputTable>(entry[0], false));
        if (targets_.back().shape(1) != assets) {
            throw std::invalid_argument("target and close must have one column for each asset");
        }
        const auto signals = nb::cast<Times>(entry[1]);
        signals_.emplace_back(signals.data(), signals.data() + signals.shape(0));
        plans_.push_back(
            {as_table(targets_.back()).values, signals_.back(), nb::cast<std::size_t>(entry[2])});
    }

    std::vector<InputTable> targets_;
    std::vector<std::vector<std::int64_t>> signals_;
    std::vector<Plan> plans_;
};

std::vector<BatchRun> read_runs(const RunTable& table) {
    if (table.shape(1) != 2) {
        throw std::invalid_argument("runs must have two columns: plan and options");
    }
    std::vector<BatchRun> runs;
    for (std::size_t row = 0; row < table.shape(0); ++row) {
        const std::int64_t plan = table.data()[2 * row];
        const std::int64_t options = table.data()[2 * row + 1];
        if (plan < 0 || options < 0) {
            throw std::invalid_argument("a run names a plan or options that are not there");
        }
        runs.push_back({static_cast<std::size_t>(plan), static_cast<std::size_t>(options)});
    }
    return runs;
}

/// One array out of a member of each summary.
template <typename Value, typename Member>
nb::object column(const std::vector<RunSummary>& runs, const Member& member) {
    std::vector<Value> values(runs.size());
    std::ranges::transform(runs, values.begin(), member);
    return nb::cast(to_numpy(std::move(values)));
}

/// One row of an array out of a member of each summary.
template <typename Member>
nb::object rows(const std::vector<RunSummary>& runs, std::size_t width, const Member& member) {
    std::vector<double> values;
    values.reserve(runs.size() * width);
    for (const RunSummary& run : runs) {
        const auto& row = member(run);
        values.insert(values.end(), row.begin(), row.end());
    }
    return nb::cast(to_numpy(std::move(values), {runs.size(), width}));
}

nb::dict as_dict(const std::vector<RunSummary>& runs, std::size_t blocks, nb::object curves) {
    nb::dict out;
    out["figures"] = rows(runs, engine::kFigureCount, [](const auto& r) { return r.figures; });
    out["fees"] = column<double>(runs, [](const auto& r) { return r.fees; });
    out["taxes"] = column<double>(runs, [](const auto& r) { return r.taxes; });
    out["slippage"] = column<double>(runs, [](const auto& r) { return r.slippage; });
    out["turnover"] = column<double>(runs, [](const auto& r) { return r.turnover; });
    out["win_rate"] = column<double>(runs, [](const auto& r) { return r.win_rate; });
    out["trades"] = column<std::int64_t>(runs, [](const auto& r) { return r.trades; });
    out["ruin_session"] = column<std::int64_t>(runs, [](const auto& r) { return r.ruin_session; });
    out["begins"] = column<std::int64_t>(runs, [](const auto& r) { return r.begins; });
    out["sums"] =
        blocks > 0 ? rows(runs, blocks, [](const auto& r) { return r.sums; }) : nb::none();
    out["squares"] =
        blocks > 0 ? rows(runs, blocks, [](const auto& r) { return r.squares; }) : nb::none();
    out["curves"] = std::move(curves);
    return out;
}

nb::dict simulate_many(const SharedPrices& prices, const nb::list& plans, const nb::list& options,
                       const RunTable& runs, const Times& times, const Times& closes,
                       const Times& before_first, double riskfree_rate, std::size_t blocks,
                       bool curves, unsigned threads) {
    const PlanList plan_list(plans, prices.prices().assets());
    std::vector<Options> option_list;
    for (const nb::handle given : options) {
        option_list.push_back(read_options(given));
    }
    const std::vector<BatchRun> run_list = read_runs(runs);
    const std::vector<std::int64_t> rows{as_span(closes).begin(), as_span(closes).end()};
    Batch batch{.prices = prices.prices(),
                .plans = plan_list.plans(),
                .options = option_list,
                .runs = run_list,
                .calendar = {as_span(times), rows, as_span(before_first)},
                .riskfree_rate = riskfree_rate,
                .blocks = blocks,
                .threads = threads};
    nb::object table = nb::none();
    if (curves) {
        const std::size_t sessions = prices.prices().sessions();
        table =
            nb::module_::import_("numpy").attr("empty")(nb::make_tuple(run_list.size(), sessions));
        const auto view = nb::cast<nb::ndarray<double, nb::ndim<2>, nb::c_contig>>(table);
        batch.curves = {view.data(), run_list.size() * sessions};
    }
    std::vector<RunSummary> found;
    {
        const nb::gil_scoped_release released;
        found = engine::run_batch(batch);
    }
    return as_dict(found, blocks, std::move(table));
}

/// Two-dimensional, in any order in memory.
template <typename Value>
using AnyTable = nb::ndarray<const Value, nb::ndim<2>, nb::device::cpu, nb::numpy>;

template <typename Value>
nb::tuple read_targets(const AnyTable<Value>& weights, const Times& rows, double limit,
                       bool leverage, bool only_changes) {
    const engine::WeightView<Value> view{weights.data(), weights.stride(0), weights.stride(1),
                                         weights.shape(0), weights.shape(1)};
    engine::TargetRows found = engine::read_targets(
        view, as_span(rows), {.limit = limit, .leverage = leverage, .only_changes = only_changes});
    const std::size_t kept = found.kept.size();
    return nb::make_tuple(to_numpy(std::move(found.kept)),
                          to_numpy(std::move(found.targets), {kept, view.assets}),
                          to_numpy(std::move(found.gross)));
}

template <typename Value>
void bind_read_targets(nb::module_& module) {
    module.def("read_targets", &read_targets<Value>, "weights"_a.noconvert(), "rows"_a,
               nb::kw_only(), "limit"_a, "leverage"_a, "only_changes"_a,
               "Turn weights into target weights; the stub file describes it.");
}

} // namespace

void bind_batch(nb::module_& module) {
    module.def("simulate_many", &simulate_many, "prices"_a, "plans"_a, "options"_a,
               "runs"_a.noconvert(), nb::kw_only(), "times"_a, "closes"_a, "before_first"_a,
               "riskfree_rate"_a = 0.02, "blocks"_a = 0, "curves"_a = false, "threads"_a = 0,
               "Simulate many runs over shared prices; the stub file describes it.");
    bind_read_targets<double>(module);
    bind_read_targets<bool>(module);
}

} // namespace corvex::bindings
