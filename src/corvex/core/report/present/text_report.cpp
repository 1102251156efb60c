#include "corvex/core/report/present/text_report.hpp"

#include "corvex/core/report/imports.hpp"
#include "corvex/core/report/module_globals.hpp"

#include <array>
#include <cmath>
#include <vector>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::concat;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;
using pyglue::to_text;

constexpr const char* kUnnamed = "未命名";
constexpr const char* kDoubleRule = "========================================\n";
constexpr const char* kRule = "----------------------------------------\n";

/// One line of a figure of the statistics record.
struct Figure {
    const char* label;
    const char* key;
    bool percent;
};

constexpr std::array<Figure, 4> kFigures{{
    {"年化報酬: ", "daily_mean", true},
    {"夏普率: ", "daily_sharpe", false},
    {"最大回撤: ", "max_drawdown", true},
    {"勝率: ", "win_ratio", true},
}};

nb::object rounded(nb::handle value) { return to_text(global("round")(value, pyglue::integer(2))); }

nb::object percent(nb::handle fraction) { return rounded(fraction * pyglue::integer(100)); }

nb::object figure_line(nb::handle stats, const Figure& figure) {
    const nb::object value = stats.attr("get")(text(figure.key), pyglue::integer(0));
    return concat({text(figure.label), figure.percent ? percent(value) : rounded(value),
                   text(figure.percent ? "%\n" : "\n")});
}

nb::object header(nb::handle name, nb::handle stats) {
    const nb::object missing = text("N/A");
    return concat({text("📊 策略: "), nb::borrow<nb::object>(name), text("\n"), text(kDoubleRule),
                   text("回測期間: "), to_text(stats.attr("get")(text("start"), missing)),
                   text(" ~ "), to_text(stats.attr("get")(text("end"), missing)), text("\n")});
}

bool has_entries(nb::handle series) { return !series.is_none() && pyglue::length(series) > 0; }

/// Appends a line "  stock: value" for each entry for which `describe` gives a text.
template <typename Describe>
void append_entries(std::vector<nb::object>& lines, nb::handle series, Describe&& describe) {
    pyglue::for_each(series.attr("items")(), [&](const nb::object& entry) {
        const nb::object stock = entry[0];
        const nb::object description = describe(nb::object(entry[1]));
        if (description.is_valid()) {
            lines.push_back(
                concat({text("  "), to_text(stock), text(": "), description, text("\n")}));
        }
        return true;
    });
}

nb::object stop_description(const nb::object& action) {
    if (pyglue::is_text_equal(action, "sl")) {
        return text("停損");
    }
    if (pyglue::is_text_equal(action, "tp")) {
        return text("停利");
    }
    return {};
}

void append_actions(std::vector<nb::object>& lines, nb::handle actions, nb::handle weights) {
    nb::list stop_labels;
    stop_labels.append(text("sl"));
    stop_labels.append(text("tp"));
    if (!pyglue::is_true(actions.attr("isin")(stop_labels).attr("any")())) {
        lines.push_back(text("📋 換股動作:\n"));
        append_entries(lines, actions, [](const nb::object& action) { return to_text(action); });
        return;
    }
    lines.push_back(text("⚡ 停損停利動作:\n"));
    append_entries(lines, actions, stop_description);
    if (has_entries(weights)) {
        lines.push_back(text("📦 調整權重:\n"));
        append_entries(lines, weights, [](const nb::object& weight) {
            return concat({percent(weight), text("%")});
        });
    }
}

nb::object to_text_report(const Call& call) {
    const nb::handle self = call.self();
    const nb::object name =
        pyglue::is_true(call[1]) ? nb::borrow<nb::object>(call[1]) : text(kUnnamed);
    const nb::object stats = self.attr("get_stats")();
    std::vector<nb::object> lines{header(name, stats)};
    for (const Figure& figure : kFigures) {
        lines.push_back(figure_line(stats, figure));
    }
    lines.push_back(text(kRule));
    const nb::object actions = pyglue::attribute_or(self, "actions", nb::none());
    const nb::object weights = pyglue::attribute_or(self, "weights", nb::none());
    if (has_entries(actions)) {
        append_actions(lines, actions, weights);
    }
    nb::list pieces;
    for (const nb::object& line : lines) {
        pieces.append(line);
    }
    return text("").attr("join")(pieces);
}

nb::object to_terminal(const Call& call) {
    const nb::handle self = call.self();
    const nb::handle height = call[1];
    const nb::handle width = call[2];
    const nb::object plot_return = imported("corvex.terminal", "plot_cumulative_return");
    const nb::object plot_drawdown = imported("corvex.terminal", "plot_drawdown");
    const nb::object benchmark =
        pyglue::is_true(call[3]) ? pyglue::attribute_or(self, "benchmark", nb::none()) : nb::none();
    plot_return(self.attr("creturn"), nb::arg("benchmark") = benchmark,
                nb::arg("title") = text("Strategy Cumulative Return"), nb::arg("height") = height,
                nb::arg("width") = width);
    if (pyglue::is_true(call[4])) {
        plot_drawdown(self.attr("creturn"), nb::arg("benchmark") = benchmark,
                      nb::arg("title") = text("Drawdown"),
                      nb::arg("height") = height.floor_div(pyglue::integer(2)),
                      nb::arg("width") = width);
    }
    return nb::none();
}

constexpr Parameter kToText[] = {{"self"}, {"name", nullptr}};
constexpr Parameter kToTerminal[] = {
    {"self"}, {"height", 12L}, {"width", 80L}, {"show_benchmark", true}, {"show_drawdown", true}};

/// The span of a curve and its compound growth a year, years having 365.25 days.
nb::object span_and_growth(nb::handle curve) {
    const nb::object index = curve.attr("index");
    const nb::object rows = curve.attr("iloc");
    const nb::object first = index[0];
    const nb::object last = index[-1];
    const nb::object span =
        text(": {:.10} to {:.10}").attr("format")(to_text(first), to_text(last));
    const nb::object seconds = (last - first).attr("total_seconds")();
    const double years = nb::cast<double>(seconds) / (365.25 * 86400);
    const double growth = nb::cast<double>(global("float")(rows[-1] / rows[0]));
    if (years <= 0 || growth < 0) {
        return span;
    }
    return concat({span, text(", CAGR {:.2%}").attr("format")(std::pow(growth, 1 / years) - 1)});
}

/// What tells one report from another in a list of them. A report that was never filled, or not
/// as usual, is shown as any object.
nb::object repr(const Call& call) {
    const nb::handle self = call.self();
    try {
        nb::list words;
        words.append(text("<Report"));
        const nb::object name = pyglue::attribute_or(self, "name", nb::none());
        if (pyglue::is_true(name)) {
            words.append(text(" "));
            words.append(nb::repr(name));
        }
        const nb::object curve = self.attr("daily_creturn").attr("dropna")();
        if (nb::len(curve) > 0) {
            words.append(span_and_growth(curve));
        }
        words.append(text(">"));
        return text("").attr("join")(words);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_Exception)) {
            throw;
        }
    } catch (const nb::cast_error&) {
        // A figure of another kind: below.
    }
    return nb::steal(PyBaseObject_Type.tp_repr(self.ptr()));
}

constexpr Parameter kSelf[] = {{"self"}};

const FunctionSpec kMethods[] = {
    {"__repr__", kSelf, repr},
    {"to_text", kToText, to_text_report,
     "將回測報告以文字方式呈現\n\nArgs:\n    name (str): 策略名稱，預設為 '未命名'。\n\nReturns:\n"
     "    str: 文字格式的回測報告\n"},
    {"to_terminal", kToTerminal, to_terminal,
     "Print the cumulative return and its drawdown as character charts.\n\nParameters\n----------\n"
     "height : int, default 12\n    Rows of the return chart; the drawdown chart has half as "
     "many.\n"
     "width : int, default 80\n    Points across.\nshow_benchmark : bool, default True\n"
     "    Draw the benchmark's line too.\nshow_drawdown : bool, default True\n"
     "    Draw the second chart."},
};

} // namespace

std::span<const FunctionSpec> text_methods() { return kMethods; }

} // namespace corvex::report
