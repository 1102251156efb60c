#include "corvex/core/report/present/figures.hpp"

#include "corvex/core/report/imports.hpp"
#include "corvex/core/report/module_globals.hpp"

#include <initializer_list>
#include <utility>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

/// A literal of nested dictionaries, as plotly takes its settings.
struct Setting {
    const char* key;
    nb::object value;
};

nb::object settings(std::initializer_list<Setting> entries) {
    nb::dict result;
    for (const Setting& entry : entries) {
        result[entry.key] = entry.value;
    }
    return result;
}

nb::object number(long value) { return pyglue::integer(value); }

nb::object number(double value) { return pyglue::number(value); }

nb::object boolean(bool value) { return nb::borrow<nb::object>(value ? Py_True : Py_False); }

nb::object margin(long left, long right, long top, long bottom) {
    return settings(
        {{"l", number(left)}, {"r", number(right)}, {"t", number(top)}, {"b", number(bottom)}});
}

nb::object title(const char* words) {
    return settings({{"text", text(words)}, {"x", number(0.025)}, {"yanchor", text("top")}});
}

/// Calls a method with a dictionary literal as its keywords.
void update(nb::handle figure, const char* method, const nb::object& keywords) {
    const nb::dict values = pyglue::as_dict(keywords);
    figure.attr(method)(**values);
}

// --- the performance figure
// -----------------------------------------------------------------------

constexpr long kRollingRows = 20;

/// The return over a number of rows.
nb::object rolling_return(nb::handle series) {
    return series / series.attr("shift")(number(kRollingRows)) - number(1L);
}

struct Trace {
    long row;
    nb::object series;
    const char* name;
    const char* legend_group;
    nb::object style;
};

void add_trace(nb::handle figure, const Trace& trace) {
    nb::dict values;
    values["x"] = trace.series.attr("index");
    values["y"] = trace.series;
    values["name"] = text(trace.name);
    if (trace.legend_group != nullptr) {
        values["legendgroup"] = text(trace.legend_group);
    }
    values.attr("update")(trace.style);
    figure.attr("add_scatter")(**values, nb::arg("row") = number(trace.row),
                               nb::arg("col") = number(1L));
}

nb::object filled() { return settings({{"fill", text("tozeroy")}}); }

nb::object lined(const char* colour) {
    return settings({{"line", settings({{"color", text(colour)}})}});
}

nb::object filled_faintly() {
    return settings(
        {{"fill", text("tozeroy")}, {"line", settings({{"color", text("rgba(0,0,0,0.2)")}})}});
}

nb::object performance(const nb::object& series) { return series / number(100L) - number(1L); }

void add_strategy(nb::handle figure, nb::handle detail, nb::handle drawdown) {
    const nb::object strategy = detail["strategy"];
    add_trace(figure, {1, performance(strategy), "strategy", "performance", filled()});
    add_trace(figure,
              {2, nb::object(drawdown["strategy"]), "strategy - drawdown", "drawdown", filled()});
    add_trace(figure, {3, rolling_return(strategy), "strategy - month rolling return",
                       "rolling performance", filled()});
}

void add_benchmark(nb::handle figure, nb::handle detail, nb::handle drawdown) {
    const nb::object benchmark = detail["benchmark"];
    add_trace(figure, {1, performance(benchmark), "benchmark", "performance", lined("gray")});
    add_trace(figure, {2, nb::object(drawdown["benchmark"]), "benchmark - drawdown", "drawdown",
                       lined("gray")});
    add_trace(figure, {3, rolling_return(benchmark), "benchmark - month rolling return",
                       "rolling performance", filled_faintly()});
}

nb::object range_button(long count, const char* label, const char* step, const char* mode) {
    return settings({{"count", number(count)},
                     {"label", text(label)},
                     {"step", text(step)},
                     {"stepmode", text(mode)}});
}

nb::object range_selector() {
    nb::list buttons;
    buttons.append(range_button(1, "1m", "month", "backward"));
    buttons.append(range_button(6, "6m", "month", "backward"));
    buttons.append(range_button(1, "YTD", "year", "todate"));
    buttons.append(range_button(1, "1y", "year", "backward"));
    buttons.append(settings({{"step", text("all")}}));
    return settings({{"buttons", buttons}, {"x", number(0L)}, {"y", number(1L)}});
}

nb::object performance_layout() {
    const nb::object percent = settings({{"tickformat", text(",.0%")}});
    return settings({{"legend", settings({{"bgcolor", text("rgba(0,0,0,0)")}})},
                     {"margin", margin(60, 20, 40, 20)},
                     {"height", number(600L)},
                     {"width", number(800L)},
                     {"xaxis4", settings({{"rangeselector", range_selector()},
                                          {"rangeslider", settings({{"visible", boolean(true)},
                                                                    {"thickness", number(0.1)}})},
                                          {"type", text("date")}})},
                     {"yaxis", percent},
                     {"yaxis2", percent},
                     {"yaxis3", percent}});
}

nb::object four_panels() {
    nb::list heights;
    for (const long height : {2, 1, 1, 1}) {
        heights.append(number(height));
    }
    return imported("plotly.subplots", "make_subplots")(
        nb::arg("rows") = number(4L), nb::arg("cols") = number(1L),
        nb::arg("shared_xaxes") = boolean(true), nb::arg("row_heights") = heights);
}

nb::object create_performance_figure(const Call& call) {
    const nb::handle detail = call[0];
    const nb::object drawdown = detail.attr("to_drawdown_series")();
    const nb::object figure = imported("plotly.graph_objs", "Figure")(four_panels());
    add_strategy(figure, detail, drawdown);
    if (pyglue::contains(detail.attr("columns"), "benchmark")) {
        add_benchmark(figure, detail, drawdown);
    }
    add_trace(figure, {4, nb::borrow<nb::object>(call[1]), "nstocks", nullptr, filled()});
    update(figure, "update_layout", performance_layout());
    return figure;
}

// --- the maps of yearly and monthly returns
// -------------------------------------------------------

nb::object heat_map(nb::handle values, const nb::object& axes) {
    nb::dict keywords = pyglue::as_dict(axes);
    keywords["text_auto"] = boolean(true);
    keywords["color_continuous_scale"] = text("RdBu_r");
    return imported("plotly.express", "imshow")(values, **keywords);
}

/// A fraction in percent with one decimal; a year that a lost account lived through has none.
nb::object percent_of_year(const nb::object& fraction) {
    const nb::object permille = fraction * number(1000L);
    if (!nb::cast<bool>(global("math").attr("isfinite")(permille))) {
        return permille;
    }
    return global("round")(permille) / number(10L);
}

nb::object create_yearly_return_figure(const Call& call) {
    const nb::handle return_table = call[0];
    nb::list percents;
    pyglue::for_each(return_table.attr("values")(), [&](const nb::object& year) {
        percents.append(percent_of_year(year["YTD"]));
        return true;
    });
    nb::list values;
    values.append(percents);
    const nb::object years = global("list")(return_table.attr("keys")());
    const nb::object figure = heat_map(
        values, settings({{"labels", settings({{"color", text("return(%)")}})}, {"x", years}}));
    update(figure, "update_traces",
           settings({{"hovertemplate", text("year: %{x}<br>return: %{z}%")}}));
    update(figure, "update_layout",
           settings({{"height", number(120L)},
                     {"width", number(800L)},
                     {"margin", margin(20, 270, 40, 40)},
                     {"yaxis", settings({{"visible", boolean(false)}})},
                     {"coloraxis_showscale", boolean(false)},
                     {"title", title("yearly return")},
                     {"coloraxis", settings({{"cmid", number(0L)}})}}));
    return figure;
}

nb::object create_monthly_return_figure(const Call& call) {
    nb::object table = global("pd").attr("DataFrame")(call[0]).attr("T") * number(100L);
    table = table.attr("drop")(nb::arg("columns") = text("YTD"));
    const nb::object as_text = global("str");
    const nb::object figure = heat_map(
        table.attr("values"),
        settings(
            {{"labels",
              settings({{"x", text("month")}, {"y", text("year")}, {"color", text("return(%)")}})},
             {"x", table.attr("columns").attr("astype")(as_text)},
             {"y", table.attr("index").attr("astype")(as_text)}}));
    update(figure, "update_traces",
           settings({{"hovertemplate", text("year: %{y}<br>month: %{x}<br>return: %{z}%")}}));
    update(figure, "update_layout",
           settings({{"height", number(550L)},
                     {"width", number(800L)},
                     {"margin", margin(20, 270, 40, 40)},
                     {"title", title("monthly return")},
                     {"yaxis", settings({{"side", text("right")}})},
                     {"coloraxis_showscale", boolean(false)},
                     {"coloraxis", settings({{"cmid", number(0L)}})}}));
    return figure;
}

constexpr Parameter kPerformance[] = {{"performance_detail"}, {"nstocks"}};
constexpr Parameter kTable[] = {{"return_table"}};

const FunctionSpec kMethods[] = {
    {"create_performance_figure", kPerformance, create_performance_figure,
     "Cumulative return, drawdown, rolling return and number of holdings, in four panels.\n\n"
     "Parameters\n----------\nperformance_detail : DataFrame\n"
     "    Column \"strategy\" and perhaps \"benchmark\", by date, both starting at 100.\n"
     "nstocks : Series\n    Number of assets held, by date.",
     pyglue::Binding::kStaticMethod},
    {"create_yearly_return_figure", kTable, create_yearly_return_figure,
     "Each year's return as a strip, a plotly Figure.\n\nParameters\n----------\n"
     "return_table : dict of dicts\n"
     "    By year, then by month 1 to 12 and \"YTD\", as fractions: "
     "``report.get_stats()[\"return_table\"]``.",
     pyglue::Binding::kStaticMethod},
    {"create_monthly_return_figure", kTable, create_monthly_return_figure,
     "Each month's return as a map, years by months, a plotly Figure.\n\nParameters\n----------\n"
     "return_table : dict of dicts\n"
     "    By year, then by month 1 to 12 and \"YTD\", as fractions: "
     "``report.get_stats()[\"return_table\"]``.",
     pyglue::Binding::kStaticMethod},
};

} // namespace

std::span<const FunctionSpec> figure_methods() { return kMethods; }

} // namespace corvex::report
