#include "trade_arrays.hpp"

#include <nanobind/nanobind.h>

#include <algorithm>

#include "arrays.hpp"

namespace nb = nanobind;

namespace corvex::bindings {

namespace {

using engine::trades::ExcursionFigures;
using engine::trades::RoundTrip;

template <typename T, typename Field>
OutputArray<T> column(std::span<const RoundTrip> trips, Field field) {
    std::vector<T> values(trips.size());
    std::ranges::transform(trips, values.begin(),
                           [&](const RoundTrip& trip) { return static_cast<T>(field(trip)); });
    return to_numpy(std::move(values));
}

} // namespace

nb::dict trade_columns(std::span<const RoundTrip> trips) {
    nb::dict out;
    const auto whole = [&](const char* name, auto field) {
        out[name] = column<std::int64_t>(trips, [&](const RoundTrip& trip) { return trip.*field; });
    };
    const auto real = [&](const char* name, auto field) {
        out[name] = column<double>(trips, [&](const RoundTrip& trip) { return trip.*field; });
    };
    const auto excursion = [&](const char* name, double ExcursionFigures::* field) {
        out[name] =
            column<double>(trips, [&](const RoundTrip& trip) { return trip.excursion.*field; });
    };
    whole("asset", &RoundTrip::asset);
    whole("entry_rebalance", &RoundTrip::entry_rebalance);
    whole("exit_rebalance", &RoundTrip::exit_rebalance);
    whole("exit_signal_session", &RoundTrip::exit_signal_session);
    whole("entry_session", &RoundTrip::entry_session);
    whole("exit_session", &RoundTrip::exit_session);
    whole("exit_reason", &RoundTrip::reason);
    real("entry_price", &RoundTrip::entry_price);
    real("exit_price", &RoundTrip::exit_price);
    real("weight", &RoundTrip::weight);
    real("return", &RoundTrip::net_return);
    real("period", &RoundTrip::period);
    excursion("mae", &ExcursionFigures::mae);
    excursion("mfe", &ExcursionFigures::mfe);
    excursion("mfe_before_mae", &ExcursionFigures::mfe_before_mae);
    excursion("max_drawdown", &ExcursionFigures::max_drawdown);
    excursion("days_in_profit", &ExcursionFigures::days_in_profit);
    return out;
}

} // namespace corvex::bindings
