#include "corvex/core/report/report/report_class.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/payload/pickle.hpp"
#include "corvex/core/report/payload/report_dict.hpp"
#include "corvex/core/report/payload/upload.hpp"
#include "corvex/core/report/positions/exit_reason.hpp"
#include "corvex/core/report/positions/legacy_position_info.hpp"
#include "corvex/core/report/positions/position_info.hpp"
#include "corvex/core/report/present/display.hpp"
#include "corvex/core/report/present/figures.hpp"
#include "corvex/core/report/present/text_report.hpp"
#include "corvex/core/report/report/construction.hpp"
#include "corvex/core/report/report/current_trades.hpp"
#include "corvex/core/report/report/deferred.hpp"
#include "corvex/core/report/report/live.hpp"
#include "corvex/core/report/report/trades.hpp"
#include "corvex/core/report/stats/analyses.hpp"
#include "corvex/core/report/stats/metrics.hpp"
#include "corvex/core/report/stats/statistics.hpp"
#include "corvex/pyglue/class_builder.hpp"

namespace corvex::report {

nb::object make_report_class(const nb::dict& globals) {
    pyglue::ClassBuilder builder("Report", "The results of one backtest.", globals);
    builder.methods(construction_methods());
    add_deferred_attributes(builder);
    builder.methods(trade_methods());
    builder.methods(current_trade_methods());
    add_live_members(builder);
    builder.methods(statistics_methods());
    // One record for the whole process: the last report asked, at the last rate.
    const nb::object remember_last = global("lru_cache")(nb::arg("maxsize") = pyglue::integer(1));
    builder.member("_get_stats", remember_last(builder.function(cached_statistics())));
    builder.methods(metrics_methods());
    builder.methods(analysis_methods());
    builder.methods(position_info_methods());
    builder.methods({&exit_reason_method(), 1});
    builder.methods(legacy_position_methods());
    builder.methods(payload_methods());
    builder.methods(upload_methods());
    builder.methods(pickle_methods());
    builder.methods(text_methods());
    builder.methods(figure_methods());
    builder.methods(display_methods());
    return builder.build();
}

} // namespace corvex::report
