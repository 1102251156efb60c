#include "corvex/core/report/report/daily_curve.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/numpy_api.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

namespace corvex::report {

namespace {

constexpr std::int64_t kSecondsPerDay = 86'400;
constexpr std::array<std::pair<const char*, std::int64_t>, 4> kPerDay{
    {{"ns", kSecondsPerDay * 1'000'000'000},
     {"us", kSecondsPerDay * 1'000'000},
     {"ms", kSecondsPerDay * 1'000},
     {"s", kSecondsPerDay}}};

/// The values of a numpy array of one type in one piece; nothing for another value.
template <typename T>
std::optional<std::span<const T>> numbers(nb::handle value, int type) {
    if (!PyArray_Check(value.ptr())) {
        return std::nullopt;
    }
    auto* const array = reinterpret_cast<PyArrayObject*>(value.ptr());
    if (PyArray_TYPE(array) != type || PyArray_NDIM(array) != 1 || !PyArray_ISCARRAY_RO(array)) {
        return std::nullopt;
    }
    return std::span<const T>{static_cast<const T*>(PyArray_DATA(array)),
                              static_cast<std::size_t>(PyArray_SIZE(array))};
}

/// Whether stamps are dates, each once, with a day left out somewhere: where none is, pandas tells
/// the frequency of what it resamples.
bool are_some_dates(std::span<const std::int64_t> stamps, std::int64_t per_day) {
    if (stamps.size() < 2 || stamps.front() % per_day != 0) {
        return false;
    }
    for (std::size_t row = 1; row < stamps.size(); ++row) {
        if (stamps[row] <= stamps[row - 1] || stamps[row] % per_day != 0) {
            return false;
        }
    }
    const std::int64_t days = (stamps.back() - stamps.front()) / per_day;
    return days != static_cast<std::int64_t>(stamps.size()) - 1;
}

/// Whether a curve is what taking the last value of each day would give back.
bool is_daily(nb::handle creturn) {
    const nb::object index = pyglue::attribute_or(creturn, "index", nb::none());
    if (!creturn.type().is(global("pd").attr("Series")) ||
        !index.type().is(global("pd").attr("DatetimeIndex")) || !index.attr("tz").is_none()) {
        return false;
    }
    const nb::object unit = index.attr("unit");
    const auto* const per_day = std::ranges::find_if(
        kPerDay, [&](const auto& known) { return pyglue::is_text_equal(unit, known.first); });
    const nb::object stamps = index.attr("asi8");
    const nb::object values = creturn.attr("to_numpy")();
    const auto dates = numbers<std::int64_t>(stamps, NPY_INT64);
    const auto curve = numbers<double>(values, NPY_FLOAT64);
    return per_day != kPerDay.end() && dates && curve && are_some_dates(*dates, per_day->second) &&
           std::ranges::none_of(*curve, [](double value) { return std::isnan(value); });
}

} // namespace

nb::object daily_curve(nb::handle creturn) {
    if (is_daily(creturn)) {
        const nb::object index = creturn.attr("index");
        if (index.attr("freq").is_none()) {
            return creturn.attr("rebase")();
        }
        const nb::object dates =
            global("pd").attr("DatetimeIndex")(index, nb::arg("freq") = nb::none());
        return creturn.attr("set_axis")(dates).attr("rebase")();
    }
    const nb::object last_of_day = creturn.attr("resample")(pyglue::text("1D")).attr("last")();
    return last_of_day.attr("dropna")().attr("ffill")().attr("rebase")();
}

} // namespace corvex::report
