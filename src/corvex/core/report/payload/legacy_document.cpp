#include "corvex/core/report/payload/legacy_document.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::text;

nb::dict time_series(nb::handle series) {
    nb::dict record;
    record["time"] = series.attr("index").attr("astype")(global("str")).attr("to_list")();
    record["value"] = series.attr("values").attr("tolist")();
    return record;
}

nb::dict returns_by_horizon(nb::handle report, nb::handle curve) {
    nb::dict returns;
    for (const Py_ssize_t days : {1, 5, 10, 20, 60}) {
        const nb::object horizon = pyglue::integer(days);
        returns[horizon] = report.attr("get_ndays_return")(curve, horizon);
    }
    return returns;
}

nb::object iso_or_none(nb::handle date) {
    return pyglue::is_true(date) ? date.attr("isoformat")() : nb::none();
}

/// Reports of older versions lack the later ones.
nb::object optional_attribute(nb::handle report, const char* name) {
    return pyglue::attribute_or(report, name, nb::none());
}

/// One record, or several by name, as texts and numbers.
nb::object execution_record(nb::handle report) {
    const nb::object execution =
        pyglue::attribute_or(report, "position_schedulers", report.attr("execution"));
    return global("ReportExecution").attr("to_dict_collection")(execution);
}

void add_freshness(nb::dict& document, nb::handle report) {
    const nb::object data = global("corvex").attr("data");
    document["next_future_expiry"] = iso_or_none(data.attr("next_future_expiry")());
    document["suggested_tradable_time"] =
        iso_or_none(data.attr("suggested_tradable_time")(report.attr("market")));
    document["is_tradable"] = report.attr("is_tradable")();
}

} // namespace

nb::dict legacy_document(nb::handle report) {
    // A copy: the record is remembered, and two of its parts are taken out.
    const nb::dict stats = pyglue::as_dict(global("dict")(report.attr("get_stats")()));
    const nb::object daily = report.attr("daily_creturn");
    const nb::object benchmark = report.attr("daily_benchmark");
    const nb::object market = report.attr("market");
    nb::dict document;
    document["drawdown_details"] = stats.attr("pop")(text("drawdown_details"));
    document["stats"] = stats;
    document["returns"] = time_series(daily);
    document["benchmark"] = time_series(benchmark);
    document["ndays_return"] = returns_by_horizon(report, daily);
    document["ndays_return_benchmark"] = returns_by_horizon(report, benchmark);
    document["return_table"] = stats.attr("pop")(text("return_table"));
    for (const char* name : {"fee_ratio", "tax_ratio", "trade_at"}) {
        document[name] = report.attr(name);
    }
    document["timestamp_name"] = market.attr("get_name")();
    document["freq"] = market.attr("get_freq")();
    document["update_date"] = iso_or_none(report.attr("update_date"));
    document["next_trading_date"] = iso_or_none(report.attr("next_trading_date"));
    document["position"] = report.attr("position_info")();
    document["position2"] = report.attr("position_info2")();
    document["execution"] = execution_record(report);
    document["live_performance_start"] =
        iso_or_none(optional_attribute(report, "live_performance_start"));
    document["stop_loss"] = optional_attribute(report, "stop_loss");
    document["take_profit"] = optional_attribute(report, "take_profit");
    document.attr("update")(report.attr("_to_json046")());
    add_freshness(document, report);
    return document;
}

} // namespace corvex::report
