#include "corvex/core/report/present/older_view.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::text;

bool has_benchmark(nb::handle report) {
    const nb::object benchmark = pyglue::attribute_or(report, "benchmark", nb::none());
    return !benchmark.is_none() && pyglue::length(benchmark) > 0;
}

nb::object performance_detail(nb::handle report) {
    nb::dict curves;
    if (has_benchmark(report)) {
        const nb::object daily = report.attr("daily_creturn");
        curves["strategy"] = daily;
        curves["benchmark"] =
            report.attr("daily_benchmark")
                .attr("reindex")(daily.attr("index"), nb::arg("method") = text("ffill"));
    } else {
        curves["strategy"] = report.attr("creturn");
    }
    return global("pd").attr("DataFrame")(curves).attr("dropna")().attr("rebase")();
}

nb::object percent(nb::handle fraction) {
    const nb::object rounded = global("round")(fraction * pyglue::integer(100), pyglue::integer(2));
    return pyglue::concat({pyglue::to_text(rounded), text("%")});
}

nb::object summary_table(nb::handle stats) {
    nb::dict figures;
    figures["annualized_rate_of_return"] = percent(stats["cagr"]);
    figures["sharpe"] = global("round")(nb::object(stats["daily_sharpe"]), pyglue::integer(2));
    figures["max_drawdown"] = percent(stats["max_drawdown"]);
    figures["win_ratio"] = percent(stats["win_ratio"]);
    nb::list label;
    label.append(text(""));
    const nb::object table = global("pd").attr("Series")(figures).attr("to_frame")().attr("T");
    table.attr("index") = label;
    return table;
}

} // namespace

void show_older_view(nb::handle report, nb::handle show) {
    const nb::object figures = global("Report");
    const nb::object detail = performance_detail(report);
    const nb::object position = report.attr("position");
    const nb::object held = pyglue::compare(position, Py_NE, pyglue::integer(0));
    const nb::object performance = figures.attr("create_performance_figure")(
        detail, held.attr("sum")(nb::arg("axis") = pyglue::integer(1)));
    const nb::object stats = report.attr("get_stats")();
    const nb::object return_table = stats["return_table"];
    show(summary_table(stats));
    show(performance);
    show(figures.attr("create_yearly_return_figure")(return_table));
    show(figures.attr("create_monthly_return_figure")(return_table));
    if (nb::hasattr(report, "current_trades")) {
        show(report.attr("current_trades"));
    }
    if (pyglue::length(position) > 0) {
        show(position.attr("iloc")[-1]);
    }
}

} // namespace corvex::report
