#include "corvex/core/report/report/construction.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/report/daily_curve.hpp"
#include "corvex/core/report/report/last_change.hpp"

#include <optional>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

nb::object time_zone(nb::handle index) { return pyglue::attribute_or(index, "tz", nb::none()); }

/// The benchmark in the time zone of the weight table. The market's own series is left as it is:
/// it may serve other reports.
nb::object in_zone_of(const nb::object& benchmark, nb::handle position) {
    if (!pyglue::is_instance(benchmark, global("pd").attr("Series")) ||
        time_zone(benchmark.attr("index")).is_none()) {
        return benchmark;
    }
    const nb::object dates = global("pd").attr("Series")(benchmark.attr("index"));
    const nb::object converted =
        dates.attr("dt").attr("tz_convert")(time_zone(position.attr("index")));
    nb::object result = benchmark.attr("copy")(nb::arg("deep") = false);
    result.attr("index") = converted;
    return result;
}

nb::object benchmark_of(nb::handle market, nb::handle position, nb::handle creturn) {
    const nb::object benchmark = in_zone_of(market.attr("get_benchmark")(), position);
    if (pyglue::length(benchmark) != 0) {
        return benchmark;
    }
    return global("pd").attr("Series")(pyglue::integer(1),
                                       nb::arg("index") = creturn.attr("index"));
}

nb::object daily_benchmark(nb::handle benchmark, nb::handle daily_creturn) {
    const nb::object known = benchmark.attr("dropna")();
    const nb::object aligned = known.attr("reindex")(daily_creturn.attr("index"),
                                                     nb::arg("method") = pyglue::text("ffill"));
    return aligned.attr("ffill")().attr("rebase")();
}

nb::object local_now() { return global("datetime").attr("datetime").attr("now")(); }

nb::object update_date(nb::handle position) {
    return pyglue::length(position) > 0 ? nb::object(position.attr("index")[-1]) : local_now();
}

/// Whether one of the labels holds some letters; nothing where a label is no text.
std::optional<bool> any_text_holds(nb::handle labels, nb::handle letters) {
    if (!pyglue::is_instance(labels, global("pd").attr("Index"))) {
        return std::nullopt;
    }
    const nb::object texts = labels.attr("tolist")();
    bool found = false;
    for (const nb::handle label : texts) {
        if (!PyUnicode_CheckExact(label.ptr())) {
            return std::nullopt;
        }
        found = found || PyUnicode_Contains(label.ptr(), letters.ptr()) == 1;
    }
    return found;
}

nb::object asset_type(nb::handle position) {
    const nb::object labels = position.attr("columns");
    // A table without labels has no texts to search, and pandas would refuse to.
    if (pyglue::length(labels) == 0) {
        return pyglue::text("tw_stock");
    }
    const nb::object coin = pyglue::text("USDT");
    const std::optional<bool> quoted_in_usdt = any_text_holds(labels, coin);
    if (quoted_in_usdt) {
        return pyglue::text(*quoted_in_usdt ? "crypto" : "tw_stock");
    }
    const nb::object found = labels.attr("str").attr("find")(coin);
    const nb::object absent = pyglue::compare(found, Py_EQ, pyglue::integer(-1));
    return pyglue::text(pyglue::is_true(absent.attr("all")()) ? "tw_stock" : "crypto");
}

nb::object last_trading_date(nb::handle position) {
    const nb::object changed = last_change(position);
    if (!changed.is_none()) {
        return changed;
    }
    return pyglue::length(position) > 0 ? nb::object(position.attr("index")[0]) : local_now();
}

void set_strategy_curves(nb::handle self, nb::handle creturn) {
    self.attr("creturn") = creturn;
    self.attr("daily_creturn") = daily_curve(creturn);
}

void set_benchmarks(nb::handle self, nb::handle position, nb::handle market) {
    self.attr("benchmark") = benchmark_of(market, position, self.attr("creturn"));
    self.attr("daily_benchmark") =
        daily_benchmark(self.attr("benchmark"), self.attr("daily_creturn"));
}

void set_others(const Call& call) {
    const nb::handle self = call.self();
    const nb::handle position = call[2];
    self.attr("position") = position;
    self.attr("fee_ratio") = call[3];
    self.attr("tax_ratio") = call[4];
    self.attr("trade_at") = call[5];
    self.attr("update_date") = update_date(position);
    self.attr("asset_type") = asset_type(position);
    self.attr("last_trading_date") = last_trading_date(position);
    self.attr("next_trading_date") = call[6];
    self.attr("market") = call[7];
    for (const char* name :
         {"weights", "next_weights", "actions", "trades", "live_performance_start", "stop_loss",
          "take_profit", "trail_stop", "_execution_override"}) {
        self.attr(name) = nb::none();
    }
}

nb::object init(const Call& call) {
    set_strategy_curves(call.self(), call[1]);
    set_benchmarks(call.self(), call[2], call[7]);
    set_others(call);
    call.self().attr("trades") = global("pd").attr("DataFrame")();
    return nb::none();
}

nb::object init_strategy_curves(const Call& call) {
    set_strategy_curves(call.self(), call[1]);
    return nb::none();
}

nb::object init_benchmarks(const Call& call) {
    set_benchmarks(call.self(), call[1], call[2]);
    return nb::none();
}

nb::object init_without_curves(const Call& call) {
    call.self().attr("creturn") = call[1];
    set_others(call);
    return nb::none();
}

constexpr Parameter kInit[] = {{"self"},      {"creturn"},  {"position"},          {"fee_ratio"},
                               {"tax_ratio"}, {"trade_at"}, {"next_trading_date"}, {"market"}};

constexpr Parameter kCurve[] = {{"self"}, {"creturn"}};
constexpr Parameter kMarket[] = {{"self"}, {"position"}, {"market"}};

const FunctionSpec kMethods[] = {
    {"__init__", kInit, init,
     "Parameters\n----------\ncreturn : Series\n    The strategy's equity curve, indexed by date.\n"
     "position : DataFrame\n    Target weights as fractions, dates x asset labels.\n"
     "fee_ratio, tax_ratio : float\n    Commission on each trade and tax on each sale, as "
     "fractions.\n"
     "trade_at : str or table\n    The price at which orders fill.\n"
     "next_trading_date : Timestamp\n    The first session after the data.\n"
     "market : Market\n    Where the assets trade; its benchmark is read here."},
    {"_init_without_curves", kInit, init_without_curves,
     "As __init__, but without `daily_creturn`, `benchmark` and `daily_benchmark`, and with None "
     "for `trades`:\nthe caller adds or defers them."},
    {"_init_strategy_curves", kCurve, init_strategy_curves,
     "The part of __init__ that sets `creturn` and `daily_creturn`."},
    {"_init_benchmarks", kMarket, init_benchmarks,
     "The part of __init__ that sets `benchmark` and `daily_benchmark`, after the strategy's "
     "curves."},
};

} // namespace

std::span<const FunctionSpec> construction_methods() { return kMethods; }

} // namespace corvex::report
