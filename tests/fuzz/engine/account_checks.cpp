#include "account_checks.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::fuzz {

namespace {

using namespace engine;

/// The money of a session adds up to this part of what is held and traded.
constexpr double kExact = 1e-10;
/// Of shares: the last digits of a difference.
constexpr double kRounding = 1e-12;

/// Follows the holdings of a run from its fills, beside the account's own figures.
class Auditor {
  public:
    Auditor(const SimulationInput& input, const SimulationResult& result,
            const AccountResult& found)
        : in_{input}, terms_{*input.account}, out_{result}, found_{found},
          assets_{input.prices.assets()}, first_{input.plan.first_session}, shares_(assets_, 0.0),
          marks_(assets_, std::nan("")), whole_(assets_, true), cash_{terms_.capital},
          may_owe_{may_owe()} {}

    void run() {
        const std::size_t count = found_.columns[0].size();
        const auto ruin = static_cast<std::size_t>(out_.ruin_session);
        require(out_.equity.size() == in_.prices.sessions() - first_, "the curve's length");
        require(count == (out_.ruin_session < 0 ? out_.equity.size() : ruin - first_ + 1),
                "an account has a row for each session until its ruin");
        for (std::size_t at = 0; at < count; ++at) {
            const std::size_t session = first_ + at;
            split(session);
            fill(session);
            mark(session);
            check_figures(at);
            if (out_.ruin_session < 0 || session < ruin) {
                check_identity(at);
            }
        }
        check_trips();
    }

  private:
    [[nodiscard]] double figure(AccountColumn column, std::size_t at) const {
        return found_.columns[static_cast<std::size_t>(column)][at];
    }
    [[nodiscard]] double rate(std::size_t asset, std::size_t session) const {
        return terms_.currencies.any() ? terms_.currencies.rate(asset, session) : 1.0;
    }
    [[nodiscard]] double sum_of(const std::vector<AssetEvent>& events, std::size_t asset,
                                std::size_t session) const {
        double sum = 0.0;
        for (const AssetEvent& event : events) {
            const bool now = event.session == static_cast<std::int64_t>(session);
            sum += now && event.asset == asset ? event.amount : 0.0;
        }
        return sum;
    }

    /// Whether weights, withdrawals or fees beyond the value of an order may lead to a loan.
    [[nodiscard]] bool may_owe() const {
        const Plan& plan = in_.plan;
        for (std::size_t row = 0; row < plan.rebalances(); ++row) {
            double sum = 0.0;
            for (const double weight : plan.weights(row)) {
                sum += weight;
                if (weight < 0.0) {
                    return true;
                }
            }
            if (sum > 1.0 + kRounding) {
                return true;
            }
        }
        const bool fixed_fees = terms_.fees.minimum > 0.0 || terms_.fees.per_share > 0.0 ||
                                !terms_.min_fee.empty() || !terms_.fee_per_share.empty();
        return (fixed_fees && terms_.fees.max_ratio > 0.1) ||
               std::ranges::any_of(terms_.flows, [](auto flow) { return flow.amount < 0.0; });
    }

    void split(std::size_t session) {
        std::ranges::fill(grown_, 1.0);
        grown_.resize(assets_, 1.0);
        for (const AssetEvent& event : terms_.splits) {
            if (event.session == static_cast<std::int64_t>(session)) {
                whole_[event.asset] = whole_[event.asset] && shares_[event.asset] == 0.0;
                grown_[event.asset] *= event.amount;
                shares_[event.asset] *= event.amount;
                marks_[event.asset] /= event.amount;
            }
        }
    }

    /// Applies the fills of a session; what each of them traded must be within the terms.
    void fill(std::size_t session) {
        bought_ = traded_ = costs_ = 0.0;
        std::vector<double> taken(assets_, 0.0);
        const Fills& fills = out_.fills;
        for (; next_ < fills.session.size() &&
               fills.session[next_] == static_cast<std::int32_t>(session);
             ++next_) {
            const auto asset = static_cast<std::size_t>(fills.asset[next_]);
            const double change = fills.shares[next_] - shares_[asset];
            const double price = fills.price[next_];
            const double value = change * price * rate(asset, session);
            require(fills.cost[next_] >= 0.0, "a fill that is paid for");
            if (!forced(asset, session)) {
                taken[asset] += std::abs(change);
                check_fill(asset, session, fills.shares[next_], price, taken[asset]);
            }
            bought_ += value;
            traded_ += std::abs(value);
            costs_ += fills.cost[next_];
            shares_[asset] = fills.shares[next_];
            whole_[asset] = whole_[asset] || shares_[asset] == 0.0;
            marks_[asset] = price;
        }
        all_traded_ += traded_;
    }

    /// A position that ends without an order: at the last price there is, or with the account.
    [[nodiscard]] bool forced(std::size_t asset, std::size_t session) const {
        const auto now = static_cast<std::int64_t>(session);
        return in_.prices.last_priced(asset) < now || out_.ruin_session == now;
    }

    void check_fill(std::size_t asset, std::size_t session, double after, double price,
                    double taken) const {
        const double before = shares_[asset];
        const double lot = terms_.lot_size.empty() ? 0.0 : terms_.lot_size.at(0, asset);
        if (lot > 0.0 && whole_[asset]) {
            const double lots = after / lot;
            require(std::abs(lots - std::round(lots)) <= 1e-9 * (1.0 + std::abs(lots)),
                    "holdings in whole lots");
        }
        if (terms_.volume.share > 0.0) {
            const double volume = terms_.volume.volume.at(session, asset);
            const double most = is_volume(volume) ? terms_.volume.share * volume : 0.0;
            require(taken <= most + 1e-9 * lot + kRounding * (std::abs(before) + taken),
                    "more than a part of the volume");
        }
        if (!terms_.borrow_rate.empty() && std::isnan(terms_.borrow_rate.at(session, asset))) {
            require(after >= std::min(before, 0.0), "a short that cannot be borrowed");
        }
        if (!terms_.price_limit.empty() && session > 0 && terms_.years[session] > 0.0) {
            check_limit(asset, session, after > before, price);
        }
    }

    void check_limit(std::size_t asset, std::size_t session, bool buy, double price) const {
        const double close = in_.prices.close().at(session - 1, asset);
        const double reference = close / grown_[asset] - sum_of(terms_.dividends, asset, session);
        const double limit = terms_.price_limit.at(session, asset);
        const double quoted = terms_.opens.empty() ? price : terms_.opens.at(session, asset);
        const double opens = std::isnan(quoted) ? price : quoted;
        require(!(buy ? opens >= reference * (1.0 + limit) : opens <= reference * (1.0 - limit)) ||
                    reference <= 0.0,
                "an order at the price limit");
    }

    void mark(std::size_t session) {
        value_ = gross_ = 0.0;
        for (std::size_t asset = 0; asset < assets_; ++asset) {
            const double close = in_.prices.close().at(session, asset);
            marks_[asset] = is_missing(close) || is_missing(close * rate(asset, session))
                                ? marks_[asset]
                                : close;
            if (shares_[asset] != 0.0) {
                const double value = shares_[asset] * marks_[asset] * rate(asset, session);
                value_ += value;
                gross_ += std::abs(value);
            }
        }
    }

    void check_figures(std::size_t at) const {
        for (const auto& column : found_.columns) {
            require(std::isfinite(column[at]), "a figure that is no number");
        }
        const double dust = kExact * (terms_.capital + all_traded_);
        for (const AccountColumn paid :
             {AccountColumn::kFees, AccountColumn::kTax, AccountColumn::kSlippage,
              AccountColumn::kImpact, AccountColumn::kLong}) {
            require(figure(paid, at) >= -dust, "a cost below zero");
        }
        require(figure(AccountColumn::kShort, at) <= dust, "shorts above zero");
    }

    void check_identity(std::size_t at) {
        using enum AccountColumn;
        const double equity = figure(kEquity, at);
        const double scale = std::max({std::abs(equity), gross_, last_scale_}) + traded_;
        const auto near = [&](double one, double other, const char* what) {
            require(std::abs(one - other) <= kExact * scale, what);
        };
        const double told = figure(kInterest, at) - figure(kFinancing, at) - figure(kBorrow, at) +
                            figure(kDividends, at) + figure(kFlows, at) - figure(kFees, at) -
                            figure(kTax, at) - figure(kSlippage, at) - figure(kImpact, at);
        near(figure(kCash, at) - cash_, told - bought_, "cash that nothing tells of");
        near(figure(kLong, at) + figure(kShort, at), value_, "holdings at another value");
        near(figure(kLong, at) - figure(kShort, at), gross_, "longs and shorts");
        near(figure(kCash, at) + value_, equity, "an equity that is not cash and holdings");
        near(out_.equity[at] * figure(kUnits, at), equity, "a curve beside its account");
        require(may_owe_ || figure(kCash, at) >= -kExact * scale, "a loan that was not wanted");
        cash_ = figure(kCash, at);
        last_scale_ = std::max(std::abs(equity), gross_);
        largest_ = std::max(largest_, last_scale_);
        outside_ += figure(kInterest, at) - figure(kFinancing, at) + figure(kFlows, at);
    }

    /// Round trips come to what the equity gained beside interest and flows.
    void check_trips() const {
        double money = 0.0;
        for (std::size_t k = 0; k < out_.round_trips.size(); ++k) {
            const RoundTrip& trip = out_.round_trips[k];
            if (!trip.filled()) {
                continue;
            }
            const TripMoney& known = found_.trips[k];
            require(known.shares != 0.0 && (known.shares > 0.0) == (trip.weight > 0.0),
                    "a trade on another side than its target");
            require(!std::isnan(trip.net_return), "a trade without a return");
            money += known.money;
        }
        if (out_.ruin_session < 0 && !out_.equity.empty()) {
            const double gained =
                figure(AccountColumn::kEquity, out_.equity.size() - 1) - terms_.capital - outside_;
            require(std::abs(gained - money) <= 1e-9 * (largest_ + all_traded_ + terms_.capital),
                    "trades that do not come to what was gained");
        }
    }

    const SimulationInput& in_;
    const AccountTerms& terms_;
    const SimulationResult& out_;
    const AccountResult& found_;
    std::size_t assets_;
    std::size_t first_;
    std::vector<double> shares_;
    std::vector<double> marks_; ///< quoted
    std::vector<bool> whole_;   ///< no split has left a part of a lot
    std::vector<double> grown_; ///< by the splits of the session
    double cash_;
    bool may_owe_;
    std::size_t next_ = 0; ///< fill
    double bought_ = 0.0;
    double traded_ = 0.0;
    double costs_ = 0.0;
    double all_traded_ = 0.0;
    double value_ = 0.0;
    double gross_ = 0.0;
    double last_scale_ = 0.0;
    double largest_ = 0.0;
    double outside_ = 0.0;
};

} // namespace

void check_account(const SimulationInput& input, const SimulationResult& result) {
    if (result.account) {
        Auditor{input, result, *result.account}.run();
    }
}

} // namespace corvex::fuzz
