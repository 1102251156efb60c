#include "corvex/core/report/constants.hpp"

#include "corvex/core/report/module_globals.hpp"

#include <array>
#include <utility>

namespace corvex::report {

namespace {

/// Statistics names and the names under which the same figures are published.
constexpr std::array<std::pair<const char*, const char*>, 9> kMetricAliases{{
    {"cagr", "annualReturn"},
    {"max_drawdown", "maxDrawdown"},
    {"avg_drawdown", "avgDrawdown"},
    {"avg_drawdown_days", "avgDrawdownDays"},
    {"daily_sharpe", "sharpeRatio"},
    {"daily_sortino", "sortinoRatio"},
    {"calmar", "calmarRatio"},
    {"daily_vol", "volatility"},
    {"twelve_month_win_perc", "m12WinRate"},
}};

/// A reserved domain: whoever runs the services sets the host at deployment.
constexpr const char* kDefaultLegacyHost = "https://cloud.corvex.example";

/// The services are reached by https; plain http is for one that runs on this machine.
constexpr const char* kAcceptedHost =
    R"(https://[^/\s]\S*|http://(localhost|127(\.\d+){3}|\[::1\])(:\d+)?(/\S*)?)";

/// An address that cannot be used must not keep anybody from a backtest: it is told and left out.
nb::object legacy_host() {
    const nb::object given = global("os")
                                 .attr("environ")
                                 .attr("get")(pyglue::text("CORVEX_LEGACY_URL"), pyglue::text(""))
                                 .attr("strip")();
    const nb::object accepted = global("re").attr("fullmatch")(pyglue::text(kAcceptedHost), given,
                                                               global("re").attr("IGNORECASE"));
    if (!accepted.is_none()) {
        return given.attr("rstrip")(pyglue::text("/"));
    }
    if (pyglue::length(given) > 0) {
        pyglue::import_module("warnings")
            .attr("warn")(pyglue::text("CORVEX_LEGACY_URL is not used: it must be an address that "
                                       "begins with https:// (http:// for this machine only)"));
    }
    return pyglue::text(kDefaultLegacyHost);
}

nb::object legacy_endpoint(nb::handle host, const char* path) {
    return pyglue::concat({nb::borrow<nb::object>(host), pyglue::text(path)});
}

} // namespace

void bind_constants(nb::dict& globals) {
    globals["server_port"] = nb::none();
    globals["REPORT_SCHEMA_VERSION"] = pyglue::text("report.v1");
    globals["REPORT_PAYLOAD_SCHEMA_VERSION"] = pyglue::text("report.payload.v1");
    globals["REPORT_EXECUTION_SCHEMA_VERSION"] = pyglue::text(kExecutionSchemaVersion);
    globals["REPORT_HOLDINGS_SCHEMA_VERSION"] = pyglue::text("report.holdings.v1");
    const nb::object host = legacy_host();
    globals["LEGACY_AUTH_GET_STRATEGY_URL"] = legacy_endpoint(host, "/auth_get_strategy");
    globals["LEGACY_WRITE_DATABASE_URL"] = legacy_endpoint(host, "/write_database");
    nb::dict aliases;
    for (const auto& [statistic, metric] : kMetricAliases) {
        aliases[statistic] = pyglue::text(metric);
    }
    globals["STATS_METRIC_ALIASES"] = aliases;
    globals["_force_legacy_upload"] = nb::borrow<nb::object>(Py_False);
}

} // namespace corvex::report
