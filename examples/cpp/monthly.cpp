// Holds in equal parts what stands above its price of a year ago, month by month; the rest is cash.
#include "corvex/engine/calendar/schedule.hpp"
#include "corvex/engine/portfolio/simulator.hpp"
#include "corvex/engine/statistics/figure_list.hpp"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

using namespace corvex::engine;

int main(int argc, char** argv) try {
    // Each line has an ISO date and a price for each asset; NaN stands for a missing one.
    std::ifstream file(argc > 1 ? argv[1] : "prices.csv");
    std::vector<Nanos> dates;
    std::vector<double> close;
    std::string line, field;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::istringstream fields(line + ',');
        std::getline(fields, field, ',');
        const int year = std::stoi(field), month = std::stoi(field.substr(5));
        dates.push_back(start_of_day(day_from_civil(year, month, std::stoi(field.substr(8)))));
        while (std::getline(fields, field, ',')) {
            close.push_back(field.empty() ? std::nan("") : std::stod(field));
        }
    }
    if (dates.size() <= 252)
        throw std::runtime_error("more than a year of prices is needed");
    const std::size_t assets = close.size() / dates.size();

    // A plan is a row of weights for each session with a signal; it fills at the next session.
    std::vector<double> targets;
    std::vector<std::int64_t> signals;
    for (const std::int64_t row : period_last_sessions(dates, parse_period_rule("ME"))) {
        if (row < 252)
            continue;
        signals.push_back(row);
        for (std::size_t i = 0; i < assets; ++i) {
            const std::size_t now = static_cast<std::size_t>(row) * assets + i;
            const bool rose = close[now] > close[now - 252 * assets];
            targets.push_back(rose ? 1.0 / static_cast<double>(assets) : 0.0);
        }
    }
    const auto first = static_cast<std::size_t>(signals.front());
    const PriceSet prices{{.close = {close, assets}}};
    const SimulationResult result = simulate({.prices = prices,
                                              .plan = {targets, signals, first},
                                              .options = {.costs = {.fee = 0.001}}});
    const auto record = performance_record(result.equity, std::span(dates).subspan(first), 0.02);
    for (std::size_t i = 0; i < kFigureCount; ++i) {
        std::printf("%-22s %13.6f\n", figure_names()[i].data(), figure_values(record)[i]);
    }
} catch (const std::exception& error) {
    return std::fprintf(stderr, "monthly: %s\n", error.what()), 1;
}
