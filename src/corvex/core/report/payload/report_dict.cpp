#include "corvex/core/report/payload/report_dict.hpp"

#include "corvex/core/report/common/signal_dates.hpp"
#include "corvex/core/report/imports.hpp"
#include "corvex/core/report/module_globals.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

constexpr long kDefaultTradesLimit = 500;

/// Dates or durations as whole milliseconds, a missing one as missing.
nb::object milliseconds(nb::handle column, const char* numpy_type) {
    const nb::object values = column.attr("to_numpy")(text(numpy_type)).attr("view")(text("int64"));
    const nb::object series =
        global("pd").attr("Series")(values, nb::arg("index") = column.attr("index"));
    const nb::object missing = column.attr("isna")();
    if (!pyglue::is_true(missing.attr("any")())) {
        return series;
    }
    return series.attr("astype")(text("Int64")).attr("mask")(missing);
}

/// By position: pandas takes item assignment from compiled code for a chained one, and warns.
void replace_column(nb::handle table, Py_ssize_t position, const char* numpy_type) {
    const nb::object column = table.attr(
        "iloc")[nb::make_tuple(pyglue::slice(nb::none(), nb::none()), pyglue::integer(position))];
    table.attr("isetitem")(pyglue::integer(position), milliseconds(column, numpy_type));
}

/// The table with its dates as epoch milliseconds. pandas writes them so by default, but its newest
/// version warns that it will write texts one day, also when it is asked for epochs; an index of
/// dates, which is not written at all, is enough for the warning.
nb::object with_epoch_dates(const nb::object& wire) {
    if (!pyglue::is_instance(wire, global("pd").attr("DataFrame"))) {
        return wire;
    }
    const nb::object table = wire.attr("reset_index")(nb::arg("drop") = true);
    Py_ssize_t position = 0;
    pyglue::for_each(table.attr("dtypes"), [&](const nb::object& dtype) {
        const nb::object kind = dtype.attr("kind");
        if (pyglue::is_text_equal(kind, "M")) {
            replace_column(table, position, "datetime64[ms]");
        } else if (pyglue::is_text_equal(kind, "m")) {
            replace_column(table, position, "timedelta64[ms]");
        }
        ++position;
        return true;
    });
    return table;
}

nb::object gzip_b64_trades(const Call& call) {
    const nb::object wire = with_epoch_dates(global("to_wire_trades")(call[1]));
    const nb::object json = wire.attr("to_json")(nb::arg("orient") = text("records"));
    const nb::object packed = global("gzip").attr("compress")(json.attr("encode")(text("utf-8")));
    return global("base64").attr("b64encode")(packed).attr("decode")(text("utf-8"));
}

nb::object timestamp_or_none(nb::handle date) {
    return pyglue::is_true(date) ? date.attr("timestamp")() : nb::none();
}

nb::object to_report_dict(const Call& call) {
    const nb::handle self = call.self();
    const nb::object snapshot_is_ready = imported("corvex.data.readiness", "snapshot_is_ready");
    const nb::object data = global("corvex").attr("data");
    const nb::object next_expiry = data.attr("next_future_expiry")();
    const nb::object tradable_time = data.attr("suggested_tradable_time")(self.attr("market"));
    nb::object trades = self.attr("trades");
    if (!call[1].is_none()) {
        trades = trades.attr("tail")(call[1]);
    }
    const nb::object readiness = pyglue::attribute_or(self, "data_readiness", nb::none());
    const nb::object daily = self.attr("daily_creturn");
    nb::dict record;
    record["schema"] = global("REPORT_SCHEMA_VERSION");
    record["timestamps"] = daily.attr("index").attr("astype")(global("str")).attr("to_list")();
    record["strategy"] = daily.attr("values").attr("tolist")();
    record["benchmark"] = self.attr("daily_benchmark").attr("values").attr("tolist")();
    record["metrics"] = self.attr("get_metrics")();
    record["trades"] = self.attr("_gzip_b64_trades")(trades);
    record["nextFutureExpiry"] = timestamp_or_none(next_expiry);
    record["suggestedTradableTime"] = timestamp_or_none(tradable_time);
    record["isTradable"] = snapshot_is_ready(readiness);
    record["dataReadiness"] = readiness;
    record["plannedRebalanceDate"] = global("_safe_iso_datetime")(
        date_or_none(pyglue::attribute_or(self, "planned_rebalance_date", nb::none())));
    return record;
}

nb::object to_payload_dict(const Call& call) {
    const nb::handle self = call.self();
    const nb::object execution =
        pyglue::attribute_or(self, "position_schedulers", self.attr("execution"));
    nb::dict record;
    record["schema"] = global("REPORT_PAYLOAD_SCHEMA_VERSION");
    record["report"] = self.attr("to_report_dict")(nb::arg("trades_limit") = call[1]);
    record["execution"] = global("ReportExecution").attr("to_dict_collection")(execution);
    record["holdings"] = self.attr("to_holdings_dict")();
    return record;
}

nb::object to_payload(const Call& call) {
    return call.self().attr("to_payload_dict")(nb::arg("trades_limit") = call[1]);
}

nb::object to_holdings_dict(const Call& call) {
    const nb::object info = call.self().attr("position_info2")();
    nb::object holdings;
    if (PyDict_Check(info.ptr())) {
        holdings = global("dict")(info);
    } else {
        holdings = nb::dict();
        holdings["positions"] = nb::list();
        holdings["positionConfig"] = nb::dict();
    }
    holdings["schema"] = global("REPORT_HOLDINGS_SCHEMA_VERSION");
    return holdings;
}

nb::object to_json(const Call& call) { return call.self().attr("to_report_dict")(); }

nb::object to_json046(const Call& call) {
    const nb::handle self = call.self();
    nb::dict record;
    record["metrics"] = self.attr("get_metrics")();
    record["trades"] = self.attr("_gzip_b64_trades")(
        self.attr("trades").attr("tail")(pyglue::integer(kDefaultTradesLimit)));
    return record;
}

bool has(nb::handle payload, const char* key) {
    return PyDict_Contains(payload.ptr(), text(key).ptr()) == 1;
}

bool is_bare_report(nb::handle payload) {
    constexpr std::array<const char*, 4> kReportKeys{"timestamps", "strategy", "metrics", "trades"};
    return std::ranges::all_of(kReportKeys, [&](const char* key) { return has(payload, key); });
}

nb::object from_payload_dict(const Call& call) {
    nb::object payload = nb::borrow<nb::object>(call[0]);
    if (!PyDict_Check(payload.ptr())) {
        pyglue::raise(PyExc_ValueError, pyglue::concat({text("payload should be dict, got "),
                                                        pyglue::formatted(payload.type())}));
    }
    if (has(payload, "payload_v1") && PyDict_Check(nb::object(payload["payload_v1"]).ptr())) {
        payload = payload["payload_v1"];
    }
    const nb::object get = payload.attr("get");
    nb::object report = get(text("report"));
    if (report.is_none() && is_bare_report(payload)) {
        report = std::move(payload);
    }
    nb::dict envelope;
    envelope["schema"] = get(text("schema"));
    envelope["report"] = report;
    envelope["execution"] = get(text("execution"));
    envelope["holdings"] = get(text("holdings"));
    return envelope;
}

nb::object from_payload(const Call& call) {
    return global("Report").attr("from_payload_dict")(call[0]);
}

constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kTrades[] = {{"self"}, {"trades"}};
constexpr Parameter kAllTrades[] = {{"self"}, {"trades_limit", nullptr}};
constexpr Parameter kLastTrades[] = {{"self"}, {"trades_limit", kDefaultTradesLimit}};
constexpr Parameter kPayload[] = {{"payload"}};

const FunctionSpec kMethods[] = {
    {"_gzip_b64_trades", kTrades, gzip_b64_trades,
     "Trades as text: base64 of gzipped JSON, an array of objects under their wire names."},
    {"to_report_dict", kAllTrades, to_report_dict,
     "The report as a dictionary, schema \"report.v1\".\n\nParameters\n----------\n"
     "trades_limit : int, optional\n    Keep the last trades only; all when not given."},
    {"to_payload_dict", kLastTrades, to_payload_dict,
     "Report, execution and holdings in one dictionary, schema \"report.payload.v1\".\n\n"
     "Parameters\n----------\ntrades_limit : int or None, default 500\n"
     "    How many of the last trades it carries; None: all."},
    {"to_payload", kLastTrades, to_payload, "The same as `to_payload_dict`."},
    {"to_holdings_dict", kSelf, to_holdings_dict,
     "What `position_info2` gives, as a dictionary of schema \"report.holdings.v1\"."},
    {"to_json", kSelf, to_json, "`to_report_dict()` with every trade: a dictionary, not a text."},
    {"_to_json046", kSelf, to_json046,
     "Metrics and the last 500 trades, as older services expect them."},
    {"from_payload_dict", kPayload, from_payload_dict,
     "The four parts of a stored payload: `schema`, `report`, `execution` and `holdings`, None "
     "where one\n"
     "is missing. An older envelope and a bare report dictionary are read too.\n\n"
     "Raises ValueError for anything but a dict.",
     pyglue::Binding::kStaticMethod},
    {"from_payload", kPayload, from_payload, "The same as `from_payload_dict`.",
     pyglue::Binding::kStaticMethod},
};

} // namespace

std::span<const FunctionSpec> payload_methods() { return kMethods; }

} // namespace corvex::report
