#include "corvex/core/report/positions/position_info.hpp"

#include "corvex/core/report/common/actions.hpp"
#include "corvex/core/report/common/asset_label.hpp"
#include "corvex/core/report/common/resample.hpp"
#include "corvex/core/report/common/signal_dates.hpp"
#include "corvex/core/report/data_context.hpp"
#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/positions/classification.hpp"
#include "corvex/core/report/positions/position_config.hpp"
#include "corvex/core/report/positions/position_prices.hpp"

#include <string_view>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::concat;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

/// A trade date as text: the bare date at midnight, "" where there is none.
nb::object date_text(nb::handle date) {
    if (!is_date(date)) {
        return text("");
    }
    const bool midnight = pyglue::equals(date.attr("time")(), global("datetime").attr("time")());
    return midnight ? date.attr("date")().attr("isoformat")() : date.attr("isoformat")();
}

nb::object date_texts(nb::handle dates) {
    nb::list texts;
    pyglue::for_each(dates, [&](const nb::object& date) {
        texts.append(date_text(date));
        return true;
    });
    return texts;
}

/// The reason of an exit, told with its type: "exit" or "exit_sl".
nb::object exit_action(nb::handle report, const nb::object& type, nb::handle label,
                       nb::handle profit) {
    const nb::object actions = pyglue::attribute_or(report, "actions", nb::none());
    nb::object reason = text("_");
    if (!actions.is_none()) {
        reason = actions.attr("get")(label, reason);
    }
    const nb::object counted = pyglue::is_true(global("pd").attr("isna")(profit))
                                   ? pyglue::integer(0)
                                   : nb::borrow<nb::object>(profit);
    reason = report.attr("_normalize_position_exit_reason")(reason, counted);
    // Any other action speaks of the asset's next step, not of why this trade was left.
    return is_stop(reason) ? concat({type, text("_"), reason}) : type;
}

/// The action of one current trade. One that fits no type is reported and shown as "hold".
nb::object trade_action(nb::handle report, nb::handle label, nb::handle trade,
                        nb::handle last_date) {
    const bool entered = is_date(trade[text("entry_date")]);
    const bool left = is_date(trade[text("exit_date")]);
    const char* const type = trade_type(trade[text("entry_sig_date")], trade[text("exit_sig_date")],
                                        entered, left, last_date);
    if (type == nullptr) {
        global("logger").attr("warning")(concat(
            {text("There is a strange type for stock "), pyglue::to_text(label), text(" ")}));
        return text("hold");
    }
    return std::string_view(type).starts_with("exit")
               ? exit_action(report, text(type), label, trade[text("return")])
               : text(type);
}

nb::list trade_actions(nb::handle report, nb::handle current) {
    nb::list actions;
    const nb::object last_date = report.attr("creturn").attr("index")[-1];
    pyglue::for_each(current.attr("iterrows")(), [&](const nb::object& row) {
        actions.append(trade_action(report, nb::object(row[0]), nb::object(row[1]), last_date));
        return true;
    });
    return actions;
}

/// Industries by asset label or id. Not every market knows them.
nb::object industries(nb::handle market) {
    const nb::object get_industry = pyglue::attribute_or(market, "get_industry", nb::none());
    const nb::object known = get_industry.is_none() ? nb::none() : nb::object(get_industry());
    return known.is_none() ? nb::object(nb::dict()) : known;
}

nb::object industry_list(nb::handle market, nb::handle labels) {
    const nb::object known = industries(market);
    const nb::object nothing = text("");
    nb::list names;
    pyglue::for_each(labels, [&](const nb::object& label) {
        nb::object name = known.attr("get")(label, nothing);
        if (!pyglue::is_text(name) || pyglue::length(name) == 0) {
            name = known.attr("get")(split_label(label).first, nothing);
        }
        names.append(pyglue::is_text(name) ? name : nothing);
        return true;
    });
    return names;
}

nb::object positions_of(nb::handle report, nb::handle current) {
    nb::list asset_ids;
    nb::list asset_names;
    pyglue::for_each(current.attr("index"), [&](const nb::object& label) {
        const auto [asset_id, asset_name] = split_label(label);
        asset_ids.append(asset_id);
        asset_names.append(asset_name);
        return true;
    });
    const nb::object market = report.attr("market");
    const PriceSource prices(market, report.attr("trade_at"), current.attr("index"));
    const auto column = [&](const char* name) {
        return nb::object(current[text(name)].attr("tolist")());
    };

    nb::dict table;
    table["assetId"] = asset_ids;
    table["assetName"] = asset_names;
    table["entryDate"] = date_texts(current[text("entry_date")]);
    table["entrySigDate"] = date_texts(current[text("entry_sig_date")]);
    table["exitDate"] = date_texts(current[text("exit_date")]);
    table["exitSigDate"] = date_texts(current[text("exit_sig_date")]);
    table["entryPrice"] = column("trade_price@entry_date");
    table["entryAdjPrice"] = prices.adjusted_on(current[text("entry_date")]);
    table["exitPrice"] = column("trade_price@exit_date");
    table["currentPrice"] = prices.latest();
    table["profit"] = column("return");
    table["currentWeight"] = column("weight");
    table["nextWeight"] = column("next_weights");
    table["action"] = trade_actions(report, current);
    table["industry"] = industry_list(market, current.attr("index"));
    return global("pd").attr("DataFrame")(table).attr("to_dict")(nb::arg("orient") =
                                                                     text("records"));
}

nb::object position_info2_here(const Call& call) {
    const nb::handle self = call.self();
    const nb::object current = pyglue::attribute_or(self, "current_trades", nb::none());
    const bool empty = current.is_none() || pyglue::length(current) == 0;
    nb::dict record;
    record["positions"] = empty ? nb::object(nb::list()) : positions_of(self, current);
    record["positionConfig"] = empty ? short_position_config(self) : full_position_config(self);
    return record;
}

nb::object position_info2(const Call& call) {
    return with_data_record_kept([&] { return nb::object(call.self().attr("_position_info2")()); });
}

nb::object format_resample(const Call& call) {
    return stored_resample(pyglue::attribute_or(call.self(), "resample", nb::none()));
}

constexpr Parameter kSelf[] = {{"self"}};

const FunctionSpec kMethods[] = {
    {"position_info2", kSelf, position_info2,
     "The holdings for live trading: `positions`, one record per current trade (what is held, "
     "entered\n"
     "or left at the next rebalance, at which prices and weights), and `positionConfig`, how the\n"
     "strategy trades."},
    {"_position_info2", kSelf, position_info2_here, "The same, within the data context as it is."},
    {"format_resample", kSelf, format_resample,
     "The rebalance rule in its stored form: None, a frequency text or POSIX seconds."},
};

} // namespace

std::span<const FunctionSpec> position_info_methods() { return kMethods; }

} // namespace corvex::report
