#include "corvex/engine/account/fee_schedule.hpp"
#include "corvex/engine/portfolio/price_checks.hpp"
#include "corvex/engine/portfolio/price_set.hpp"
#include "corvex/engine/portfolio/simulator.hpp"
#include "corvex/engine/trades/exit_reason.hpp"

#include <nanobind/nanobind.h>
#include <nanobind/stl/string_view.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "account_arrays.hpp"
#include "arrays.hpp"
#include "portfolio_arrays.hpp"
#include "trade_arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

using engine::Options;
using engine::SimulationInput;
using engine::SimulationResult;

OutputArray<std::int64_t> reason_codes(std::span<const engine::ExitReason> reasons) {
    std::vector<std::int64_t> codes(reasons.size());
    std::ranges::transform(reasons, codes.begin(),
                           [](auto reason) { return static_cast<std::int64_t>(reason); });
    return to_numpy(std::move(codes));
}

nb::dict fill_columns(engine::Fills&& fills) {
    nb::dict out;
    out["session"] = to_numpy(std::move(fills.session));
    out["asset"] = to_numpy(std::move(fills.asset));
    out["shares"] = to_numpy(std::move(fills.shares));
    out["price"] = to_numpy(std::move(fills.price));
    out["cost"] = to_numpy(std::move(fills.cost));
    return out;
}

nb::dict as_dict(SimulationResult&& result, nb::object position, const SimulationInput& input) {
    const auto last_session = static_cast<std::int64_t>(input.prices.sessions()) - 1;
    const engine::CurveStart start = result.curve_start();
    nb::dict out;
    out["start_row"] = start.row;
    out["starts_before"] = start.led;
    out["equity"] = to_numpy(std::move(result.equity));
    out["cash"] = to_numpy(std::move(result.cash));
    out["fees"] = to_numpy(std::move(result.fees));
    out["taxes"] = to_numpy(std::move(result.taxes));
    out["slippage"] = to_numpy(std::move(result.slippage));
    out["traded"] = to_numpy(std::move(result.traded));
    out["position"] = std::move(position);
    out["trades"] = input.record.trades
                        ? nb::object(trade_columns(result.round_trips, last_session))
                        : nb::none();
    out["fills"] =
        input.record.fills ? nb::object(fill_columns(std::move(result.fills))) : nb::none();
    out["ruin_session"] = result.ruin_session;
    out["executed_rebalance"] = result.executed_rebalance;
    out["weights_in_force"] = to_numpy(std::move(result.weights_in_force));
    out["shares"] = to_numpy(std::move(result.shares));
    out["out_reason"] = reason_codes(result.out_reason);
    out["pending_reason"] = reason_codes(result.pending_reason);
    out["pending_session"] = to_numpy(std::move(result.pending_session));
    out["waiting_rebalance"] = to_numpy(std::move(result.waiting_rebalance));
    out["cooldown"] = to_numpy(std::move(result.cooldown));
    if (result.account) {
        nb::dict account = account_columns(std::move(*result.account));
        account["length"] = input.prices.sessions() - input.plan.first_session;
        out["account"] = account;
    }
    return out;
}

/// numpy's own allocation: it asks the system for large pages, which matters for a table that is
/// written once.
nb::object new_position(SimulationInput& input) {
    const std::size_t sessions = input.prices.sessions();
    const std::size_t rows = sessions - std::min(input.plan.first_session, sessions);
    const std::size_t assets = input.prices.assets();
    nb::object array = nb::module_::import_("numpy").attr("empty")(nb::make_tuple(rows, assets));
    const auto view = nb::cast<nb::ndarray<double, nb::ndim<2>, nb::c_contig>>(array);
    input.record.position = {view.data(), rows * assets};
    return array;
}

nb::dict simulate(const SharedPrices& prices, const InputTable& target,
                  const InputArray<std::int64_t>& signal_session, std::size_t first_session,
                  nb::handle options, bool record_positions, bool record_trades,
                  bool record_excursions, bool record_fills, nb::handle account) {
    if (target.shape(1) != prices.prices().assets()) {
        throw std::invalid_argument("target and close must have one column for each asset");
    }
    // Rows are found by these: a copy, which no other thread can change once they are checked.
    const std::vector<std::int64_t> signals{signal_session.data(),
                                            signal_session.data() + signal_session.shape(0)};
    SimulationInput input{.prices = prices.prices(),
                          .plan = {as_table(target).values, signals, first_session},
                          .options = read_options(options),
                          .record = {record_trades, record_excursions, record_fills}};
    std::optional<AccountArrays> kept;
    if (!account.is_none()) {
        input.account = &kept.emplace(account).terms();
    }
    nb::object position = record_positions ? new_position(input) : nb::none();
    SimulationResult result;
    {
        const nb::gil_scoped_release released;
        result = engine::simulate(input);
    }
    return as_dict(std::move(result), std::move(position), input);
}

double order_fee(nb::handle fees, double value, double shares, double ratio) {
    return engine::commission(read_fees(fees), value, shares, ratio);
}

OutputArray<std::int64_t> last_priced_sessions(const InputTable& prices) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        rows = engine::last_priced_sessions(as_table(prices));
    }
    return to_numpy(std::move(rows));
}

nb::object first_bad_price(const InputTable& prices) {
    std::optional<std::pair<std::size_t, std::size_t>> found;
    {
        const nb::gil_scoped_release released;
        found = engine::first_bad_price(as_table(prices));
    }
    return found ? nb::object(nb::make_tuple(found->first, found->second)) : nb::none();
}

} // namespace

void bind_portfolio(nb::module_& module) {
    nb::list reasons;
    for (const std::string_view name : engine::kExitReasonNames) {
        reasons.append(nb::str(name.data(), name.size()));
    }
    module.attr("EXIT_REASONS") = nb::tuple(reasons);
    nb::list options;
    Options defaults;
    engine::for_each_option(defaults, [&](const char* name, const auto&) { options.append(name); });
    module.attr("OPTION_NAMES") = nb::tuple(options);
    nb::class_<SharedPrices>(module, "PriceSet", "Prices that runs share; never copied.")
        .def(nb::init<InputTable, std::string_view, InputTable, InputTable, InputTable,
                      InputTable>(),
             nb::kw_only(), "close"_a.noconvert(), "fill_at"_a = "close",
             "fill"_a.noconvert().none() = nb::none(), "open"_a.noconvert().none() = nb::none(),
             "high"_a.noconvert().none() = nb::none(), "low"_a.noconvert().none() = nb::none())
        .def_prop_ro("assets", [](const SharedPrices& self) { return self.prices().assets(); })
        .def_prop_ro("sessions", [](const SharedPrices& self) { return self.prices().sessions(); });
    module.def("simulate", &simulate, "prices"_a, "target"_a.noconvert(), "signal_session"_a,
               nb::kw_only(), "first_session"_a = 0, "options"_a = nb::none(),
               "record_positions"_a = true, "record_trades"_a = true, "record_excursions"_a = true,
               "record_fills"_a = false, "account"_a = nb::none(),
               "Simulate a portfolio of target weights; the stub file describes it.");
    module.def("order_fee", &order_fee, "fees"_a, "value"_a, "shares"_a, "ratio"_a,
               "The commission of an order that executes at some value.");
    module.def("last_priced_sessions", &last_priced_sessions, "prices"_a.noconvert(),
               "For each asset the last row with a price, -1 for an asset without any.");
    module.def("first_bad_price", &first_bad_price, "prices"_a.noconvert(),
               "Row and column of the first price that is zero, negative or infinite.");
}

} // namespace corvex::bindings
