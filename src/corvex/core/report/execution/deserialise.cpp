#include "corvex/core/report/execution/deserialise.hpp"

#include "corvex/core/report/common/actions.hpp"
#include "corvex/core/report/common/asset_label.hpp"
#include "corvex/core/report/common/resample.hpp"
#include "corvex/core/report/common/signal_dates.hpp"
#include "corvex/core/report/common/stored_dates.hpp"
#include "corvex/core/report/module_globals.hpp"

#include <cmath>
#include <limits>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

/// Where the two layouts keep the same setting.
struct Layout {
    const char* settings;
    const char* stop_loss;
    const char* take_profit;
    const char* trail_stop;
};

constexpr Layout kExecutionLayout{"config", "stopLoss", "takeProfit", "trailStop"};
constexpr Layout kLegacyLayout{"positionConfig", "sl", "tp", "ts"};

void require_dict(nb::handle payload) {
    if (!PyDict_Check(payload.ptr())) {
        pyglue::raise(PyExc_ValueError, pyglue::concat({text("payload should be dict, got "),
                                                        pyglue::formatted(payload.type())}));
    }
}

/// A member of a dictionary, an empty handle where it is absent or null.
nb::object member(nb::handle record, const char* key) {
    const nb::object value = record.attr("get")(text(key));
    return value.is_none() ? nb::object() : value;
}

bool has(nb::handle record, const char* key) {
    return PyDict_Contains(record.ptr(), text(key).ptr()) == 1;
}

nb::object or_none(const nb::object& value) { return value.is_valid() ? value : nb::none(); }

/// A number, `missing` where there is none. Texts are refused: "0.5" is a fault of the writer.
double number_member(nb::handle record, const char* key, double missing) {
    const nb::object value = member(record, key);
    if (!value.is_valid()) {
        return missing;
    }
    if (!PyFloat_Check(value.ptr()) && !PyLong_Check(value.ptr())) {
        raise_unreadable(key, "a number", value);
    }
    const double number = PyFloat_AsDouble(value.ptr());
    if (number == -1.0 && PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        raise_unreadable(key, "a number that a float can hold", value);
    }
    return number;
}

nb::object first_text(nb::handle record, std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        if (const nb::object value = member(record, key); value.is_valid()) {
            if (!pyglue::is_text(value) && !PyLong_Check(value.ptr())) {
                raise_unreadable(key, "a text", value);
            }
            return pyglue::to_text(value);
        }
    }
    return text("");
}

/// The series of a record, filled asset by asset. A later record of an asset replaces an earlier
/// one, unless it only tells of a past exit.
class Holdings {
  public:
    void add(nb::handle position, nb::handle parse_action) {
        if (!PyDict_Check(position.ptr())) {
            raise_unreadable("a position", "a dict", position);
        }
        const nb::object label = join_label(first_text(position, {"assetId", "asset_id"}),
                                            first_text(position, {"assetName", "asset_name"}));
        const nb::object action = parse_action(or_none(member(position, "action")));
        const bool known = PyDict_Contains(weights_.ptr(), label.ptr()) == 1;
        if (known && is_past_exit(action)) {
            return;
        }
        weights_[label] = number_member(position, "currentWeight", 0.0);
        next_weights_[label] = number_member(position, "nextWeight", 0.0);
        actions_[label] = action;
    }

    [[nodiscard]] nb::object weights() const { return series(weights_, "float64"); }
    [[nodiscard]] nb::object next_weights() const { return series(next_weights_, "float64"); }
    [[nodiscard]] nb::object actions() const { return series(actions_, "object"); }

  private:
    static nb::object series(const nb::dict& values, const char* dtype) {
        return global("pd").attr("Series")(values, nb::arg("dtype") = text(dtype));
    }

    nb::dict weights_;
    nb::dict next_weights_;
    nb::dict actions_;
};

Holdings read_positions(nb::handle cls, nb::handle payload) {
    Holdings holdings;
    const nb::object positions = member(payload, "positions");
    if (!positions.is_valid()) {
        return holdings;
    }
    if (!PyList_Check(positions.ptr()) && !PyTuple_Check(positions.ptr())) {
        raise_unreadable("positions", "a list", positions);
    }
    const nb::object parse_action = cls.attr("_parse_action_reason");
    pyglue::for_each(positions, [&](const nb::object& position) {
        holdings.add(position, parse_action);
        return true;
    });
    return holdings;
}

/// The signal date: of the newer key, else of the one for seconds; the rebalance date serves only
/// where neither key is there.
nb::object read_signal_date(nb::handle config, const char* signal, const char* seconds,
                            const char* rebalance) {
    for (const char* key : {signal, seconds}) {
        if (const nb::object stored = member(config, key); stored.is_valid()) {
            return read_date(key, stored);
        }
    }
    if (!has(config, signal) && !has(config, seconds)) {
        if (const nb::object stored = member(config, rebalance); stored.is_valid()) {
            return read_date(rebalance, stored);
        }
    }
    return nb::none();
}

/// What `work` gives, or `fallback()` where it fails.
nb::object attempted(const auto& work, const auto& fallback) {
    try {
        return work();
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_Exception)) {
            throw;
        }
        return fallback();
    }
}

/// The market by its name, with the bars of the one that was written: they decide when a rebalance
/// is due.
nb::object read_market(nb::handle config) {
    const nb::object market = attempted(
        [&] { return nb::object(global("get_market_by_name")(or_none(member(config, "market")))); },
        [] { return nb::object(global("TWMarket")()); });
    const nb::object freq = or_none(member(config, "dataFreq"));
    if (!pyglue::is_text(freq) || !nb::hasattr(market, "with_freq")) {
        return market;
    }
    return attempted(
        [&] {
            return pyglue::equals(market.attr("get_freq")(), freq)
                       ? market
                       : nb::object(market.attr("with_freq")(freq));
        },
        [&] { return market; });
}

nb::object read_optional_date(nb::handle config, const char* key) {
    const nb::object stored = member(config, key);
    if (!stored.is_valid()) {
        return nb::none();
    }
    if (!pyglue::is_text(stored)) {
        return read_date(key, stored)
            .attr("tz_localize")(text("UTC"))
            .attr("to_pydatetime")(nb::arg("warn") = false);
    }
    return global("_parse_iso_datetime")(stored);
}

nb::object read_next_trading_date(nb::handle config) {
    const nb::object date = read_optional_date(config, "scheduled");
    return date.is_none()
               ? nb::object(global("datetime").attr("datetime").attr("now")().attr("isoformat")())
               : date;
}

/// A limit that is not there is no limit.
nb::object read_limit(nb::handle config, const char* key) {
    return pyglue::number(number_member(config, key, std::numeric_limits<double>::infinity()));
}

nb::object read_stop_loss(nb::handle config, const char* key) {
    const double stop = number_member(config, key, std::numeric_limits<double>::quiet_NaN());
    return std::isnan(stop) ? nb::none() : pyglue::number(stop);
}

nb::object read_record(nb::handle cls, nb::handle payload, const Layout& layout) {
    const nb::object stored = member(payload, layout.settings);
    const nb::object config = stored.is_valid() ? stored : nb::object(nb::dict());
    if (!PyDict_Check(config.ptr())) {
        raise_unreadable(layout.settings, "a dict", config);
    }
    const Holdings holdings = read_positions(cls, payload);
    nb::dict fields;
    fields["weights"] = holdings.weights();
    fields["next_weights"] = holdings.next_weights();
    fields["actions"] = holdings.actions();
    fields["resample"] = cls.attr("_deserialize_resample")(or_none(member(config, "resample")));
    fields["next_trading_date"] = read_next_trading_date(config);
    fields["trade_at"] = or_none(member(config, "entryTradePrice"));
    fields["market"] = read_market(config);
    fields["stop_loss"] = read_stop_loss(config, layout.stop_loss);
    fields["take_profit"] = read_limit(config, layout.take_profit);
    fields["trail_stop"] = read_limit(config, layout.trail_stop);
    fields["total_weight"] = number_member(config, "totalWeight", 1.0);
    fields["data_readiness"] = or_none(member(config, "dataReadiness"));
    fields["planned_rebalance_date"] = read_optional_date(config, "plannedRebalanceDate");
    const nb::object execution = cls(**fields);
    // The constructor names the series itself: the dates go back on afterwards.
    set_signal_date(
        execution.attr("weights"),
        read_signal_date(config, "currentSignalAt", "currentWeightsAt", "currentRebalanceDate"));
    set_signal_date(execution.attr("next_weights"),
                    read_signal_date(config, "nextSignalAt", "nextWeightsAt", "nextRebalanceDate"));
    return execution;
}

/// Whether a value bears the mark of a written record: its schema tag, or its list of positions.
bool is_marked(nb::handle value) {
    if (!PyDict_Check(value.ptr())) {
        return false;
    }
    const nb::object positions = value.attr("get")(text("positions"));
    return pyglue::is_text(value.attr("get")(text("schema"))) || PyList_Check(positions.ptr()) ||
           PyTuple_Check(positions.ptr());
}

/// Whether a dictionary is one record, not a collection of named ones: a strategy may be called
/// "config".
bool is_leaf(nb::handle payload) {
    if (is_marked(payload)) {
        return true;
    }
    for (const char* key : {"positionConfig", "config"}) {
        if (has(payload, key) && !is_marked(payload.attr("get")(text(key)))) {
            return true;
        }
    }
    return false;
}

nb::object from_dict(const Call& call) {
    const nb::handle payload = call[1];
    require_dict(payload);
    if (has(payload, "positionConfig")) {
        return call.self().attr("_from_legacy_position_leaf")(payload);
    }
    return read_record(call.self(), payload, kExecutionLayout);
}

nb::object from_legacy_leaf(const Call& call) {
    require_dict(call[1]);
    return read_record(call.self(), call[1], kLegacyLayout);
}

/// One record, or a dictionary of named ones, each read by a class method.
nb::object read_collection(nb::handle cls, nb::handle payload, const char* reader) {
    require_dict(payload);
    if (is_leaf(payload)) {
        return cls.attr(reader)(payload);
    }
    nb::dict records;
    pyglue::for_each(payload.attr("items")(), [&](const nb::object& item) {
        records[nb::object(item[0])] = cls.attr(reader)(item[1]);
        return true;
    });
    return records;
}

nb::object from_dict_collection(const Call& call) {
    return read_collection(call.self(), call[1], "from_dict");
}

nb::object from_json_leaf(const Call& call) { return call.self().attr("from_dict")(call[1]); }

nb::object from_json(const Call& call) {
    return read_collection(call.self(), call[1], "_from_json_leaf");
}

nb::object deserialize_resample(const Call& call) { return read_resample(call[0]); }

constexpr Parameter kPayload[] = {{"cls"}, {"payload"}};
constexpr Parameter kLegacy[] = {{"cls"}, {"pdata"}};
constexpr Parameter kResample[] = {{"resample"}};

const FunctionSpec kMethods[] = {
    {"from_dict", kPayload, from_dict,
     "A record from its dictionary (\"report.execution.v1\") or from one in the position-info-2 "
     "layout.\n\n"
     "Raises ValueError for what is neither.",
     pyglue::Binding::kClassMethod},
    {"_from_legacy_position_leaf", kLegacy, from_legacy_leaf,
     "A record from a dictionary in the position-info-2 layout.", pyglue::Binding::kClassMethod},
    {"from_dict_collection", kPayload, from_dict_collection,
     "One record, or a dictionary of named ones, from what `to_dict_collection` gives.",
     pyglue::Binding::kClassMethod},
    {"_from_json_leaf", kPayload, from_json_leaf, "One record from its JSON-decoded form.",
     pyglue::Binding::kClassMethod},
    {"from_json", kPayload, from_json,
     "One record, or a dictionary of named ones, from their JSON-decoded form.",
     pyglue::Binding::kClassMethod},
    {"_deserialize_resample", kResample, deserialize_resample,
     "A rebalance rule from its stored form; dates come back as naive Timestamps, moments "
     "as\nTimestamps in UTC.",
     pyglue::Binding::kStaticMethod},
};

} // namespace

std::span<const FunctionSpec> deserialise_methods() { return kMethods; }

} // namespace corvex::report
