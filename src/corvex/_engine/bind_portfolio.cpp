#include "corvex/engine/portfolio/price_checks.hpp"
#include "corvex/engine/portfolio/simulator.hpp"

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string_view.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "arrays.hpp"
#include "trade_arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

using engine::portfolio::FillAt;
using engine::portfolio::PriceTable;
using engine::portfolio::SimulationInput;
using engine::portfolio::SimulationResult;

/// Two-dimensional, row by row. Bound with noconvert: a large table is never copied in silence.
using InputTable = nb::ndarray<const double, nb::ndim<2>, nb::c_contig, nb::device::cpu, nb::numpy>;
using OptionalTable = std::optional<InputTable>;

PriceTable as_table(const InputTable& table) {
    return {{table.data(), table.shape(0) * table.shape(1)}, table.shape(1)};
}

PriceTable as_table(const OptionalTable& table) { return table ? as_table(*table) : PriceTable{}; }

FillAt parse_fill_at(std::string_view name) {
    if (name == "close") {
        return FillAt::kClose;
    }
    if (name == "open") {
        return FillAt::kOpen;
    }
    if (name == "other") {
        return FillAt::kOther;
    }
    throw std::invalid_argument("fill_at must be 'close', 'open' or 'other', got '" +
                                std::string{name} + "'");
}

/// None, NaN and infinity switch a stop off.
double stop_fraction(std::optional<double> value) {
    constexpr double kOff = std::numeric_limits<double>::infinity();
    return value && std::isfinite(*value) ? *value : kOff;
}

OutputArray<std::int64_t> reason_codes(std::span<const engine::trades::ExitReason> reasons) {
    std::vector<std::int64_t> codes(reasons.size());
    std::ranges::transform(reasons, codes.begin(),
                           [](auto reason) { return static_cast<std::int64_t>(reason); });
    return to_numpy(std::move(codes));
}

nb::dict fill_columns(engine::portfolio::Fills&& fills) {
    nb::dict out;
    out["session"] = to_numpy(std::move(fills.session));
    out["asset"] = to_numpy(std::move(fills.asset));
    out["shares"] = to_numpy(std::move(fills.shares));
    out["price"] = to_numpy(std::move(fills.price));
    out["cost"] = to_numpy(std::move(fills.cost));
    return out;
}

nb::dict as_dict(SimulationResult&& result, nb::object position, const SimulationInput& input) {
    const auto last_session = static_cast<std::int64_t>(input.close.sessions()) - 1;
    nb::dict out;
    out["equity"] = to_numpy(std::move(result.equity));
    out["cash"] = to_numpy(std::move(result.cash));
    out["fees"] = to_numpy(std::move(result.fees));
    out["taxes"] = to_numpy(std::move(result.taxes));
    out["slippage"] = to_numpy(std::move(result.slippage));
    out["traded"] = to_numpy(std::move(result.traded));
    out["position"] = std::move(position);
    out["trades"] = input.record_trades
                        ? nb::object(trade_columns(result.round_trips, last_session))
                        : nb::none();
    out["fills"] =
        input.record_fills ? nb::object(fill_columns(std::move(result.fills))) : nb::none();
    out["ruin_session"] = result.ruin_session;
    out["executed_rebalance"] = result.executed_rebalance;
    out["weights_in_force"] = to_numpy(std::move(result.weights_in_force));
    out["shares"] = to_numpy(std::move(result.shares));
    out["out_reason"] = reason_codes(result.out_reason);
    out["pending_reason"] = reason_codes(result.pending_reason);
    out["pending_session"] = to_numpy(std::move(result.pending_session));
    out["waiting_rebalance"] = to_numpy(std::move(result.waiting_rebalance));
    out["cooldown"] = to_numpy(std::move(result.cooldown));
    return out;
}

/// numpy's own allocation: it asks the system for large pages, which matters for a table that is
/// written once.
nb::object new_position(SimulationInput& input) {
    const std::size_t sessions = input.close.sessions();
    const std::size_t rows = sessions - std::min(input.first_session, sessions);
    nb::object array =
        nb::module_::import_("numpy").attr("empty")(nb::make_tuple(rows, input.close.assets));
    const auto view = nb::cast<nb::ndarray<double, nb::ndim<2>, nb::c_contig>>(array);
    input.position = {view.data(), rows * input.close.assets};
    return array;
}

nb::dict simulate(const InputTable& close, const InputTable& target,
                  const InputArray<std::int64_t>& signal_session, std::size_t first_session,
                  std::string_view fill_at, const OptionalTable& fill, const OptionalTable& open,
                  const OptionalTable& high, const OptionalTable& low, double fee_ratio,
                  double tax_ratio, double slippage_ratio, std::optional<double> stop_loss,
                  std::optional<double> take_profit, std::optional<double> trail_stop,
                  bool touched_exit, std::int64_t stop_cooldown, bool record_positions,
                  bool record_trades, bool record_excursions, bool record_fills) {
    SimulationInput input{};
    input.close = as_table(close);
    input.fill = as_table(fill);
    input.open = as_table(open);
    input.high = as_table(high);
    input.low = as_table(low);
    input.target = as_table(target).values;
    // Rows are found by these: a copy, which no other thread can change once they are checked.
    const std::vector<std::int64_t> signals{signal_session.data(),
                                            signal_session.data() + signal_session.shape(0)};
    input.signal_session = signals;
    input.first_session = first_session;
    input.fill_at = parse_fill_at(fill_at);
    input.costs = {fee_ratio, tax_ratio, slippage_ratio};
    input.stops = {stop_fraction(stop_loss), stop_fraction(take_profit), stop_fraction(trail_stop),
                   touched_exit, stop_cooldown};
    input.record_trades = record_trades;
    input.record_excursions = record_excursions;
    input.record_fills = record_fills;
    if (target.shape(1) != close.shape(1)) {
        throw std::invalid_argument("target and close must have one column for each asset");
    }
    nb::object position = record_positions ? new_position(input) : nb::none();
    SimulationResult result;
    {
        const nb::gil_scoped_release released;
        result = engine::portfolio::simulate(input);
    }
    return as_dict(std::move(result), std::move(position), input);
}

OutputArray<std::int64_t> last_priced_sessions(const InputTable& prices) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        rows = engine::portfolio::last_priced_sessions(as_table(prices));
    }
    return to_numpy(std::move(rows));
}

nb::object first_bad_price(const InputTable& prices) {
    std::optional<std::pair<std::size_t, std::size_t>> found;
    {
        const nb::gil_scoped_release released;
        found = engine::portfolio::first_bad_price(as_table(prices));
    }
    return found ? nb::object(nb::make_tuple(found->first, found->second)) : nb::none();
}

} // namespace

void bind_portfolio(nb::module_& module) {
    module.def("simulate", &simulate, nb::kw_only(), "close"_a.noconvert(), "target"_a.noconvert(),
               "signal_session"_a, "first_session"_a = 0, "fill_at"_a = "close",
               "fill"_a.noconvert() = nb::none(), "open"_a.noconvert() = nb::none(),
               "high"_a.noconvert() = nb::none(), "low"_a.noconvert() = nb::none(),
               "fee_ratio"_a = 0.0, "tax_ratio"_a = 0.0, "slippage_ratio"_a = 0.0,
               "stop_loss"_a = nb::none(), "take_profit"_a = nb::none(),
               "trail_stop"_a = nb::none(), "touched_exit"_a = false, "stop_cooldown"_a = 0,
               "record_positions"_a = true, "record_trades"_a = true, "record_excursions"_a = true,
               "record_fills"_a = false,
               "Simulate a portfolio of target weights; the stub file describes it.");
    module.def("last_priced_sessions", &last_priced_sessions, "prices"_a.noconvert(),
               "For each asset the last row with a price, -1 for an asset without any.");
    module.def("first_bad_price", &first_bad_price, "prices"_a.noconvert(),
               "Row and column of the first price that is zero, negative or infinite.");
}

} // namespace corvex::bindings
