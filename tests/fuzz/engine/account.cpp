// Runs that keep an account, on arbitrary terms: what ordinary ones write down adds up, orders stay
// within what the terms allow, and a second run gives the same bits.
#include <algorithm>
#include <bit>
#include <deque>
#include <stdexcept>

#include "account_checks.hpp"

namespace {

using namespace corvex::engine;
using corvex::fuzz::Bytes;
using corvex::fuzz::require;

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinite = std::numeric_limits<double>::infinity();

/// Ordinary values; all that the terms take; anything.
enum class Manner : std::uint8_t { kOrdinary, kExtreme, kWild };

/// Reads a case from bytes, and owns what its spans view.
class Reader {
  public:
    explicit Reader(Bytes bytes) : bytes_{bytes} {
        const std::size_t choice = bytes_.below(10);
        manner_ = choice < 6 ? Manner::kOrdinary : choice < 9 ? Manner::kExtreme : Manner::kWild;
        assets_ = 1 + bytes_.below(4);
        sessions_ = (manner_ == Manner::kWild ? 0 : 2) + bytes_.below(14);
    }

    [[nodiscard]] Manner manner() const { return manner_; }

    Options options() {
        Options options;
        options.costs = {pick({0.0, 0.001, 0.01}, {0.9}), pick({0.0, 0.003}, {0.05}),
                         pick({0.0, 0.002}, {0.99})};
        if (bytes_.below(3) == 0) {
            options.stops = {.loss = pick({kInfinite, 0.02, 0.1}, {1e-9}),
                             .profit = pick({kInfinite, 0.02, 0.3}, {1e9}),
                             .trail = pick({kInfinite, 0.05}, {1e-9}),
                             .touched = bytes_.flag(),
                             .cooldown = static_cast<std::int64_t>(bytes_.below(3))};
        }
        return options;
    }

    AccountTerms terms() {
        AccountTerms terms;
        terms.capital = pick({1.0, 1'000.0, 1e6}, {1e-300, 1e300});
        read_income(terms);
        read_costs(terms);
        read_trading(terms);
        read_currencies(terms.currencies);
        read_events(terms);
        return terms;
    }

    Plan plan() {
        const std::size_t rows = bytes_.below(12) == 0 ? 0 : 1 + bytes_.below(6);
        signals_.resize(rows);
        for (std::int64_t& signal : signals_) {
            signal = static_cast<std::int64_t>(bytes_.below(sessions_ + 1)) - 1;
        }
        std::ranges::sort(signals_);
        const double whole = pick({1.0, 1.0, 0.7, 1.8}, {1e-9, 1e6});
        const bool shorts = bytes_.flag();
        auto& target = owned_.emplace_back(rows * assets_);
        for (double& weight : target) {
            const auto part = static_cast<double>(static_cast<int>(bytes_.below(13)) - 4);
            weight =
                (shorts ? part : std::max(part, 0.0)) / 5.0 * whole / static_cast<double>(assets_);
            weight = odd() ? bytes_.raw<double>() : weight;
        }
        const bool late = bytes_.below(8) == 0;
        return {target, signals_, late && rows > 0 ? static_cast<std::size_t>(signals_[0] + 1) : 0};
    }

    PriceTables prices(AccountTerms& terms) {
        const auto fill_at = static_cast<FillAt>(bytes_.below(3));
        const std::vector<double> close = walk(terms.splits);
        PriceTables tables{.close = table(close, 1.0), .fill_at = fill_at};
        tables.high = table(close, 1.03);
        tables.low = table(close, 0.97);
        if (fill_at != FillAt::kClose) {
            tables.fill = around(close);
            tables.open = fill_at == FillAt::kOpen ? tables.fill : PriceTable{};
        }
        if (!terms.price_limit.empty() && bytes_.flag()) {
            terms.opens = {around(close).values, sessions_, assets_};
        }
        return tables;
    }

    std::span<double> position(std::size_t first_session) {
        return owned_.emplace_back((sessions_ - first_session) * assets_);
    }

  private:
    /// One of the ordinary values, or for more than ordinary cases one of all of them.
    double pick(std::initializer_list<double> ordinary, std::initializer_list<double> extreme) {
        const std::size_t all =
            ordinary.size() + (manner_ == Manner::kOrdinary ? 0 : extreme.size());
        const std::size_t at = bytes_.below(all);
        if (odd()) {
            return bytes_.price(false);
        }
        return at < ordinary.size() ? ordinary.begin()[at] : extreme.begin()[at - ordinary.size()];
    }
    bool odd() { return manner_ == Manner::kWild && bytes_.below(32) == 0; }

    /// Often none; else by session, asset, both or one for all.
    template <typename Value>
    Grid grid(std::size_t sessions, std::size_t assets, const Value& value) {
        if (bytes_.flag()) {
            return {};
        }
        const std::size_t rows = bytes_.flag() ? sessions : 1;
        return filled(rows, bytes_.flag() ? assets : 1, value);
    }
    template <typename Value>
    Grid filled(std::size_t rows, std::size_t columns, const Value& value) {
        auto& values = owned_.emplace_back(rows * columns);
        std::ranges::generate(values, value);
        return {values, rows, columns};
    }

    void read_income(AccountTerms& terms) {
        auto& years = owned_.emplace_back(sessions_);
        std::ranges::generate(years, [&] { return pick({1, 1, 1, 3, 0, 9}, {4e4}) / 365.0; });
        terms.years = years;
        const auto rate = [&] { return pick({0.0, 0.04, -0.01, 0.2}, {9.0, 1e6, -1e6}); };
        terms.cash_rate = grid(sessions_, 1, rate);
        terms.financing_rate = grid(sessions_, 1, rate);
        terms.short_rebate = grid(sessions_, assets_, rate);
        terms.borrow_rate =
            grid(sessions_, assets_, [&] { return pick({0.0, 0.05, kMissing, 0.4}, {1e6}); });
        terms.withholding_tax = grid(sessions_, assets_, [&] { return pick({0.0, 0.3, 1.0}, {}); });
    }

    void read_costs(AccountTerms& terms) {
        const auto ratio = [&] { return pick({0.0, 0.001, 0.02, kMissing}, {0.999, 0.5}); };
        terms.fee_ratio = grid(sessions_, assets_, ratio);
        terms.tax_ratio = grid(sessions_, assets_, ratio);
        terms.slippage_ratio = grid(sessions_, assets_, ratio);
        terms.min_fee = grid(1, assets_, [&] { return pick({0.0, 0.1, 2.0}, {1e12}); });
        terms.fee_per_share = grid(1, assets_, [&] { return pick({0.0, 0.01}, {1e12}); });
        terms.fees.minimum = pick({0.0, 0.0, 0.1, 5.0}, {1e12, 1e-300});
        terms.fees.per_share = pick({0.0, 0.0, 0.005, 1.0}, {1e12});
        terms.fees.max_ratio = pick({kInfinite, kInfinite, 0.01, 0.5}, {1.0, 1e-12});
        if (bytes_.below(4) == 0) {
            double from = 0.0;
            for (std::size_t k = 1 + bytes_.below(4); k > 0; --k) {
                terms.fees.table.push_back({from, pick({0.0, 0.001, 0.02}, {0.999})});
                from += pick({10.0, 500.0, 20'000.0}, {1e-9, 1e100});
            }
        }
    }

    void read_trading(AccountTerms& terms) {
        terms.lot_size =
            grid(1, assets_, [&] { return pick({1.0, 1.0, 10.0, 0.1}, {1e-9, 1e12, 1e-300}); });
        terms.round_to_nearest = bytes_.flag();
        terms.band = {grid(sessions_, assets_, [&] { return pick({0.0, 0.02, 0.1}, {1e9}); }),
                      bytes_.flag(), bytes_.flag()};
        terms.volume.share = pick({0.0, 0.0, 0.1, 0.5, 1.0}, {1e-300});
        terms.volume.lapse = bytes_.flag();
        terms.impact = {pick({0.0, 0.0, 0.5}, {1e9, 1e-9}), 2 + bytes_.below(6)};
        if (terms.volume.share > 0.0 || terms.impact.coefficient > 0.0) {
            terms.volume.volume = filled(sessions_, assets_, [&] {
                return pick({0.0, kMissing, -1.0, 3.0, 7.5, 100.0, 100.0, 1e5, 1e9},
                            {1e300, 5e-324, kInfinite});
            });
        }
        terms.price_limit =
            grid(sessions_, assets_, [&] { return pick({0.1, 0.02, kMissing}, {0.0, 0.999}); });
        double from = 0.0;
        for (std::size_t k = bytes_.flag() ? bytes_.below(4) : 0; k > 0; --k) {
            terms.price_ticks.push_back({from, pick({0.01, 0.05, 1.0}, {1e-300, 1e300})});
            from += 10.0;
        }
        terms.maintenance_margin = pick({0.0, 0.0, 0.3, 0.9}, {1e-9, 1e9});
    }

    void read_currencies(CurrencyTerms& terms) {
        if (bytes_.below(3) > 0) {
            return;
        }
        auto& of_asset = columns_.emplace_back(assets_);
        std::ranges::generate(of_asset, [&] { return static_cast<std::int64_t>(bytes_.below(3)); });
        const double begin[] = {1.0, pick({30.0, 1.0, 0.007}, {1e-150}), pick({150.0}, {1e150})};
        std::size_t cell = 0;
        terms.rates = filled(sessions_, 3, [&] {
            const std::size_t row = cell / 3;
            const std::size_t column = cell++ % 3;
            if (column == 0) {
                return 1.0;
            }
            const bool unknown = row == 0 && bytes_.below(12) == 0;
            return unknown ? kMissing : begin[column] * pick({1.0, 1.0, 1.01, 0.98, 1.5}, {1e9});
        });
        terms.of_asset = of_asset;
    }

    void read_events(AccountTerms& terms) {
        const auto fill = [&](std::vector<AssetEvent>& events, const auto& amount) {
            events.resize(bytes_.below(3) == 0 ? bytes_.below(5) : 0);
            for (AssetEvent& event : events) {
                event = {session(), static_cast<std::uint32_t>(bytes_.below(assets_)), amount()};
            }
            std::ranges::stable_sort(events, {}, &AssetEvent::session);
        };
        fill(terms.dividends, [&] { return pick({0.1, 1.0, 20.0}, {1e200, 1e-300}); });
        fill(terms.splits, [&] { return pick({2.0, 0.1, 1.5, 1.0 / 3.0}, {1e50, 1e-50}); });
        terms.flows.resize(bytes_.below(4) == 0 ? 1 + bytes_.below(4) : 0);
        for (CashEvent& flow : terms.flows) {
            flow = {session(),
                    terms.capital * pick({0.5, -0.2, 3.0, -0.9, -1.0, -50.0}, {1e9, -1e-300})};
        }
        std::ranges::stable_sort(terms.flows, {}, &CashEvent::session);
    }
    std::int64_t session() {
        return static_cast<std::int64_t>(bytes_.below(std::max<std::size_t>(sessions_, 1)));
    }

    /// Closes that move by little or much, stand still, are missing, or have ended.
    std::vector<double> walk(const std::vector<AssetEvent>& splits) {
        std::vector<double> close(sessions_ * assets_);
        for (std::size_t asset = 0; asset < assets_; ++asset) {
            double price = pick({20.0, 20.0, 3.0, 900.0}, {1e-200, 1e200, 5e-324});
            const std::size_t end = bytes_.below(6) == 0 ? bytes_.below(sessions_ + 1) : sessions_;
            for (std::size_t at = 0; at < sessions_; ++at) {
                for (const AssetEvent& split : splits) {
                    const bool now = split.session == static_cast<std::int64_t>(at);
                    price /= now && split.asset == asset ? split.amount : 1.0;
                }
                price *= pick({1.0, 1.0, 1.01, 0.99, 1.03, 0.96, 1.1, 0.9, 1.5, 0.6, 3.0}, {1e9});
                const bool here = at < end && bytes_.below(16) > 0;
                close[at * assets_ + asset] = here ? price : kMissing;
            }
        }
        return close;
    }
    PriceTable table(const std::vector<double>& close, double factor) {
        auto& values = owned_.emplace_back(close);
        std::ranges::transform(values, values.begin(), [&](double v) { return v * factor; });
        return {values, assets_};
    }
    PriceTable around(const std::vector<double>& close) {
        auto& values = owned_.emplace_back(close);
        std::ranges::transform(values, values.begin(), [&](double v) {
            return v * pick({1.0, 1.0, 1.02, 0.99, 1.12, 0.97, kMissing}, {1e6});
        });
        return {values, assets_};
    }

    Bytes bytes_;
    Manner manner_;
    std::size_t assets_;
    std::size_t sessions_;
    std::deque<std::vector<double>> owned_;
    std::deque<std::vector<std::int64_t>> columns_;
    std::vector<std::int64_t> signals_;
};

/// The bytes, and others that follow from them: a case takes more than most inputs have.
std::vector<std::uint8_t> enough(std::span<const std::uint8_t> given) {
    std::vector<std::uint8_t> bytes{given.begin(), given.end()};
    std::uint64_t state = given.size();
    for (const std::uint8_t byte : given) {
        state = (state ^ byte) * 0x100'0000'01b3;
    }
    while (bytes.size() < 1'500) {
        state = state * 6'364'136'223'846'793'005 + 1'442'695'040'888'963'407;
        bytes.push_back(static_cast<std::uint8_t>(state >> 56U));
    }
    return bytes;
}

template <typename Value>
bool same_bits(const std::vector<Value>& one, const std::vector<Value>& other) {
    return one.size() == other.size() &&
           (one.empty() || std::memcmp(one.data(), other.data(), one.size() * sizeof(Value)) == 0);
}

void check_again(const SimulationResult& one, const SimulationResult& other) {
    if (!one.account || !other.account) {
        require(false, "an account was not kept");
        return;
    }
    require(same_bits(one.equity, other.equity) && same_bits(one.shares, other.shares) &&
                same_bits(one.fills.shares, other.fills.shares) &&
                same_bits(one.fills.cost, other.fills.cost) &&
                same_bits(one.account->bookings.money, other.account->bookings.money),
            "a second run gives another result");
    for (std::size_t k = 0; k < one.account->columns.size(); ++k) {
        require(same_bits(one.account->columns[k], other.account->columns[k]),
                "a second run gives another account");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::uint8_t> bytes = enough({data, size});
    Reader read{Bytes{bytes}};
    try {
        const Options options = read.options();
        AccountTerms terms = read.terms();
        const Plan plan = read.plan();
        const PriceSet set{read.prices(terms)};
        const SimulationInput input{
            .prices = set,
            .plan = plan,
            .options = options,
            .record = {.fills = true, .position = read.position(plan.first_session)},
            .account = &terms};
        const SimulationResult result = simulate(input);
        check_again(result, simulate(input));
        if (read.manner() == Manner::kOrdinary) {
            corvex::fuzz::check_account(input, result);
        }
    } catch (const std::invalid_argument&) {
        return 0; // refused at the border
    }
    return 0;
}
