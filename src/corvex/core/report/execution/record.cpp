#include "corvex/core/report/execution/record.hpp"

#include "corvex/core/report/module_globals.hpp"

#include <array>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

constexpr Parameter kInit[] = {{"self"},
                               {"weights"},
                               {"next_weights"},
                               {"resample"},
                               {"actions"},
                               {"next_trading_date"},
                               {"trade_at"},
                               {"market"},
                               {"stop_loss"},
                               {"take_profit"},
                               {"trail_stop"},
                               {"total_weight", 1.0},
                               {"data_readiness", nullptr},
                               {"planned_rebalance_date", nullptr}};

nb::object to_series(const Call& call) {
    const nb::handle data = call[0];
    const nb::handle name = call[1];
    const nb::handle dtype = call[2];
    const nb::object series_type = global("pd").attr("Series");
    nb::object series;
    if (data.is_none()) {
        series =
            series_type(nb::arg("dtype") = pyglue::is_true(dtype) ? nb::borrow<nb::object>(dtype)
                                                                  : pyglue::text("float64"));
    } else if (pyglue::is_instance(data, series_type)) {
        series = data.attr("copy")();
    } else if (!dtype.is_none()) {
        series = series_type(data, nb::arg("dtype") = dtype);
    } else {
        series = series_type(data);
    }
    if (!name.is_none()) {
        series.attr("name") = name;
    }
    return series;
}

nb::object present_actions(nb::handle self, nb::handle actions) {
    const nb::object series =
        self.attr("_to_series")(actions, nb::none(), nb::arg("dtype") = global("object"));
    return series[series.attr("notna")()];
}

nb::object next_date(nb::handle date) {
    if (date.is_none()) {
        return global("datetime").attr("datetime").attr("now")();
    }
    return global("_parse_iso_datetime")(date);
}

/// A custom fill price of the backtest cannot be reproduced in execution: the close stands in.
nb::object fill_price(nb::handle trade_at) {
    const bool kept = pyglue::is_text(trade_at) && !pyglue::is_text_equal(trade_at, "custom");
    return kept ? nb::borrow<nb::object>(trade_at) : pyglue::text("close");
}

nb::object market_or_default(nb::handle market) {
    return pyglue::is_instance(market, global("Market")) ? nb::borrow<nb::object>(market)
                                                         : global("TWMarket")();
}

nb::object init(const Call& call) {
    const nb::handle self = call.self();
    self.attr("weights") = self.attr("_to_series")(call[1], pyglue::text("weight"));
    self.attr("next_weights") = self.attr("_to_series")(call[2], pyglue::text("next_weight"));
    self.attr("resample") = call[3];
    self.attr("actions") = present_actions(self, call[4]);
    self.attr("next_trading_date") = next_date(call[5]);
    self.attr("trade_at") = fill_price(call[6]);
    self.attr("market") = market_or_default(call[7]);
    self.attr("stop_loss") = call[8];
    self.attr("take_profit") = call[9];
    self.attr("trail_stop") = call[10];
    self.attr("total_weight") = global("float")(call[11]);
    self.attr("data_readiness") = call[12];
    self.attr("planned_rebalance_date") =
        call[13].is_none() ? nb::none() : nb::object(global("_parse_iso_datetime")(call[13]));
    return nb::none();
}

/// The constructor renames both weight series, but their names are the signal dates: a series that
/// the caller did not replace keeps its own.
void keep_signal_date(nb::handle original, nb::handle copy, nb::handle changes,
                      const char* attribute) {
    if (!pyglue::contains(changes, attribute)) {
        copy.attr(attribute).attr("name") = original.attr(attribute).attr("name");
    }
}

nb::object replace(const Call& call) {
    const nb::handle self = call.self();
    const nb::dict changes = call.keywords();
    nb::dict values;
    for (const Parameter& parameter : std::span(kInit).subspan(1)) {
        values[parameter.name] = self.attr(parameter.name);
    }
    values.attr("update")(changes);
    const nb::object copy = self.attr("__class__")(**values);
    keep_signal_date(self, copy, changes, "weights");
    keep_signal_date(self, copy, changes, "next_weights");
    return copy;
}

nb::object with_total_weight(const Call& call) {
    return call.self().attr("_replace")(nb::arg("total_weight") = call[1]);
}

nb::object repr(const Call& /*call*/) { return pyglue::text("<ReportExecution>"); }

constexpr Parameter kToSeries[] = {{"data"}, {"name"}, {"dtype", nullptr}};
constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kTotalWeight[] = {{"self"}, {"total_weight"}};

const FunctionSpec kMethods[] = {
    {"__init__", kInit, init,
     "Parameters\n----------\nweights, next_weights : Series, mapping or None\n"
     "    Target weights per symbol now and after the next rebalance, as fractions.\n"
     "resample : None, str or sequence of dates\n    The rebalance schedule.\n"
     "actions : Series, mapping or None\n    Action labels per symbol; missing ones are dropped.\n"
     "next_trading_date : None, datetime, Timestamp, ISO-8601 text or POSIX seconds\n"
     "    None stands for now.\ntrade_at : str\n    The fill price; \"custom\" and anything but "
     "text "
     "become \"close\".\nmarket : Market\n    Anything else becomes the Taiwan stock market.\n"
     "stop_loss, take_profit, trail_stop : float or None\n    Fractions.\n"
     "total_weight : float, default 1.0\n    Scale of the whole portfolio.\n"
     "data_readiness : optional\n    Readiness of the data the strategy depends on.\n"
     "planned_rebalance_date : optional\n    As next_trading_date, but None stays None."},
    {"_to_series", kToSeries, to_series, "A fresh Series from a Series, mapping, sequence or None.",
     pyglue::Binding::kStaticMethod},
    {"_replace", kSelf, replace, "A new record with the given attributes replaced.",
     pyglue::Binding::kFunction, "changes"},
    {"with_total_weight", kTotalWeight, with_total_weight,
     "A new record whose portfolio is scaled to `total_weight` (1.0: fully invested)."},
    {"__repr__", kSelf, repr},
};

} // namespace

std::span<const FunctionSpec> record_methods() { return kMethods; }

} // namespace corvex::report
