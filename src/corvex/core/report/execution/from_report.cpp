#include "corvex/core/report/execution/from_report.hpp"

#include "corvex/core/report/common/signal_dates.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

nb::object from_report(const Call& call) {
    const nb::handle report = call[1];
    nb::dict fields;
    // Reports saved by older versions lack some of these.
    for (const char* name : {"weights", "next_weights", "resample", "actions", "next_trading_date",
                             "trade_at", "market", "stop_loss", "take_profit", "trail_stop",
                             "data_readiness", "planned_rebalance_date"}) {
        fields[name] = pyglue::attribute_or(report, name, nb::none());
    }
    fields["total_weight"] = call[2];
    const nb::object execution = call.self()(**fields);
    // The constructor names the series itself: the dates go back on afterwards.
    for (const char* name : {"weights", "next_weights"}) {
        set_signal_date(execution.attr(name), signal_date(fields[name]));
    }
    return execution;
}

constexpr Parameter kFromReport[] = {{"cls"}, {"report"}, {"total_weight", 1.0}};

const FunctionSpec kMethods[] = {
    {"from_report", kFromReport, from_report,
     "The execution state of a report, as it is now.\n\nParameters\n----------\nreport : Report\n"
     "total_weight : float, default 1.0\n    Scale of the whole portfolio.\n\n"
     "The weight series bear their signal dates as names.",
     pyglue::Binding::kClassMethod},
};

} // namespace

std::span<const FunctionSpec> from_report_methods() { return kMethods; }

} // namespace corvex::report
