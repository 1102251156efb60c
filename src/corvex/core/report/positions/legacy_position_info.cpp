#include "corvex/core/report/positions/legacy_position_info.hpp"

#include "corvex/core/report/common/signal_dates.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

nb::object iso_texts(nb::handle dates) {
    nb::list texts;
    pyglue::for_each(dates, [&](const nb::object& date) {
        texts.append(is_date(date) ? date.attr("isoformat")() : text(""));
        return true;
    });
    return texts;
}

nb::object empty_table() {
    nb::list columns;
    for (const char* name :
         {"status", "weight", "next_weight", "entry_date", "exit_date", "return", "entry_price"}) {
        columns.append(text(name));
    }
    return global("pd").attr("DataFrame")(nb::arg("columns") = columns).attr("to_dict")();
}

/// The driver's actions, the last one where a label is repeated. Older reports have none.
nb::object last_actions(nb::handle report) {
    const nb::object actions = pyglue::attribute_or(report, "actions", nb::none());
    if (actions.is_none()) {
        return global("pd").attr("Series")(nb::arg("dtype") = global("object"));
    }
    const nb::object repeated =
        actions.attr("index").attr("duplicated")(nb::arg("keep") = text("last"));
    return actions[~repeated];
}

/// The driver's action of each asset, else "exit" or "hold" by whether the trade has an exit
/// signal.
nb::object status_of(nb::handle report, nb::handle current) {
    const nb::object index = current.attr("index");
    const nb::object by_signal = global("pd").attr("Series")(text("hold"), nb::arg("index") = index,
                                                             nb::arg("dtype") = global("object"));
    const nb::object fallback =
        by_signal.attr("where")(current[text("exit_sig_date")].attr("isnull")(), text("exit"));
    const nb::object known = last_actions(report).attr("reindex")(index);
    // By position: two trades of one asset share their label.
    return known.attr("where")(known.attr("notna")(), fallback.attr("values")).attr("tolist")();
}

/// The later signal of each trade. Without any exit signal it is not asked for: such a column may
/// lack the zone of the entries, and pandas 2.2 does not compare them.
nb::object latest_signal(nb::handle current) {
    if (pyglue::is_true(current[text("exit_sig_date")].attr("isnull")().attr("all")())) {
        return current[text("entry_sig_date")];
    }
    nb::list signals;
    signals.append(text("entry_sig_date"));
    signals.append(text("exit_sig_date"));
    return current[signals].attr("max")(nb::arg("axis") = pyglue::integer(1));
}

nb::object holdings_table(nb::handle report, nb::handle current) {
    const nb::object entry = current[text("entry_sig_date")];
    const nb::object leave = current[text("exit_sig_date")];
    nb::dict columns;
    columns["status"] = status_of(report, current);
    columns["weight"] = current[text("weight")];
    columns["next_weight"] = current[text("next_weights")];
    columns["entry_date"] = iso_texts(entry);
    columns["exit_date"] = iso_texts(leave);
    columns["return"] = current[text("return")];
    columns["entry_price"] = current[text("trade_price@entry_date")];
    columns["latest_sig_date"] = latest_signal(current);
    return global("pd").attr("DataFrame")(columns, nb::arg("index") = current.attr("index"));
}

/// The trade with the latest signal stands for its asset; of equals the later row.
nb::object one_row_each(const nb::object& table) {
    const nb::object sorted =
        table.attr("sort_values")(text("latest_sig_date"), nb::arg("kind") = text("mergesort"));
    const nb::object repeated =
        sorted.attr("index").attr("duplicated")(nb::arg("keep") = text("last"));
    return sorted[~repeated].attr("drop")(nb::arg("columns") = text("latest_sig_date"));
}

nb::object position_info(const Call& call) {
    const nb::handle self = call.self();
    const nb::object current = pyglue::attribute_or(self, "current_trades", nb::none());
    if (current.is_none() || pyglue::length(current) == 0) {
        return empty_table();
    }
    const nb::object market = self.attr("market");
    const nb::object trade_at = self.attr("trade_at");
    nb::object record = one_row_each(holdings_table(self, current)).attr("to_dict")(text("index"));
    record["update_date"] = self.attr("update_date").attr("isoformat")();
    record["next_trading_date"] = self.attr("next_trading_date").attr("isoformat")();
    record["trade_at"] = pyglue::is_text(trade_at) ? trade_at : text("close");
    record["freq"] = market.attr("get_freq")();
    record["market"] = market.attr("get_name")();
    record["stop_loss"] = pyglue::attribute_or(self, "stop_loss", nb::none());
    record["take_profit"] = pyglue::attribute_or(self, "take_profit", nb::none());
    return record;
}

constexpr Parameter kSelf[] = {{"self"}};

const FunctionSpec kMethods[] = {
    {"position_info", kSelf, position_info,
     "The older view of the holdings: a dictionary by asset label, with report-wide keys beside "
     "the\n"
     "assets. `entry_date` and `exit_date` carry the signal dates."},
};

} // namespace

std::span<const FunctionSpec> legacy_position_methods() { return kMethods; }

} // namespace corvex::report
