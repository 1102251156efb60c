#include "corvex/core/report/positions/position_prices.hpp"

#include "corvex/core/report/label_match.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::text;

nb::object is_unlocated(nb::handle indexer) {
    return pyglue::compare(indexer, Py_LT, pyglue::integer(0));
}

nb::object full_like(nb::handle indexer, Py_ssize_t value) {
    return global("np").attr("full_like")(indexer, pyglue::integer(value));
}

/// Cells of a table by row and column positions; NaN where either is -1.
nb::object cells(nb::handle table, nb::handle rows, nb::handle columns) {
    const nb::object np = global("np");
    const nb::object unlocated = is_unlocated(rows) | is_unlocated(columns);
    if (pyglue::is_true(unlocated.attr("all")())) {
        return np.attr("where")(unlocated, np.attr("nan"), np.attr("nan"));
    }
    const nb::object values = table.attr("to_numpy")()[nb::make_tuple(rows, columns)];
    return np.attr("where")(unlocated, np.attr("nan"), values);
}

/// The dates in the form of a table's index: where only one of both has a zone, by the clock.
nb::object dates_like(nb::handle index, nb::handle dates) {
    const nb::object zone = pyglue::attribute_or(index, "tz", nb::none());
    nb::object same = global("pd").attr("DatetimeIndex")(dates);
    if (zone.is_none() != same.attr("tz").is_none()) {
        same = same.attr("tz_localize")(zone);
    }
    return same;
}

/// A market of the user's own may list its latest prices first.
nb::object oldest_first(const nb::object& table) {
    return pyglue::is_true(table.attr("index").attr("is_monotonic_increasing"))
               ? table
               : nb::object(table.attr("sort_index")(nb::arg("kind") = text("stable")));
}

/// The table with a row for each date that it lacks, a copy of the last row before it.
nb::object with_dates(const nb::object& table, nb::handle dates) {
    const nb::object index = table.attr("index");
    const nb::object missing = dates.attr("dropna")().attr("unique")().attr("difference")(index);
    return pyglue::length(missing) == 0 ? table
                                        : table.attr("reindex")(index.attr("union")(missing),
                                                                nb::arg("method") = text("ffill"));
}

} // namespace

PriceSource::PriceSource(nb::handle market, nb::handle trade_at, nb::handle labels)
    : market_(nb::borrow<nb::object>(market)), trade_at_(nb::borrow<nb::object>(trade_at)),
      labels_(nb::borrow<nb::object>(labels)) {}

/// A table that orders were filled at holds the trading prices itself; a report that cannot say
/// what they were is valued at the close.
nb::object PriceSource::trading_price(bool adjusted) const {
    if (pyglue::is_instance(trade_at_, global("pd").attr("DataFrame")) &&
        pyglue::length(trade_at_) != 0) {
        return of_assets(trade_at_);
    }
    const bool named = pyglue::is_text(trade_at_) && !pyglue::is_text_equal(trade_at_, "custom");
    return of_assets(market_.attr("get_trading_price")(named ? trade_at_ : text("close"),
                                                       nb::arg("adj") = adjusted));
}

/// The assets' columns alone: a market's table may be large.
nb::object PriceSource::of_assets(const nb::object& prices) const {
    const bool single = pyglue::is_instance(prices, global("pd").attr("Series"));
    const nb::object table = single ? nb::object(prices.attr("to_frame")()) : prices;
    const nb::object columns = columns_of(table);
    const nb::object found = columns[~is_unlocated(columns)];
    const nb::object all_rows = pyglue::slice(nb::none(), nb::none());
    return oldest_first(
        table.attr("iloc")[nb::make_tuple(all_rows, global("np").attr("unique")(found))]);
}

nb::object PriceSource::columns_of(nb::handle table) const {
    return label_positions(labels_, table.attr("columns"));
}

nb::object PriceSource::adjusted_on(nb::handle entry_dates) const {
    nb::object table = trading_price(true);
    const nb::object columns = columns_of(table);
    if (pyglue::length(table) == 0) {
        return cells(table, full_like(columns, -1), columns).attr("tolist")();
    }
    const nb::object dates = dates_like(table.attr("index"), entry_dates);
    table = with_dates(table, dates);
    const nb::object rows =
        table.attr("index").attr("get_indexer")(dates, nb::arg("method") = text("ffill"));
    // pandas 2.2 finds a row even for a missing date.
    const nb::object located =
        global("np").attr("where")(dates.attr("isna")(), pyglue::integer(-1), rows);
    return cells(table, located, columns).attr("tolist")();
}

nb::object PriceSource::last_row(nb::handle table) const {
    const nb::object columns = columns_of(table);
    return cells(table, full_like(columns, pyglue::length(table) - 1), columns);
}

nb::object PriceSource::latest() const {
    const nb::object prices = last_row(trading_price(false));
    const nb::object missing = global("pd").attr("isna")(prices);
    if (!pyglue::is_true(missing.attr("any")())) {
        return prices.attr("tolist")();
    }
    const nb::object closes =
        last_row(of_assets(market_.attr("get_price")(text("close"), nb::arg("adj") = false)));
    return global("np").attr("where")(missing, closes, prices).attr("tolist")();
}

} // namespace corvex::report
