#include "corvex/core/report/execution/serialise.hpp"

#include "corvex/core/report/common/actions.hpp"
#include "corvex/core/report/common/asset_label.hpp"
#include "corvex/core/report/common/plain_number.hpp"
#include "corvex/core/report/common/resample.hpp"
#include "corvex/core/report/common/signal_dates.hpp"
#include "corvex/core/report/common/type_check.hpp"
#include "corvex/core/report/execution/asset_positions.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

/// What a market says of itself, or a fallback where the method is absent, fails or says nothing.
nb::object market_text(nb::handle market, const char* method, const char* fallback) {
    try {
        const nb::object said = market.attr(method)();
        return pyglue::is_true(said) ? said : text(fallback);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_Exception)) {
            throw;
        }
        return text(fallback);
    }
}

nb::object iso(nb::handle date) { return global("_safe_iso_datetime")(date); }

nb::object epoch(nb::handle date) { return global("_safe_utc_timestamp")(date); }

nb::object trade_price(nb::handle execution) {
    const nb::object price = execution.attr("trade_at");
    return pyglue::is_true(price) ? price : text("close");
}

nb::list position_records(nb::handle execution) {
    nb::list records;
    for_each_asset(execution, [&](const AssetPosition& asset) {
        const auto [asset_id, asset_name] = split_label(asset.label);
        nb::dict record;
        record["assetId"] = asset_id;
        record["assetName"] = asset_name;
        record["currentWeight"] = asset.current_weight;
        record["nextWeight"] = asset.next_weight;
        record["action"] = asset.action;
        records.append(record);
    });
    return records;
}

nb::dict settings_record(nb::handle execution) {
    const nb::object market = execution.attr("market");
    const nb::object current_date = signal_date(execution.attr("weights"));
    const nb::object next_date = signal_date(execution.attr("next_weights"));
    nb::dict config;
    config["market"] = market_text(market, "get_name", "tw_stock");
    config["dataFreq"] = market_text(market, "get_freq", "D");
    config["scheduled"] = iso(date_or_none(execution.attr("next_trading_date")));
    config["entryTradePrice"] = trade_price(execution);
    config["exitTradePrice"] = config["entryTradePrice"];
    config["resample"] = execution.attr("_serialize_resample")(execution.attr("resample"));
    config["currentWeightsAt"] = epoch(current_date);
    config["nextWeightsAt"] = epoch(next_date);
    config["stopLoss"] = plain_number(execution.attr("stop_loss"));
    config["takeProfit"] = plain_number(execution.attr("take_profit"));
    config["trailStop"] = plain_number(execution.attr("trail_stop"));
    config["totalWeight"] = execution.attr("total_weight");
    config["currentSignalAt"] = iso(current_date);
    config["nextSignalAt"] = iso(next_date);
    config["rebalanceTiming"] = execution.attr("rebalance_timing")();
    config["dataReadiness"] = execution.attr("data_readiness");
    config["plannedRebalanceDate"] = iso(date_or_none(execution.attr("planned_rebalance_date")));
    return config;
}

nb::object to_dict(const Call& call) {
    nb::dict record;
    record["schema"] = call.self().attr("SCHEMA_VERSION");
    record["positions"] = position_records(call.self());
    record["config"] = settings_record(call.self());
    return record;
}

nb::list legacy_positions(nb::handle execution) {
    nb::list records;
    for_each_asset(execution, [&](const AssetPosition& asset) {
        const auto [asset_id, asset_name] = split_label(asset.label);
        nb::dict record;
        record["assetId"] = asset_id;
        record["assetName"] = asset_name;
        // A record of its own knows no trades: dates and prices stay empty.
        for (const char* key : {"entryDate", "entrySigDate", "exitDate", "exitSigDate"}) {
            record[key] = text("");
        }
        for (const char* key :
             {"entryPrice", "entryAdjPrice", "exitPrice", "currentPrice", "profit"}) {
            record[key] = nb::none();
        }
        record["currentWeight"] = asset.current_weight;
        record["nextWeight"] = asset.next_weight;
        record["action"] = position_action(asset.action);
        record["industry"] = text("");
        records.append(record);
    });
    return records;
}

nb::object to_legacy_position_info2(const Call& call) {
    const nb::handle self = call.self();
    const nb::dict settings = settings_record(self);
    const nb::object freq = settings["dataFreq"];
    nb::dict config;
    for (const char* key : {"rebalanceTiming", "dataReadiness", "plannedRebalanceDate",
                            "currentSignalAt", "nextSignalAt", "scheduled"}) {
        config[key] = settings[key];
    }
    config["isDailyStrategy"] =
        nb::bool_(pyglue::is_text_equal(freq, "D") || pyglue::is_text_equal(freq, "1D"));
    config["market"] = settings["market"];
    config["sl"] = settings["stopLoss"];
    config["tp"] = settings["takeProfit"];
    config["ts"] = settings["trailStop"];
    for (const char* key : {"resample", "entryTradePrice", "exitTradePrice", "dataFreq"}) {
        config[key] = settings[key];
    }
    config["currentRebalanceDate"] = settings["currentWeightsAt"];
    config["nextRebalanceDate"] = settings["nextWeightsAt"];
    config["totalWeight"] = settings["totalWeight"];
    nb::dict record;
    record["positions"] = legacy_positions(self);
    record["positionConfig"] = config;
    return record;
}

/// One record by its method, or a dictionary of named ones.
nb::object written(nb::handle execution, const char* method) {
    if (!PyDict_Check(execution.ptr())) {
        require_execution(execution, text("execution"), "ReportExecution or dict");
        return execution.attr(method)();
    }
    nb::dict records;
    pyglue::for_each(execution.attr("items")(), [&](const nb::object& item) {
        const nb::object key = item[0];
        const nb::object value = item[1];
        require_execution(value, execution_item(key), "ReportExecution");
        records[key] = value.attr(method)();
        return true;
    });
    return records;
}

nb::object to_dict_collection(const Call& call) { return written(call[0], "to_dict"); }

nb::object to_legacy_collection(const Call& call) {
    return written(call[0], "to_legacy_position_info2");
}

nb::object serialize_resample(const Call& call) { return stored_resample(call[0]); }

nb::object parse_action_reason(const Call& call) { return parsed_action(call[0]); }

constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kExecution[] = {{"execution"}};
constexpr Parameter kResample[] = {{"resample"}};
constexpr Parameter kAction[] = {{"action"}};

const FunctionSpec kMethods[] = {
    {"to_dict", kSelf, to_dict,
     "The record as a dictionary, schema \"report.execution.v1\": keys `schema`, `positions` (one "
     "record\n"
     "per asset) and `config`. Every value passes json.dumps."},
    {"to_dict_collection", kExecution, to_dict_collection,
     "`to_dict` of one record, or of each of a dictionary of named ones.\n\n"
     "Raises ValueError for anything that is no ReportExecution.",
     pyglue::Binding::kStaticMethod},
    {"to_legacy_position_info2", kSelf, to_legacy_position_info2,
     "The record in the position-info-2 layout, without what only trades know: keys `positions` "
     "and\n"
     "`positionConfig`."},
    {"to_legacy_position_info2_collection", kExecution, to_legacy_collection,
     "`to_legacy_position_info2` of one record, or of each of a dictionary of named ones.",
     pyglue::Binding::kStaticMethod},
    {"_serialize_resample", kResample, serialize_resample,
     "A rebalance rule in its stored form: a text as it is, dates as POSIX seconds.",
     pyglue::Binding::kStaticMethod},
    {"_parse_action_reason", kAction, parse_action_reason,
     "The action in memory for a stored one; \"_\" where nothing is stored.",
     pyglue::Binding::kStaticMethod},
};

} // namespace

std::span<const FunctionSpec> serialise_methods() { return kMethods; }

} // namespace corvex::report
