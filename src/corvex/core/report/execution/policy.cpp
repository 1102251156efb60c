#include "corvex/core/report/execution/policy.hpp"

#include "corvex/core/report/common/actions.hpp"
#include "corvex/core/report/common/signal_dates.hpp"
#include "corvex/core/report/data_context.hpp"
#include "corvex/core/report/imports.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

nb::object utc_now() {
    const nb::object datetime = global("datetime");
    return datetime.attr("datetime").attr("now")(datetime.attr("timezone").attr("utc"));
}

bool at_or_after(nb::handle left, nb::handle right) {
    return pyglue::is_true(pyglue::compare(left, Py_GE, right));
}

/// A Timestamp without a zone refuses to be brought to one; a plain datetime counts as local time.
nb::object plain_datetime(nb::handle now) {
    if (pyglue::is_instance(now, global("pd").attr("Timestamp"))) {
        return now.attr("to_pydatetime")(nb::arg("warn") = false);
    }
    return nb::borrow<nb::object>(now);
}

/// Whether `now` has reached `moment`, which may be aware or naive. A naive moment is local time.
bool reached(const nb::object& now, nb::handle moment) {
    const nb::object zone = moment.attr("tzinfo");
    if (!zone.is_none()) {
        return at_or_after(now.attr("astimezone")(zone), moment);
    }
    const bool aware = !now.attr("tzinfo").is_none();
    const nb::object local = aware ? nb::object(now.attr("astimezone")()) : now;
    return at_or_after(local.attr("replace")(nb::arg("tzinfo") = nb::none()), moment);
}

nb::object close_of(nb::handle market, nb::handle date) {
    return market.attr("market_close_at_timestamp")(date);
}

/// Without a text rule the next weights count from the close of their date on, and not while the
/// session of the latest prices is still open. The date of the weights themselves is no new signal.
bool listed_date_applies(nb::handle execution, nb::handle date, const nb::object& now) {
    if (pyglue::equals(date, execution.attr("weights").attr("name"))) {
        return false;
    }
    const nb::object market = execution.attr("market");
    if (!reached(now, close_of(market, date))) {
        return false;
    }
    const nb::object price_dates = with_data_record_kept(
        [&] { return nb::object(market.attr("get_price")(text("close")).attr("index")); });
    return pyglue::length(price_dates) == 0 || reached(now, close_of(market, price_dates[-1]));
}

/// The one rule behind both "which weights count" and "is a rebalance due", where no trading
/// calendar decides: the target switches at the very moment at which the window opens.
bool labels_call_for_next_weights(nb::handle execution, const nb::object& now) {
    const nb::object date = signal_date(execution.attr("next_weights"));
    if (!date.is_none()) {
        return pyglue::is_text(execution.attr("resample"))
                   ? reached(now, close_of(execution.attr("market"), date))
                   : listed_date_applies(execution, date, now);
    }
    const nb::object next_date = execution.attr("next_trading_date");
    if (pyglue::is_true(global("pd").attr("isna")(next_date))) {
        return false;
    }
    return reached(now, close_of(execution.attr("market"), next_date));
}

bool is_known(nb::handle timing) {
    return pyglue::is_text_equal(timing.attr("get")(text("status")), "known");
}

nb::object uses_trading_calendar(const Call& call) {
    const nb::object market = call.self().attr("market");
    if (!pyglue::is_text_equal(market.attr("get_name")(), "tw_stock")) {
        return nb::bool_(false);
    }
    const nb::object freq = market.attr("get_freq")();
    if (!pyglue::is_text_equal(freq, "D") && !pyglue::is_text_equal(freq, "1D")) {
        return nb::bool_(false);
    }
    return nb::bool_(!signal_date(call.self().attr("next_weights")).is_none());
}

nb::object uses_next_weights(const Call& call) {
    const nb::handle self = call.self();
    const nb::object now = call[1].is_none() ? utc_now() : plain_datetime(call[1]);
    if (pyglue::is_true(self.attr("uses_trading_calendar")())) {
        const nb::object timing = self.attr("rebalance_timing")(nb::arg("now") = now);
        const nb::object start = timing.attr("get")(text("update_start_at"));
        if (is_known(timing) && pyglue::is_true(start)) {
            return nb::bool_(
                reached(now, global("datetime").attr("datetime").attr("fromisoformat")(start)));
        }
    }
    return nb::bool_(labels_call_for_next_weights(self, now));
}

nb::object is_rebalance_due(const Call& call) {
    const nb::handle self = call.self();
    if (pyglue::is_true(self.attr("uses_trading_calendar")())) {
        const nb::object timing = self.attr("rebalance_timing")();
        if (is_known(timing)) {
            return nb::bool_(
                pyglue::is_true(timing.attr("get")(text("rebalance_due"), nb::bool_(false))));
        }
    }
    return nb::bool_(labels_call_for_next_weights(self, utc_now()));
}

nb::object is_stop_triggered(const Call& call) {
    nb::list stops;
    for (const char* label : kStops) {
        stops.append(text(label));
    }
    return nb::bool_(
        pyglue::is_true(call.self().attr("actions").attr("isin")(stops).attr("any")()));
}

nb::object rebalance_timing(const Call& call) {
    return imported("corvex.rebalance", "execution_timing")(call.self(), nb::arg("now") = call[1],
                                                            nb::arg("calendar") = call[2]);
}

constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kNow[] = {{"self"}, {"now", nullptr}};
constexpr Parameter kTiming[] = {{"self"}, {"now", nullptr}, {"calendar", nullptr}};

const FunctionSpec kMethods[] = {
    {"rebalance_timing", kTiming, rebalance_timing,
     "When the next rebalance takes place, as a dictionary; see "
     "corvex.rebalance.execution_timing."},
    {"uses_trading_calendar", kSelf, uses_trading_calendar,
     "Whether TW trading-calendar windows decide this report's rebalances.\n\n"
     "Older cloud reports lack signal labels and keep the label rules."},
    {"uses_next_weights", kNow, uses_next_weights,
     "Whether a position built at ``now`` should hold ``next_weights``.\n\n"
     "Position building and portfolio sync both follow this, so the target switches exactly when\n"
     "`is_rebalance_due()` opens the window.\n\nParameters\n----------\nnow : datetime, optional\n"
     "    The current UTC time when not given; a naive one counts as local time."},
    {"is_rebalance_due", kSelf, is_rebalance_due, "Whether the rebalance window is open now."},
    {"is_stop_triggered", kSelf, is_stop_triggered,
     "Whether a stop-loss or take-profit exit is pending."},
};

} // namespace

std::span<const FunctionSpec> policy_methods() { return kMethods; }

} // namespace corvex::report
