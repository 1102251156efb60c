// Simulations of arbitrary tables: every place is inside its table, and sane accounts add up.
#include "corvex/engine/portfolio/simulator.hpp"

#include <stdexcept>

#include "bytes.hpp"

namespace {

using namespace corvex::engine;
using corvex::fuzz::Bytes;
using corvex::fuzz::require;

constexpr double kFractions[] = {0.0,
                                 0.001,
                                 0.1,
                                 0.5,
                                 0.999,
                                 1.0,
                                 -0.1,
                                 2.0,
                                 std::numeric_limits<double>::quiet_NaN(),
                                 std::numeric_limits<double>::infinity()};

/// The tables that an input views.
struct Tables {
    std::vector<double> close, fill, open, high, low, target, position;
    std::vector<std::int64_t> signals;
};

std::vector<double> prices(Bytes& bytes, std::size_t count, bool sane) {
    std::vector<double> values(count);
    std::ranges::generate(values, [&] { return bytes.price(sane); });
    return values;
}

double fraction(Bytes& bytes, bool sane) {
    return kFractions[bytes.below(sane ? 4 : std::size(kFractions))];
}

PriceTables read_prices(Bytes& bytes, Tables& tables, bool sane) {
    const std::size_t assets = 1 + bytes.below(6);
    const std::size_t cells = assets * bytes.below(20);
    for (auto* table : {&tables.close, &tables.fill, &tables.open, &tables.high, &tables.low}) {
        *table = prices(bytes, sane || bytes.below(40) > 0 ? cells : bytes.below(9), sane);
    }
    return {.close = {tables.close, assets},
            .fill_at = static_cast<FillAt>(bytes.below(3)),
            .fill = {tables.fill, assets},
            .open = {tables.open, assets},
            .high = {tables.high, assets},
            .low = {tables.low, assets}};
}

Plan read_plan(Bytes& bytes, Tables& tables, const PriceSet& set, bool sane) {
    const std::size_t sessions = set.sessions();
    tables.signals.resize(bytes.below(6));
    for (std::int64_t& signal : tables.signals) {
        signal = sane ? static_cast<std::int64_t>(bytes.below(sessions + 1)) - 1
                      : static_cast<std::int64_t>(bytes.below(sessions + 4)) - 2;
    }
    if (sane || bytes.flag()) {
        std::ranges::sort(tables.signals);
    }
    tables.target.resize(tables.signals.size() * set.assets());
    for (double& weight : tables.target) {
        const auto parts = static_cast<double>(static_cast<int>(bytes.below(21)) - 10);
        weight = sane || bytes.below(50) > 0 ? parts / (10.0 * static_cast<double>(set.assets()))
                                             : bytes.raw<double>();
    }
    return {tables.target, tables.signals, sane ? 0 : bytes.below(sessions + 2)};
}

Options read_options(Bytes& bytes, bool sane) {
    Options options;
    options.costs = {fraction(bytes, sane) / 10, fraction(bytes, sane) / 10,
                     fraction(bytes, sane) / 10};
    options.stops.loss = bytes.flag() ? 0.1 : fraction(bytes, false);
    options.stops.profit = bytes.flag() ? 0.3 : fraction(bytes, false);
    options.stops.trail = bytes.flag() ? 0.2 : fraction(bytes, false);
    options.stops.touched = bytes.flag();
    options.stops.cooldown = static_cast<std::int64_t>(bytes.below(3));
    return options;
}

Recording read_recording(Bytes& bytes, Tables& tables, const PriceSet& set, const Plan& plan) {
    Recording record{
        .trades = bytes.below(8) > 0, .excursions = bytes.flag(), .fills = bytes.flag()};
    if (bytes.flag() && plan.first_session <= set.sessions()) {
        tables.position.resize((set.sessions() - plan.first_session) * set.assets());
        record.position = tables.position;
    }
    return record;
}

void check_places(const SimulationInput& input, const SimulationResult& result) {
    const auto sessions = static_cast<std::int64_t>(input.prices.sessions());
    require(result.equity.size() == input.prices.sessions() - input.plan.first_session,
            "curve's length");
    for (const auto& trip : result.round_trips) {
        require(trip.asset >= 0 && static_cast<std::size_t>(trip.asset) < input.prices.assets(),
                "a trade of no asset");
        require(trip.entry_session < sessions && trip.exit_session < sessions, "a trade's session");
    }
}

void check_account(const SimulationInput& input, const SimulationResult& result) {
    if (result.equity.empty() || result.ruin_session >= 0) {
        return;
    }
    double worth = result.cash.back();
    double gross = std::abs(worth);
    for (std::size_t asset = 0; asset < input.prices.assets(); ++asset) {
        const double value =
            result.shares[asset] * input.prices.close().at(input.prices.sessions() - 1, asset);
        worth += value;
        gross += std::abs(value);
    }
    require(std::abs(worth - result.equity.back()) <= 1e-9 * (1.0 + gross), "equity of an account");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes{{data, size}};
    const bool sane = bytes.flag();
    Tables tables;
    try {
        const PriceSet set{read_prices(bytes, tables, sane)};
        const Plan plan = read_plan(bytes, tables, set, sane);
        const SimulationInput input{.prices = set,
                                    .plan = plan,
                                    .options = read_options(bytes, sane),
                                    .record = read_recording(bytes, tables, set, plan)};
        const SimulationResult result = simulate(input);
        check_places(input, result);
        if (sane) {
            check_account(input, result);
        }
    } catch (const std::invalid_argument&) {
        return 0; // refused at the border
    }
    return 0;
}
