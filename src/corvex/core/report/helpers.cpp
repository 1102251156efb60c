#include "corvex/core/report/helpers.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/pyglue/function.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

constexpr double kDaysPerYear = 365.25;

nb::object is_in_vscode(const Call& /*call*/) {
    bool found = false;
    const nb::object mark = pyglue::text("VSCODE");
    pyglue::for_each(global("os").attr("environ"), [&](const nb::object& name) {
        found = pyglue::contains(name, mark);
        return !found;
    });
    return nb::bool_(found);
}

nb::object daily_return(const Call& call) {
    const nb::object last_of_day = call[0].attr("resample")(pyglue::text("1D")).attr("last")();
    return last_of_day.attr("dropna")().attr("pct_change")();
}

nb::object safe_division(const Call& call) {
    return pyglue::is_true(call[1]) ? call[0] / call[1] : pyglue::integer(0);
}

nb::object calc_cagr(const Call& call) {
    const nb::handle returns = call[0];
    const nb::object growth = (returns + pyglue::integer(1)).attr("prod")();
    const nb::object index = returns.attr("index");
    const nb::object days = (index[-1] - index[0]).attr("days");
    const nb::object exponent = global("safe_division")(pyglue::number(kDaysPerYear), days);
    const nb::object power =
        nb::steal<nb::object>(PyNumber_Power(growth.ptr(), exponent.ptr(), Py_None));
    if (!power.is_valid()) {
        throw nb::python_error();
    }
    return power - pyglue::integer(1);
}

constexpr Parameter kSeries[] = {{"s"}};
constexpr Parameter kDivision[] = {{"n"}, {"d"}};

const FunctionSpec kIsInVscode{"is_in_vscode",
                               {},
                               is_in_vscode,
                               "Whether the name of any environment variable contains \"VSCODE\"."};
const FunctionSpec kDailyReturn{
    "<lambda>", kSeries, daily_return,
    "Fractional change from day to day of a series, the last value of each day "
    "counting; days without data are left out."};
const FunctionSpec kSafeDivision{"safe_division", kDivision, safe_division,
                                 "``n / d``, or 0 when ``d`` is zero, None or empty."};
const FunctionSpec kCalcCagr{
    "<lambda>", kSeries, calc_cagr,
    "Compound annual growth rate of a series of periodic returns, a year being "
    "365.25 days; 0 when it spans less than a day."};

} // namespace

void bind_helpers(nb::dict& globals) {
    globals["is_in_vscode"] = pyglue::make_function(kIsInVscode, globals);
    globals["daily_return"] = pyglue::make_function(kDailyReturn, globals);
    globals["safe_division"] = pyglue::make_function(kSafeDivision, globals);
    globals["calc_cagr"] = pyglue::make_function(kCalcCagr, globals);
}

} // namespace corvex::report
