#include "corvex/core/report/stats/analyses.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/pyglue/function.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::concat;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

constexpr const char* kRunAnalysis = "run_analysis";
constexpr const char* kPackage = "corvex.analysis";
constexpr const char* kSuffix = "Analysis";
constexpr Py_ssize_t kSuffixLength = 8;

nb::object without_suffix(nb::handle name) {
    return name[pyglue::slice(nb::none(), pyglue::integer(-kSuffixLength))];
}

nb::object with_suffix(nb::handle name) {
    const nb::object ending = name[pyglue::slice(pyglue::integer(-kSuffixLength), nb::none())];
    return pyglue::is_text_equal(ending, kSuffix) ? nb::borrow<nb::object>(name)
                                                  : nb::object(name + text(kSuffix));
}

/// The name with its first character in upper or lower case and the rest as it is.
nb::object first_cased(nb::handle name, const char* change) {
    const nb::object first = name[pyglue::slice(nb::none(), pyglue::integer(1))].attr(change)();
    return first + name[pyglue::slice(pyglue::integer(1), nb::none())];
}

bool module_exists(nb::handle module_name) {
    // The submodule must be imported by name: `importlib` alone need not have it.
    const nb::object find_spec = pyglue::import_module("importlib.util").attr("find_spec");
    try {
        return !find_spec(module_name).is_none();
    } catch (const nb::python_error& error) {
        // A name with dots: a package on the way is missing.
        if (error.matches(PyExc_ModuleNotFoundError)) {
            return false;
        }
        throw;
    }
}

nb::object candidates() {
    const nb::object package = global("importlib").attr("import_module")(text(kPackage));
    nb::list names;
    pyglue::for_each(global("iter_modules")(package.attr("__path__")),
                     [&](const nb::object& module) {
                         const nb::object name = module.attr("name");
                         if (pyglue::is_true(name.attr("__contains__")(text("_")))) {
                             return true;
                         }
                         names.append(without_suffix(name));
                         return true;
                     });
    return names;
}

nb::object run_analysis(const Call& call) {
    const nb::handle self = call.self();
    const nb::object analysis = with_suffix(call[1]);
    const nb::object module_name =
        concat({text(kPackage), text("."), first_cased(analysis, "lower")});
    if (!module_exists(module_name)) {
        pyglue::raise(PyExc_ImportError,
                      concat({text("Cannot find "), module_name, text(". Possible candidates are "),
                              pyglue::to_text(candidates())}));
    }
    const nb::object module = global("importlib").attr("import_module")(module_name);
    const nb::object analysis_class = module.attr(first_cased(analysis, "upper"));
    const nb::dict settings = call.keywords();
    const nb::object instance = analysis_class(**settings);
    pyglue::for_each(instance.attr("calculate_trade_info")(self), [&](const nb::object& info) {
        self.attr("add_trade_info")(*info);
        return true;
    });
    const nb::object result = instance.attr("analyze")(self);
    if (pyglue::is_true(call[2])) {
        instance.attr("display")();
    }
    return result;
}

nb::object liquidity(const Call& call) {
    return call.self().attr("run_analysis")(text("liquidity"), nb::arg("display") = false);
}

nb::object display_mae_mfe_analysis(const Call& call) {
    const nb::dict settings = call.keywords();
    return call.self().attr("run_analysis")(text("MaeMfeAnalysis"), **settings);
}

constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kRun[] = {{"self"}, {"analysis"}, {"display", true}};

const FunctionSpec kMethods[] = {
    {kRunAnalysis, kRun, run_analysis,
     "Run an analysis of `corvex.analysis` by its name and return its "
     "result.\n\nParameters\n----------\n"
     "analysis : str\n    The name, with or without the ending \"Analysis\": \"Drawdown\", "
     "\"liquidity\".\n"
     "display : bool, default True\n    Show the result too.\n"
     "**kwargs\n    Settings of the analysis.\n\nRaises\n------\nImportError\n"
     "    No analysis of that name; the message lists those there are.",
     pyglue::Binding::kFunction, "kwargs"},
    {"liquidity", kSelf, liquidity,
     "The result of the liquidity analysis, without showing it.\n\n"
     "Returns\n-------\ndict\n"
     "    `turnover`: the traded value on the days of the entries and of the exits, `median` and "
     "10 % quantile\n    `low`; `capacity`: the capital that stays below a share of it. None where "
     "volumes are not known."},
    {"display_mae_mfe_analysis", kSelf, display_mae_mfe_analysis,
     "Run and show the analysis of adverse and favourable excursions; keywords are its settings.",
     pyglue::Binding::kFunction, "kwargs"},
};

bool has_own_run_analysis(nb::handle report) {
    const nb::object method = report.attr(kRunAnalysis);
    return pyglue::is_function(pyglue::attribute_or(method, "__func__", nb::none()), kMethods[0]);
}

} // namespace

nb::object strategy_drawdowns(nb::handle report, const nb::object& curve) {
    if (has_own_run_analysis(report)) {
        const nb::object module =
            global("importlib").attr("import_module")(text("corvex.analysis.drawdownAnalysis"));
        const nb::object analysis = module.attr("DrawdownAnalysis")();
        const nb::object known = pyglue::attribute_or(analysis, "of_curve", nb::none());
        if (!curve.is_none() && !known.is_none()) {
            return known(curve);
        }
        const nb::object alone = pyglue::attribute_or(analysis, "of_strategy", nb::none());
        if (!alone.is_none()) {
            return alone(report);
        }
    }
    const nb::object both = report.attr(kRunAnalysis)(text("Drawdown"), nb::arg("display") = false);
    return both["strategy"]["largest_drawdown"];
}

std::span<const FunctionSpec> analysis_methods() { return kMethods; }

} // namespace corvex::report
