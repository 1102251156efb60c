#include "corvex/core/report/report/trades.hpp"

#include "corvex/core/report/label_match.hpp"
#include "corvex/core/report/lookup_kernels.hpp"
#include "corvex/core/report/module_globals.hpp"

#include <span>
#include <vector>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

nb::object get_trades(const Call& call) { return call.self().attr("trades"); }

nb::object get_mae_mfe(const Call& call) { return call.self().attr("mae_mfe"); }

nb::list as_column_list(nb::handle date_columns) {
    nb::list columns;
    if (pyglue::is_text(date_columns)) {
        columns.append(date_columns);
        return columns;
    }
    pyglue::for_each(date_columns, [&](const nb::object& column) {
        columns.append(column);
        return true;
    });
    return columns;
}

/// A date column of the trades: its distinct dates, and which of them each trade has. Trades share
/// few dates, so that whatever is asked of a date is asked once for all its trades.
struct DateColumn {
    nb::object label;
    nb::object numbers;
    nb::object dates;
};

std::vector<DateColumn> date_columns_of(nb::handle trades, const nb::list& labels) {
    std::vector<DateColumn> columns;
    for (const nb::handle label : labels) {
        // A missing date keeps a number of its own.
        const nb::object found =
            global("pd").attr("factorize")(trades[label], nb::arg("use_na_sentinel") = false);
        columns.push_back(
            {nb::borrow<nb::object>(label), found[0], found[1].attr("infer_objects")()});
    }
    return columns;
}

/// The distinct dates of all columns. A trade without a date adds none.
nb::object trade_dates(std::span<const DateColumn> columns) {
    nb::object dates;
    for (const DateColumn& column : columns) {
        const nb::object known = column.dates.attr("dropna")();
        if (pyglue::length(known) == 0) {
            continue;
        }
        dates = dates.is_valid() ? nb::object(dates.attr("union")(known)) : known;
    }
    return dates;
}

/// The table oldest first: in any other order "the last row before a date" would be a later one.
nb::object oldest_first(nb::handle table) {
    return pyglue::is_true(table.attr("index").attr("is_monotonic_increasing"))
               ? nb::borrow<nb::object>(table)
               : nb::object(table.attr("sort_index")());
}

bool covers(nb::handle index, nb::handle dates) {
    return pyglue::is_true(index.attr("is_unique")) &&
           pyglue::is_true(dates.attr("isin")(index).attr("all")());
}

/// The table with a row for every trade date, each new one a copy of the last row before it.
nb::object extended_to(nb::handle table, const nb::object& dates) {
    nb::object sorted = oldest_first(table);
    const nb::object index = sorted.attr("index");
    // A large table that has all the dates is not copied.
    if (!dates.is_valid() || covers(index, dates)) {
        return sorted;
    }
    return sorted.attr("reindex")(index.attr("union")(dates),
                                  nb::arg("method") = pyglue::text("ffill"));
}

/// The column of each trade's asset, -1 where there is none. Each label is looked up once, however
/// many trades it has. What the labels' own rule leaves open is settled by the id alone.
nb::object asset_columns(nb::handle trades, const nb::object& columns) {
    const nb::object np = global("np");
    const nb::object found =
        global("pd").attr("factorize")(trades[pyglue::text(asset_column(trades))]);
    const nb::object labels = plain_list(found[1]);
    const nb::object missing = pyglue::integer(-1);
    nb::object places = label_positions(labels, columns);
    const nb::object open = pyglue::compare(places, Py_EQ, missing);
    if (pyglue::is_true(open.attr("any")()) && pyglue::is_true(columns.attr("is_unique"))) {
        nb::list ids;
        pyglue::for_each(labels, [&](const nb::object& label) {
            ids.append(label_id(label));
            return true;
        });
        places = np.attr("where")(open, columns.attr("get_indexer_for")(ids), places);
    }
    return np.attr("append")(places, missing)[found[0]]; // a trade without an asset has number -1
}

nb::object kernel_for(nb::handle dtype) {
    const nb::object np = global("np");
    if (pyglue::equals(dtype, np.attr("int64"))) {
        return global("query_data_int64");
    }
    if (pyglue::equals(dtype, np.attr("int32"))) {
        return global("query_data_int32");
    }
    pyglue::raise(PyExc_ValueError,
                  pyglue::concat({pyglue::text("Unknown dtype "), pyglue::formatted(dtype),
                                  pyglue::text(" for query_date")}));
}

nb::object cells_at(nb::handle values, nb::handle rows, nb::handle columns) {
    const nb::object missing = pyglue::integer(-1);
    // The kernels test the column only; a row of -1 would read the last date.
    const nb::object located =
        global("np").attr("where")(pyglue::compare(rows, Py_EQ, missing), missing, columns);
    return column_of_cells(kernel_for(rows.attr("dtype")), values, rows,
                           located.attr("astype")(rows.attr("dtype")));
}

nb::object add_trade_info(const Call& call) {
    const nb::handle self = call.self();
    const nb::object trades = self.attr("trades");
    const std::vector<DateColumn> date_columns = date_columns_of(trades, as_column_list(call[3]));
    const nb::object table = extended_to(call[2], trade_dates(date_columns));
    const nb::object values = table.attr("values");
    const nb::object columns = asset_columns(trades, table.attr("columns"));
    for (const DateColumn& dates : date_columns) {
        const nb::object rows = table.attr("index").attr("get_indexer_for")(dates.dates);
        const nb::object label =
            pyglue::concat({pyglue::to_text(call[1]), pyglue::text("@"), dates.label});
        trades[label] = cells_at(values, rows.attr("take")(dates.numbers), columns);
    }
    return nb::none();
}

nb::object remove_trade_info(const Call& call) {
    const nb::handle self = call.self();
    const nb::object trades = self.attr("trades");
    const nb::object kept = pyglue::compare(trades.attr("columns"), Py_NE, call[1]);
    // A copy: pandas before 3.0 warns when a column is later added to a selection.
    self.attr("trades") =
        trades.attr("loc")[nb::make_tuple(pyglue::slice(nb::none(), nb::none()), kept)].attr(
            "copy")();
    return nb::none();
}

nb::object get_ndays_return(const Call& call) {
    const nb::handle creturn = call[0];
    const nb::object back = pyglue::integer(-1) - call[1];
    const nb::object first = pyglue::integer(-pyglue::length(creturn));
    const nb::object reference =
        pyglue::is_true(pyglue::compare(back, Py_GE, first)) ? back : first;
    const nb::object rows = creturn.attr("iloc");
    return rows[-1] / rows[reference] - pyglue::integer(1);
}

constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kAddInfo[] = {{"self"}, {"name"}, {"df"}, {"date_col", "entry_sig_date"}};
constexpr Parameter kRemoveInfo[] = {{"self"}, {"name"}};
constexpr Parameter kNdays[] = {{"creturn"}, {"n"}};

const FunctionSpec kMethods[] = {
    {"get_trades", kSelf, get_trades,
     "The trade table itself, one row per round trip; what is changed in it stays.\n\n"
     "Returns\n-------\nDataFrame\n"
     "    `symbol`; dates `entry_date`, `exit_date` (NaT while open) and those of their signals, "
     "`entry_sig_date`,\n    `exit_sig_date`; `position` (weight, a fraction), `period` "
     "(sessions), "
     "`return` (a fraction, after\n    costs), `trade_price@entry_date`, `trade_price@exit_date`, "
     "`mae`, `mfe`, `mfe_before_mae`,\n    `max_drawdown` (fractions), `days_in_profit` and, of a "
     "simulation, `exit_reason`."},
    {"get_mae_mfe", kSelf, get_mae_mfe,
     "The table of maximum adverse and favourable excursions, one row per trade.\n\n"
     "Returns\n-------\nDataFrame\n"
     "    `mae`, `mfe`, `mfe_before_mae`, `max_drawdown` as fractions of the entry price, "
     "`days_in_profit` in\n    sessions; in the order of the trades."},
    {"add_trade_info", kAddInfo, add_trade_info,
     "Look up a value for every trade in a table and add it to the "
     "trades.\n\nParameters\n----------\n"
     "name : str\n    The new column is \"<name>@<date column>\".\n"
     "df : DataFrame\n    Dates x asset labels or ids, of float64, int64, int8, bool or object. "
     "A trade\n    date that it lacks takes the last row before it, in whatever order they are.\n"
     "date_col : str or list of str, default \"entry_sig_date\"\n"
     "    Which dates of the trades: entry_sig_date, exit_sig_date, entry_date, exit_date.\n\n"
     "A date or an asset that the table does not know gives the kernels' fill value. An asset is "
     "known by\nits whole label, else by the id before the first blank. Columns are added to "
     "`trades` in place: not from\ntwo threads at a time, since pandas keeps no lock."},
    {"remove_trade_info", kRemoveInfo, remove_trade_info,
     "Remove one column of the trades by its full label, such as \"volume@entry_date\".\n\n"
     "Parameters\n----------\nname : str\n    The label; one that is not there changes nothing."},
    {"get_ndays_return", kNdays, get_ndays_return,
     "The return of a curve over its last `n` rows, or over all when it has fewer.\n\n"
     "Parameters\n----------\ncreturn : Series\n    Values of the curve, such as "
     "`report.creturn`.\nn : int\n    How many rows.\n\n"
     "Returns\n-------\nfloat\n    A fraction: 0.01 is 1 %.",
     pyglue::Binding::kStaticMethod},
};

} // namespace

std::span<const FunctionSpec> trade_methods() { return kMethods; }

const char* asset_column(nb::handle trades) {
    return pyglue::contains(trades.attr("columns"), "symbol") ? "symbol" : "stock_id";
}

} // namespace corvex::report
