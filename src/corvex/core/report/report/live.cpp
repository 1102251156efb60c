#include "corvex/core/report/report/live.hpp"

#include "corvex/core/report/common/type_check.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

constexpr const char* kExpiryWarning =
    "report.next_data_expiry() is deprecated, use report.next_future_expiry() instead";

nb::object get_execution(const Call& call) {
    // Reports saved by older versions lack it.
    const nb::object assigned =
        pyglue::attribute_or(call.self(), "_execution_override", nb::none());
    if (!assigned.is_none()) {
        return assigned;
    }
    return global("ReportExecution")
        .attr("from_report")(call.self(), nb::arg("total_weight") = 1.0);
}

nb::object set_execution(const Call& call) {
    const nb::handle self = call.self();
    const nb::handle value = call[1];
    if (PyDict_Check(value.ptr())) {
        pyglue::for_each(value.attr("items")(), [](const nb::object& item) {
            const nb::object key = item[0];
            require_execution(item[1], execution_item(key), "ReportExecution");
            return true;
        });
        self.attr("_execution_override") = value;
        return nb::none();
    }
    require_execution(value, text("execution"), "ReportExecution or dict");
    self.attr("_execution_override") = value;
    for (const char* name : {"weights", "next_weights", "actions", "resample", "next_trading_date",
                             "trade_at", "market", "stop_loss", "take_profit", "trail_stop"}) {
        self.attr(name) = value.attr(name);
    }
    return nb::none();
}

nb::object metrics(const Call& call) { return global("Metrics")(call.self()); }

nb::object next_data_expiry(const Call& /*call*/) {
    // This function has no frame of its own: level 1 is already the caller's line.
    pyglue::import_module("warnings")
        .attr("warn")(text(kExpiryWarning), nb::borrow<nb::object>(PyExc_DeprecationWarning),
                      nb::arg("stacklevel") = pyglue::integer(1));
    return global("data").attr("next_data_expiry")();
}

nb::object next_future_expiry(const Call& /*call*/) {
    return global("data").attr("next_future_expiry")();
}

nb::object suggested_tradable_time(const Call& call) {
    return global("data").attr("suggested_tradable_time")(call.self().attr("market"));
}

nb::object is_tradable(const Call& call) {
    const nb::handle self = call.self();
    const nb::object readiness = pyglue::attribute_or(self, "data_readiness", nb::none());
    if (pyglue::is_true(readiness) &&
        pyglue::is_text_equal(readiness.attr("get")(text("reason")), "historical_backtest")) {
        return nb::bool_(false);
    }
    return global("data").attr("is_tradable")(self.attr("market"));
}

/// The answer of the execution to a question, or whether any of several answers yes.
nb::object asked(nb::handle report, const char* question) {
    const nb::object execution = report.attr("execution");
    if (!PyDict_Check(execution.ptr())) {
        return execution.attr(question)();
    }
    bool any = false;
    pyglue::for_each(execution.attr("values")(), [&](const nb::object& single) {
        any = pyglue::is_true(single.attr(question)());
        return !any;
    });
    return nb::bool_(any);
}

nb::object is_rebalance_due(const Call& call) { return asked(call.self(), "is_rebalance_due"); }

nb::object is_stop_triggered(const Call& call) { return asked(call.self(), "is_stop_triggered"); }

nb::object uses_next_weights(const Call& call) {
    return call.self().attr("execution").attr("uses_next_weights")(call[1]);
}

constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kValue[] = {{"self"}, {"value"}};
constexpr Parameter kNow[] = {{"self"}, {"now", nullptr}};

const FunctionSpec kGetExecution{
    "execution", kSelf, get_execution,
    "What the strategy wants to hold now and next: a ReportExecution built from\n"
    "the report at each read, or what was assigned (one, or a dict of several)."};
const FunctionSpec kSetExecution{"execution", kValue, set_execution};
const FunctionSpec kMetrics{"metrics", kSelf, metrics,
                            "Get the Metrics instance for accessing individual metrics."};

const FunctionSpec kMethods[] = {
    {"next_data_expiry", kSelf, next_data_expiry,
     "The earliest expiry time (UTC) of the data, None without data. Deprecated: use\n"
     "`next_future_expiry`."},
    {"next_future_expiry", kSelf, next_future_expiry,
     "The next expiry time (UTC) of data that has not expired yet, or None."},
    {"suggested_tradable_time", kSelf, suggested_tradable_time,
     "The time (UTC) from which `is_tradable` should hold, with data loaded then; None when it "
     "does "
     "already.\nA time in the past: newer data should be there to load now; of a historical "
     "backtest, "
     "by a\nrun without an end."},
    {"is_tradable", kSelf, is_tradable,
     "Whether the data behind the report is fresh enough to trade on. A backtest with an explicit "
     "end\n"
     "never is."},
    {"is_rebalance_due", kSelf, is_rebalance_due,
     "Whether a rebalance is due now, for any of the executions; a bool."},
    {"uses_next_weights", kNow, uses_next_weights,
     "Whether a position built at `now` should hold `next_weights`.\n\n"
     "Parameters\n----------\nnow : datetime, optional\n"
     "    The current UTC time when not given; a naive one counts as local time.\n\n"
     "Returns\n-------\nbool"},
    {"is_stop_triggered", kSelf, is_stop_triggered,
     "Whether a stop-loss or take-profit exit is pending, for any of the executions; a bool."},
};

} // namespace

void add_live_members(pyglue::ClassBuilder& builder) {
    const nb::object property =
        nb::borrow<nb::object>(reinterpret_cast<PyObject*>(&PyProperty_Type));
    builder.member("execution",
                   property(builder.function(kGetExecution), builder.function(kSetExecution)));
    builder.member("metrics", global("cached_property")(builder.function(kMetrics)));
    builder.methods(kMethods);
}

} // namespace corvex::report
