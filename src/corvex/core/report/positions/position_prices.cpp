#include "corvex/core/report/positions/position_prices.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

nb::object as_table(const nb::object& prices) {
    return pyglue::is_instance(prices, global("pd").attr("Series")) ? prices.attr("to_frame")()
                                                                    : prices;
}

nb::object trading_price(nb::handle market, nb::handle trade_at, bool adjusted) {
    return as_table(market.attr("get_trading_price")(trade_at, nb::arg("adj") = adjusted));
}

/// The columns of the assets alone: a market's table may be large.
nb::object of_assets(const nb::object& table, nb::handle asset_ids) {
    const nb::object wanted = table.attr("columns").attr("isin")(asset_ids);
    const nb::object all_rows = pyglue::slice(nb::none(), nb::none());
    return table.attr("loc")[nb::make_tuple(all_rows, wanted)];
}

/// The table with a row for each entry date that it lacks, each a copy of the last row before it.
nb::object with_entry_dates(const nb::object& table, nb::handle entry_dates) {
    const nb::object dates =
        global("pd").attr("DatetimeIndex")(entry_dates.attr("dropna")().attr("unique")());
    const nb::object missing = dates.attr("difference")(table.attr("index"));
    if (pyglue::length(missing) == 0) {
        return table;
    }
    return table.attr("reindex")(table.attr("index").attr("union")(missing),
                                 nb::arg("method") = pyglue::text("ffill"));
}

/// The last row, by asset id; all missing where there is no row.
nb::object latest(const nb::object& table, nb::handle asset_ids) {
    if (pyglue::length(table) == 0) {
        return global("pd").attr("Series")(global("np").attr("nan"), nb::arg("index") = asset_ids);
    }
    return table.attr("iloc")[-1].attr("reindex")(asset_ids);
}

} // namespace

nb::object entry_adjusted_prices(nb::handle market, nb::handle trade_at, nb::handle asset_ids,
                                 nb::handle entry_dates) {
    const nb::object np = global("np");
    nb::object table = of_assets(trading_price(market, trade_at, true), asset_ids);
    if (pyglue::length(table) == 0) {
        return np.attr("full")(pyglue::integer(pyglue::length(asset_ids)), np.attr("nan"))
            .attr("tolist")();
    }
    table = with_entry_dates(table, entry_dates);
    const nb::object rows = table.attr("index").attr("get_indexer")(
        global("pd").attr("DatetimeIndex")(entry_dates), nb::arg("method") = pyglue::text("ffill"));
    const nb::object columns = table.attr("columns").attr("get_indexer")(asset_ids);
    const nb::object zero = pyglue::integer(0);
    const nb::object unlocated =
        pyglue::compare(rows, Py_LT, zero) | pyglue::compare(columns, Py_LT, zero);
    if (pyglue::is_true(unlocated.attr("all")())) {
        return np.attr("full")(pyglue::integer(pyglue::length(asset_ids)), np.attr("nan"))
            .attr("tolist")();
    }
    const nb::object cells = table.attr("to_numpy")()[nb::make_tuple(rows, columns)];
    return np.attr("where")(unlocated, np.attr("nan"), cells).attr("tolist")();
}

nb::object current_prices(nb::handle market, nb::handle trade_at, nb::handle asset_ids) {
    const nb::object prices = latest(trading_price(market, trade_at, false), asset_ids);
    const nb::object known = prices.attr("notna")();
    if (pyglue::is_true(known.attr("all")())) {
        return prices.attr("tolist")();
    }
    const nb::object closes =
        latest(as_table(market.attr("get_price")(pyglue::text("close"), nb::arg("adj") = false)),
               asset_ids);
    return global("np").attr("where")(known, prices, closes).attr("tolist")();
}

} // namespace corvex::report
