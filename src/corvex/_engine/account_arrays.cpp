#include "account_arrays.hpp"

#include "corvex/engine/account/fee_schedule.hpp"

#include <nanobind/stl/pair.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include "arrays.hpp"

namespace nb = nanobind;

namespace corvex::bindings {

using engine::AssetEvent;
using engine::CutCount;
using engine::Grid;
using engine::TripMoney;

namespace {

std::vector<AssetEvent> asset_events(nb::handle given) {
    using Ints = InputArray<std::int64_t>;
    const auto [session, asset, amount] =
        nb::cast<std::tuple<Ints, Ints, InputArray<double>>>(given);
    if (session.shape(0) != asset.shape(0) || session.shape(0) != amount.shape(0)) {
        throw std::invalid_argument("the events of an account have columns of different lengths");
    }
    std::vector<AssetEvent> events(session.shape(0));
    for (std::size_t k = 0; k < events.size(); ++k) {
        events[k] = {session.data()[k], static_cast<std::uint32_t>(asset.data()[k]),
                     amount.data()[k]};
    }
    return events;
}

template <typename T, typename Row, typename Field>
OutputArray<T> column(const std::vector<Row>& rows, Field field) {
    std::vector<T> values(rows.size());
    std::ranges::transform(rows, values.begin(), field);
    return to_numpy(std::move(values));
}

nb::object as_tuple(const CutCount& counts) {
    return nb::make_tuple(counts.count, counts.session, counts.asset);
}

} // namespace

engine::FeeTerms read_fees(nb::handle given) {
    engine::FeeTerms fees;
    fees.minimum = nb::cast<double>(given.attr("min_fee"));
    fees.per_share = nb::cast<double>(given.attr("fee_per_share"));
    fees.max_ratio = nb::cast<double>(given.attr("max_fee_ratio"));
    for (const auto& [from, ratio] :
         nb::cast<std::vector<std::pair<double, double>>>(given.attr("fee_table"))) {
        fees.table.push_back({from, ratio});
    }
    return fees;
}

AccountArrays::AccountArrays(nb::handle given) {
    terms_.capital = nb::cast<double>(given.attr("capital"));
    terms_.years = grid(given, "years").values;
    terms_.cash_rate = grid(given, "cash_rate");
    terms_.financing_rate = grid(given, "financing_rate");
    terms_.short_rebate = grid(given, "short_rebate");
    terms_.borrow_rate = grid(given, "borrow_rate");
    terms_.fee_ratio = grid(given, "fee_ratio");
    terms_.tax_ratio = grid(given, "tax_ratio");
    terms_.slippage_ratio = grid(given, "slippage_ratio");
    terms_.fees = read_fees(given.attr("fees"));
    terms_.min_fee = grid(given, "min_fee");
    terms_.fee_per_share = grid(given, "fee_per_share");
    terms_.lot_size = grid(given, "lot_size");
    terms_.round_to_nearest = nb::cast<bool>(given.attr("round_to_nearest"));
    terms_.dividends = asset_events(given.attr("dividends"));
    terms_.splits = asset_events(given.attr("splits"));
    terms_.withholding_tax = grid(given, "withholding_tax");
    terms_.band = {grid(given, "band"), nb::cast<bool>(given.attr("band_relative")),
                   nb::cast<bool>(given.attr("band_to_edge"))};
    terms_.volume = {grid(given, "volume"), nb::cast<double>(given.attr("volume_share")),
                     nb::cast<bool>(given.attr("unfilled_lapses"))};
    terms_.impact.coefficient = nb::cast<double>(given.attr("impact"));
    terms_.impact.window = nb::cast<std::size_t>(given.attr("impact_window"));
    terms_.price_limit = grid(given, "price_limit");
    for (const auto& [from, tick] :
         nb::cast<std::vector<std::pair<double, double>>>(given.attr("price_ticks"))) {
        terms_.price_ticks.push_back({from, tick});
    }
    terms_.opens = grid(given, "opens");
    terms_.maintenance_margin = nb::cast<double>(given.attr("maintenance_margin"));
    for (const auto& [session, amount] :
         nb::cast<std::vector<std::pair<std::int64_t, double>>>(given.attr("flows"))) {
        terms_.flows.push_back({session, amount});
    }
    if (terms_.currencies.rates = grid(given, "fx"); terms_.currencies.any()) {
        // Columns are found by these: a copy, which no other thread can change.
        const auto columns = nb::cast<InputArray<std::int64_t>>(given.attr("fx_column"));
        fx_column_.assign(columns.data(), columns.data() + columns.shape(0));
        terms_.currencies.of_asset = fx_column_;
    }
}

/// None is an empty grid.
Grid AccountArrays::grid(nb::handle given, const char* name) {
    const nb::object value = given.attr(name);
    if (value.is_none()) {
        return {};
    }
    arrays_.push_back(nb::cast<InputTable>(value));
    const InputTable& table = arrays_.back();
    return {as_table(table).values, table.shape(0), table.shape(1)};
}

nb::dict account_columns(engine::AccountResult&& result) {
    nb::dict sessions;
    for (std::size_t k = 0; k < result.columns.size(); ++k) {
        const auto name = engine::kAccountColumnNames[k];
        sessions[nb::str(name.data(), name.size())] = to_numpy(std::move(result.columns[k]));
    }
    engine::Bookings& rows = result.bookings;
    nb::dict bookings;
    bookings["session"] = to_numpy(std::move(rows.session));
    bookings["asset"] = to_numpy(std::move(rows.asset));
    std::vector<std::int8_t> kinds(rows.kind.size());
    std::ranges::transform(rows.kind, kinds.begin(),
                           [](auto kind) { return static_cast<std::int8_t>(kind); });
    bookings["kind"] = to_numpy(std::move(kinds));
    bookings["shares"] = to_numpy(std::move(rows.shares));
    bookings["money"] = to_numpy(std::move(rows.money));
    nb::dict trips;
    trips["shares"] = column<double>(result.trips, [](const TripMoney& t) { return t.shares; });
    trips["money"] = column<double>(result.trips, [](const TripMoney& t) { return t.money; });
    trips["cut"] = column<std::int64_t>(
        result.trips, [](const TripMoney& t) { return static_cast<std::int64_t>(t.cut); });
    nb::list cuts;
    for (const CutCount& counts : result.cuts) {
        cuts.append(as_tuple(counts));
    }
    nb::dict out;
    out["sessions"] = sessions;
    out["bookings"] = bookings;
    out["trips"] = trips;
    out["cuts"] = cuts;
    out["unknown_volume"] = as_tuple(result.unknown_volume);
    out["unpaid"] = as_tuple(result.unpaid);
    out["overdrawn_session"] = result.overdrawn_session;
    return out;
}

} // namespace corvex::bindings
