#include "corvex/core/report/report/current_trades.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/report/trades.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::compare;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

/// Which trades bear on the next decision: open ones, those signalled last, and those around the
/// latest entry that was filled.
nb::object selection(nb::handle trades) {
    const nb::object entry = trades.attr("entry_sig_date");
    const nb::object leave = trades.attr("exit_sig_date");
    const nb::object last_signal = global("max")(leave.attr("max")(), entry.attr("max")());
    const nb::object entered = trades.attr("entry_date").attr("notna")();
    const nb::object last_entry = entry[entered].attr("max")();
    return compare(entry, Py_EQ, last_signal) | compare(leave, Py_EQ, last_signal) |
           compare(leave, Py_GE, last_entry) | compare(entry, Py_EQ, last_entry) |
           leave.attr("isnull")();
}

void add_weights(nb::handle current, const char* column, nb::handle weights) {
    current[text(column)] = pyglue::number(0.0);
    if (pyglue::length(weights) != 0) {
        current[text(column)] =
            weights.attr("reindex")(current.attr("index")).attr("fillna")(pyglue::integer(0));
    }
}

nb::object calculate_current_trades(const Call& call) {
    const nb::handle self = call.self();
    const nb::object trades = self.attr("trades");
    const nb::object selected = trades[selection(trades)];
    self.attr("current_trades") = selected.attr("set_index")(text(asset_column(trades)));
    const nb::object current = self.attr("current_trades");
    const nb::object unrealised = current[text("return")].attr("isna")();
    const nb::object rows = current.attr("loc");
    rows[nb::make_tuple(unrealised, text("trade_price@exit_date"))] = global("np").attr("nan");
    add_weights(current, "weight", self.attr("weights"));
    add_weights(current, "next_weights", self.attr("next_weights"));
    return nb::none();
}

constexpr Parameter kSelf[] = {{"self"}};

const FunctionSpec kMethods[] = {
    {"calculate_current_trades", kSelf, calculate_current_trades,
     "Pick the trades that matter for the next decision into `current_trades`, indexed by asset, "
     "with\n"
     "each asset's current and next weight. `weights` and `next_weights` must be Series."},
};

} // namespace

std::span<const FunctionSpec> current_trade_methods() { return kMethods; }

} // namespace corvex::report
