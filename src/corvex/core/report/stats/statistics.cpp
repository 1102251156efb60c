#include "corvex/core/report/stats/statistics.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/numpy_api.hpp"
#include "corvex/core/report/report/deferred.hpp"
#include "corvex/core/report/stats/analyses.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

constexpr double kDefaultRiskfreeRate = 0.02;

constexpr const char* kResampleWarning = "report.get_stats(resample=...) has no effect and will be "
                                         "removed; stats are always computed on daily "
                                         "returns (see the daily_*, monthly_* and yearly_* keys).";

constexpr const char* kNoValues =
    "there are no statistics of a curve without a value: it is empty, "
    "or worth nothing at the end of its first day";

/// `table.transpose().to_dict()`: a dictionary for each row of a table.
nb::object by_rows(nb::handle table) {
    const nb::object values = table.attr("to_numpy")();
    auto* const cells = reinterpret_cast<PyArrayObject*>(values.ptr());
    const bool plain = table.type().is(global("pd").attr("DataFrame")) &&
                       PyArray_Check(values.ptr()) && PyArray_TYPE(cells) == NPY_FLOAT64 &&
                       pyglue::is_true(table.attr("index").attr("is_unique")) &&
                       pyglue::is_true(table.attr("columns").attr("is_unique"));
    if (!plain) {
        return table.attr("transpose")().attr("to_dict")();
    }
    const nb::object columns = table.attr("columns").attr("tolist")();
    nb::object result = nb::dict();
    const auto zip = pyglue::builtin("zip");
    pyglue::for_each(zip(table.attr("index").attr("tolist")(), values.attr("tolist")()),
                     [&](const nb::object& row) {
                         result[nb::object(row[0])] = pyglue::builtin("dict")(zip(columns, row[1]));
                         return true;
                     });
    return result;
}

void add_aliases(const nb::object& record) {
    pyglue::for_each(global("STATS_METRIC_ALIASES").attr("items")(), [&](const nb::object& alias) {
        const nb::object statistic = alias[0];
        if (pyglue::contains(record, statistic)) {
            record[nb::object(alias[1])] = record[statistic];
        }
        return true;
    });
}

nb::object ffn_stats_dict(const Call& call) {
    const nb::object stats = call[1].attr("calc_stats")();
    stats.attr("set_riskfree_rate")(call[2]);
    nb::object record = stats.attr("stats").attr("to_dict")();
    for (const char* key : {"start", "end"}) {
        const nb::object date = record[key];
        if (!pyglue::equals(date, date)) { // a missing date is not even itself
            pyglue::raise(PyExc_ValueError, kNoValues);
        }
        record[key] = date.attr("strftime")(text("%Y-%m-%d"));
    }
    record["return_table"] = by_rows(stats.attr("return_table"));
    add_aliases(record);
    return record;
}

nb::object get_stats(const Call& call) {
    if (!call[1].is_none()) {
        // This function has no frame of its own: level 1 is already the caller's line.
        pyglue::import_module("warnings")
            .attr("warn")(text(kResampleWarning), nb::borrow<nb::object>(PyExc_DeprecationWarning),
                          nb::arg("stacklevel") = pyglue::integer(1));
    }
    return call.self().attr("_get_stats")(call[2]);
}

nb::object share_above_zero(nb::handle returns) {
    const Py_ssize_t count = pyglue::length(returns);
    if (count == 0) {
        return pyglue::integer(0);
    }
    const nb::object wins = pyglue::compare(returns, Py_GT, pyglue::integer(0));
    return global("sum")(wins.attr("tolist")()) / pyglue::integer(count);
}

/// Closed trades are those without a missing value. The market values that the metrics record
/// attaches do not count: to ask for it must not change this figure.
nb::object win_ratio(nb::handle trades) {
    nb::list attached;
    attached.append(text("market_value@entry_date"));
    const nb::object own =
        trades.attr("drop")(nb::arg("columns") = attached, nb::arg("errors") = text("ignore"));
    const nb::object closed = own.attr("dropna")();
    // Without any trade there need not be a column of returns.
    return pyglue::length(closed) == 0 ? pyglue::integer(0)
                                       : share_above_zero(closed[text("return")]);
}

/// The daily curve as arrays, where nobody has seen the Series and no other function than the
/// module's own would read it; else None.
nb::object unread_curve(nb::handle self) {
    const nb::object method = self.attr("_ffn_stats_dict");
    const nb::object function = pyglue::attribute_or(method, "__func__", nb::none());
    const bool own = pyglue::is_function(function, statistics_methods().front());
    return own ? deferred_fact(self, "daily_curve") : nb::none();
}

nb::object record_of(const nb::object& curve, nb::handle riskfree_rate) {
    const nb::object record = pyglue::import_module("corvex.ffn_core.performance")
                                  .attr("figures_of")(curve, riskfree_rate);
    add_aliases(record);
    return record;
}

nb::object get_stats_uncached(const Call& call) {
    const nb::handle self = call.self();
    const nb::object curve = unread_curve(self);
    const nb::object record =
        curve.is_none() ? self.attr("_ffn_stats_dict")(self.attr("daily_creturn"), call[1])
                        : record_of(curve, call[1]);
    record["version"] = global("corvex").attr("__version__");
    const nb::object returns = deferred_fact(self, "closed_returns");
    record["win_ratio"] =
        returns.is_none() ? win_ratio(self.attr("trades")) : share_above_zero(returns);
    record["drawdown_details"] = strategy_drawdowns(self, curve);
    return record;
}

nb::object get_benchmark_stats(const Call& call) {
    const nb::handle self = call.self();
    return self.attr("_ffn_stats_dict")(self.attr("daily_benchmark"), call[1]);
}

constexpr Parameter kSeriesStats[] = {{"self"}, {"series"}, {"riskfree_rate"}};
constexpr Parameter kGetStats[] = {
    {"self"}, {"resample", nullptr}, {"riskfree_rate", kDefaultRiskfreeRate}};
constexpr Parameter kCached[] = {{"self"}, {"riskfree_rate"}};
constexpr Parameter kBenchmark[] = {{"self"}, {"riskfree_rate", kDefaultRiskfreeRate}};

const FunctionSpec kMethods[] = {
    {"_ffn_stats_dict", kSeriesStats, ffn_stats_dict,
     "The statistics record of one equity series."},
    {"get_stats", kGetStats, get_stats,
     "The strategy's statistics as a dictionary.\n\nIt holds the statistics library's fields "
     "(`cagr`, "
     "`daily_sharpe`, `max_drawdown` ...)\ntogether with the camelCase aliases shared with "
     "`get_metrics()` (`annualReturn`,\n`sharpeRatio`, `maxDrawdown` ...), with equal values.\n\n"
     "Parameters\n----------\nresample : optional\n    Has no effect; deprecated.\n"
     "riskfree_rate : float, default 0.02\n    Annual rate, as a fraction.\n\n"
     "Notes\n-----\nThe record of the last call is kept, one in the whole process, and returned "
     "again for the same\nreport and rate. So copy it before changing it: whoever asks next, "
     "`to_text` too, gets the changed\none. A curve or trades assigned to the report meanwhile do "
     "not show until another report or rate\nhas been asked for, and the report asked for last "
     "stays in memory."},
    {"get_benchmark_stats", kBenchmark, get_benchmark_stats,
     "The same statistics fields for the report's daily benchmark.\n\nParameters\n----------\n"
     "riskfree_rate : float, default 0.02\n    Annual rate, as a fraction."},
};

const FunctionSpec kCachedStats{"_get_stats", kCached, get_stats_uncached,
                                "The strategy's statistics record at an annual risk-free rate."};

} // namespace

std::span<const FunctionSpec> statistics_methods() { return kMethods; }

const FunctionSpec& cached_statistics() { return kCachedStats; }

} // namespace corvex::report
