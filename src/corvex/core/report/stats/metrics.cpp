#include "corvex/core/report/stats/metrics.hpp"

#include "corvex/core/report/data_context.hpp"

#include <array>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

/// One figure: the key it is published under, the method of `Metrics` that gives it, and whether
/// that method is called with the risk-free rate.
struct Figure {
    const char* key;
    const char* method;
    bool takes_rate = false;
};

struct Section {
    const char* key;
    std::span<const Figure> figures;
};

constexpr Figure kBacktest[] = {{"startDate", "start_date"},
                                {"endDate", "end_date"},
                                {"version", "version"},
                                {"feeRatio", "fee_ratio"},
                                {"taxRatio", "tax_ratio"},
                                {"tradeAt", "trade_at"},
                                {"market", "market"},
                                {"freq", "freq"},
                                {"expired", "expired"},
                                {"updateDate", "update_date"},
                                {"nextTradingDate", "next_trading_date"},
                                {"currentRebalanceDate", "current_rebalance_date"},
                                {"nextRebalanceDate", "next_rebalance_date"},
                                {"livePerformanceStart", "live_performance_start"},
                                {"stopLoss", "stop_loss"},
                                {"takeProfit", "take_profit"},
                                {"trailStop", "trail_stop"}};
constexpr Figure kProfitability[] = {{"annualReturn", "annual_return", true},
                                     {"alpha", "alpha"},
                                     {"beta", "beta"},
                                     {"avgNStock", "avg_n_stock"},
                                     {"maxNStock", "max_n_stock"}};
constexpr Figure kRisk[] = {{"maxDrawdown", "max_drawdown", true},
                            {"avgDrawdown", "avg_drawdown", true},
                            {"avgDrawdownDays", "avg_drawdown_days", true},
                            {"valueAtRisk", "value_at_risk"},
                            {"cvalueAtRisk", "cvalue_at_risk"}};
constexpr Figure kRatio[] = {
    {"sharpeRatio", "sharpe_ratio", true}, {"sortinoRatio", "sortino_ratio", true},
    {"calmarRatio", "calmar_ratio", true}, {"volatility", "volatility", true},
    {"profitFactor", "profit_factor"},     {"tailRatio", "tail_ratio"}};
constexpr Figure kWinrate[] = {{"winRate", "win_rate"},
                               {"m12WinRate", "m12_win_rate", true},
                               {"expectancy", "expectancy"},
                               {"mae", "mae"},
                               {"mfe", "mfe"}};
constexpr Figure kLiquidity[] = {{"capacity", "capacity"},
                                 {"disposalStockRatio", "disposal_stock_ratio"},
                                 {"warningStockRatio", "warning_stock_ratio"},
                                 {"fullDeliveryStockRatio", "full_delivery_stock_ratio"},
                                 {"buyHigh", "buy_high"},
                                 {"sellLow", "sell_low"}};

constexpr std::array<Section, 6> kSections{{{"backtest", kBacktest},
                                            {"profitability", kProfitability},
                                            {"risk", kRisk},
                                            {"ratio", kRatio},
                                            {"winrate", kWinrate},
                                            {"liquidity", kLiquidity}}};

nb::object get_metrics(const Call& call) {
    return with_data_record_kept(
        [&] { return nb::object(call.self().attr("_get_metrics")(call[1], call[2])); });
}

nb::dict section_record(const Section& section, nb::handle metrics, nb::handle riskfree_rate) {
    nb::dict record;
    for (const Figure& figure : section.figures) {
        const nb::object method = metrics.attr(figure.method);
        record[figure.key] = figure.takes_rate ? method(riskfree_rate) : method();
    }
    return record;
}

/// A report that was never given trades has no dates to attach anything to.
bool has_trades(nb::handle report) {
    const nb::object trades = report.attr("trades");
    return pyglue::length(trades) != 0 || pyglue::contains(trades.attr("columns"), "entry_date");
}

nb::object get_metrics_here(const Call& call) {
    const nb::handle self = call.self();
    const nb::object metrics = self.attr("metrics");
    const nb::object market_value = self.attr("market").attr("get_market_value")();
    if (pyglue::length(market_value) != 0 && has_trades(self)) {
        nb::list date_columns;
        date_columns.append(text("entry_date"));
        self.attr("add_trade_info")(text("market_value"), market_value, date_columns);
    }
    nb::dict record;
    for (const Section& section : kSections) {
        record[section.key] = section_record(section, metrics, call[2]);
    }
    return record;
}

constexpr Parameter kGetMetrics[] = {{"self"}, {"stats_", nullptr}, {"riskfree_rate", 0.02}};
constexpr Parameter kGetMetricsHere[] = {{"self"}, {"stats_"}, {"riskfree_rate"}};

const FunctionSpec kMethods[] = {
    {"get_metrics", kGetMetrics, get_metrics,
     "Get the metrics of the backtest result.\n\nArgs:\n"
     "    stats_ (dict): The statistics of the backtest. Computed when None.\n"
     "    riskfree_rate (float): The risk-free rate.\n\nReturns:\n    dict: six sections of "
     "figures.\n\n"
     "    backtest:\n        startDate (int): the start date\n        endDate (int): the end date\n"
     "        version (str): the version of the backtest\n        feeRatio (float): the fee rate\n"
     "        taxRatio (float): the tax rate\n        tradeAt (str): the trade timing\n"
     "        market (str): the market\n        freq (str): the frequency\n"
     "        rebalanceDate1: the current rebalance date\n"
     "        rebalanceDate2: the next rebalance date\n\n"
     "    profitability:\n        annualReturn: the annual return\n        alpha: the alpha\n"
     "        beta: the beta\n        avgNStock: the average number of stocks held\n"
     "        maxNStock: the maximum number of stocks held\n\n"
     "    risk:\n        maxDrawdown: the maximum drawdown\n        avgDrawdown: the average "
     "drawdown\n"
     "        avgDrawdownDays: the average days of a drawdown\n        valueAtRisk: the value at "
     "risk\n"
     "        cvalueAtRisk: the conditional value at risk\n\n"
     "    ratio:\n        sharpeRatio: the Sharpe ratio\n        sortinoRatio: the Sortino ratio\n"
     "        calmarRatio: the Calmar ratio\n        volatility: the volatility\n"
     "        profitFactor: the profit factor\n        tailRatio: the tail ratio\n\n"
     "    winrate:\n        winRate: the win rate\n        m12WinRate: the 12-month win rate\n"
     "        expectancy: the expectancy\n        mae: the maximum adverse excursion\n"
     "        mfe: the maximum favourable excursion\n\n"
     "    liquidity:\n        capacity: the capacity\n"
     "        disposalStockRatio: the share of holdings under disposal\n"
     "        warningStockRatio: the share of holdings under warning\n"
     "        fullDeliveryStockRatio: the share of holdings under full delivery\n"
     "        buyHigh: the share bought at the high\n        sellLow: the share sold at the low"},
    {"_get_metrics", kGetMetricsHere, get_metrics_here,
     "The metrics record, read within the data context as it is. `stats_` is not used."},
};

} // namespace

std::span<const FunctionSpec> metrics_methods() { return kMethods; }

} // namespace corvex::report
