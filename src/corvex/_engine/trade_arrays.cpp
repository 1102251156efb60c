#include "trade_arrays.hpp"

#include <nanobind/nanobind.h>

#include <algorithm>
#include <limits>

#include "arrays.hpp"

namespace nb = nanobind;

namespace corvex::bindings {

namespace {

using engine::RoundTrip;

template <typename T, typename Field>
OutputArray<T> column(std::span<const RoundTrip> trips, Field field) {
    std::vector<T> values(trips.size());
    std::ranges::transform(trips, values.begin(),
                           [&](const RoundTrip& trip) { return static_cast<T>(field(trip)); });
    return to_numpy(std::move(values));
}

} // namespace

nb::dict trade_columns(std::span<const RoundTrip> trips, std::int64_t last_session) {
    constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
    nb::dict out;
    const auto whole = [&](const char* name, auto field) {
        out[name] = column<std::int64_t>(trips, [&](const RoundTrip& trip) { return trip.*field; });
    };
    const auto real = [&](const char* name, auto field) {
        out[name] = column<double>(trips, [&](const RoundTrip& trip) { return trip.*field; });
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
    real("mae", &RoundTrip::mae);
    real("mfe", &RoundTrip::mfe);
    real("mfe_before_mae", &RoundTrip::mfe_before_mae);
    real("max_drawdown", &RoundTrip::max_drawdown);
    out["days_in_profit"] = column<double>(trips, [](const RoundTrip& trip) {
        return trip.filled() ? trip.days_in_profit : kMissing;
    });
    out["period"] = column<double>(trips, [&](const RoundTrip& trip) {
        const std::int64_t end = trip.exit_session >= 0 ? trip.exit_session : last_session;
        return trip.filled() ? static_cast<double>(end - trip.entry_session) : kMissing;
    });
    return out;
}

} // namespace corvex::bindings
