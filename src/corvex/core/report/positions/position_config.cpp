#include "corvex/core/report/positions/position_config.hpp"

#include "corvex/core/report/common/plain_number.hpp"
#include "corvex/core/report/common/signal_dates.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::text;

bool is_daily(nb::handle position) {
    const nb::object index = position.attr("index");
    if (pyglue::length(index) == 0) {
        return true;
    }
    const nb::object clock = index.attr("hour") + index.attr("minute") + index.attr("second");
    return pyglue::is_true(pyglue::compare(clock, Py_EQ, pyglue::integer(0)).attr("all")());
}

/// Reports saved by older versions lack some settings.
nb::object setting(nb::handle report, const char* name) {
    return pyglue::attribute_or(report, name, nb::none());
}

nb::object rebalance_seconds(nb::handle report, const char* attribute) {
    const nb::object name = signal_date(setting(report, attribute));
    return pyglue::is_instance(name, global("pd").attr("Timestamp")) ? name.attr("timestamp")()
                                                                     : nb::none();
}

nb::object iso(nb::handle date) { return global("_safe_iso_datetime")(date_or_none(date)); }

/// Several schedulers have no timing in common: that of the report itself stands for them.
nb::object single_execution(nb::handle report) {
    nb::object execution = report.attr("execution");
    if (PyDict_Check(execution.ptr()) || nb::hasattr(report, "position_schedulers")) {
        execution = global("ReportExecution").attr("from_report")(report);
    }
    return execution;
}

void add_timing(nb::dict& config, nb::handle report) {
    const nb::object execution = single_execution(report);
    config["rebalanceTiming"] = execution.attr("rebalance_timing")();
    config["dataReadiness"] = execution.attr("data_readiness");
    config["plannedRebalanceDate"] = iso(execution.attr("planned_rebalance_date"));
    config["currentSignalAt"] = iso(signal_date(setting(report, "weights")));
    config["nextSignalAt"] = iso(signal_date(setting(report, "next_weights")));
}

void add_rebalance_dates(nb::dict& config, nb::handle report) {
    config["currentRebalanceDate"] = rebalance_seconds(report, "weights");
    config["nextRebalanceDate"] = rebalance_seconds(report, "next_weights");
}

/// A date without a time is told too; one that is missing could not be read back.
nb::object scheduled(nb::handle date) {
    return pyglue::is_true(global("pd").attr("isna")(date)) ? nb::none() : date.attr("isoformat")();
}

void add_stops(nb::dict& config, nb::handle report) {
    config["sl"] = plain_number(setting(report, "stop_loss"));
    config["tp"] = plain_number(setting(report, "take_profit"));
}

void add_prices(nb::dict& config, nb::handle report) {
    config["resample"] = report.attr("format_resample")();
    config["entryTradePrice"] = trade_at_label(report);
    config["exitTradePrice"] = trade_at_label(report);
}

} // namespace

nb::object trade_at_label(nb::handle report) {
    const nb::object trade_at = report.attr("trade_at");
    return pyglue::is_text(trade_at) ? trade_at : text("custom");
}

nb::dict full_position_config(nb::handle report) {
    nb::dict config;
    config["isDailyStrategy"] = nb::bool_(is_daily(report.attr("position")));
    add_stops(config, report);
    add_prices(config, report);
    add_rebalance_dates(config, report);
    config["scheduled"] = scheduled(report.attr("next_trading_date"));
    config["dataFreq"] = report.attr("market").attr("get_freq")();
    const nb::object datetime = global("datetime");
    config["created"] = datetime.attr("datetime")
                            .attr("now")(nb::arg("tz") = datetime.attr("timezone").attr("utc"))
                            .attr("isoformat")();
    config["lastTimestamp"] = report.attr("creturn").attr("index")[-1].attr("isoformat")();
    add_timing(config, report);
    return config;
}

nb::dict short_position_config(nb::handle report) {
    const nb::object market = report.attr("market");
    nb::dict config;
    add_timing(config, report);
    config["scheduled"] = iso(report.attr("next_trading_date"));
    config["isDailyStrategy"] = nb::bool_(is_daily(report.attr("position")));
    config["market"] = market.attr("get_name")();
    add_stops(config, report);
    config["ts"] = plain_number(setting(report, "trail_stop"));
    add_prices(config, report);
    config["dataFreq"] = market.attr("get_freq")();
    add_rebalance_dates(config, report);
    return config;
}

} // namespace corvex::report
