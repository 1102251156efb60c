// The beginning and the end of an account's sessions: accrual, flows, splits, dividends, marks.
#include "corvex/engine/account/account.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

double rate_at(const Grid& rates, std::size_t session) {
    return rates.empty() ? 0.0 : rates.at(session, 0);
}

} // namespace

Account::Account(const AccountTerms& terms, const PriceSet& prices, const Costs& otherwise,
                 std::size_t first_session)
    : terms_{terms}, prices_{prices}, currencies_{terms.currencies, prices},
      first_session_{first_session}, costs_{terms, otherwise}, splits_{prices, terms.splits},
      volume_{terms.volume, prices.assets()}, impact_{terms, splits_}, solver_{costs_},
      trips_{prices.assets()}, due_splits_{terms.splits}, due_dividends_{terms.dividends},
      due_flows_{terms.flows}, orders_(prices.assets()), units_{terms.capital},
      equity_{terms.capital}, free_{terms.capital} {}

void Account::begin(Book& book, std::size_t session) {
    if (session > first_session_) {
        accrue(book, session);
        convert(session);
    }
    flow(book, session);
    split(book, session);
    pay_dividends(book, session);
}

void Account::book_entry(std::size_t session, std::size_t asset, BookingKind kind, double money,
                         double shares) {
    result_.bookings.push_back({static_cast<std::int32_t>(session),
                                static_cast<std::int32_t>(asset), kind, money, shares});
}

/// Interest on the balances of the close before, for the time since then.
void Account::accrue(Book& book, std::size_t session) {
    const double years = terms_.years[session];
    const std::size_t before = session - 1;
    const double interest = (std::max(free_, 0.0) * rate_at(terms_.cash_rate, before) +
                             shorts_ * rate_at(terms_.short_rebate, before)) *
                            years;
    const double financing = std::max(-free_, 0.0) * rate_at(terms_.financing_rate, before) * years;
    double borrow = 0.0;
    for (const auto& [asset, per_year] : borrowed_) {
        const double fee = per_year * years;
        if (fee != 0.0) {
            borrow += fee;
            trips_.received(asset, -fee);
            book_entry(session, asset, BookingKind::kBorrow, -fee, book.shares(asset));
        }
    }
    log_.add(AccountColumn::kInterest, interest);
    log_.add(AccountColumn::kFinancing, financing);
    log_.add(AccountColumn::kBorrow, borrow);
    const double accrued = interest - financing - borrow;
    book.set_cash(book.cash() + accrued);
    equity_ += accrued;
}

/// What the holdings of the close before gain by the rates alone. The prices' own moves count at
/// the new rates.
void Account::convert(std::size_t session) {
    for (const auto& [asset, value] : foreign_) {
        log_.add(AccountColumn::kCurrency,
                 value * (currencies_.moved(asset, session - 1, session) - 1.0));
    }
}

/// Units are bought and sold at what they are worth, so that the curve does not move.
void Account::flow(Book& book, std::size_t session) {
    for (const CashEvent& event : due_flows_.of(session)) {
        if (!(equity_ + event.amount > 0.0)) {
            if (result_.overdrawn_session < 0) {
                result_.overdrawn_session = event.session;
            }
            continue;
        }
        units_ *= (equity_ + event.amount) / equity_;
        equity_ += event.amount;
        book.set_cash(book.cash() + event.amount);
        log_.add(AccountColumn::kFlows, event.amount);
    }
}

void Account::split(Book& book, std::size_t session) {
    for (const AssetEvent& event : due_splits_.of(session)) {
        book.split(event.asset, session, event.amount);
        if (const double shares = book.shares(event.asset); shares != 0.0) {
            book_entry(session, event.asset, BookingKind::kSplit, 0.0, shares);
        }
    }
}

void Account::pay_dividends(Book& book, std::size_t session) {
    for (const AssetEvent& event : due_dividends_.of(session)) {
        const double shares = book.shares(event.asset);
        if (shares == 0.0) {
            continue;
        }
        const double rate = currencies_.rate(event.asset, session);
        const double gross = shares * event.amount * rate;
        const double withheld = shares > 0.0 ? gross * terms_.withholding_tax : 0.0;
        book.set_cash(book.cash() + gross - withheld);
        log_.add(AccountColumn::kDividends, gross);
        log_.add(AccountColumn::kTax, withheld);
        trips_.received(event.asset, gross - withheld);
        trips_.dividend(event.asset, (gross - withheld) / (shares * rate) *
                                         splits_.factor(event.asset, session));
        book_entry(session, event.asset, BookingKind::kDividend, gross - withheld, shares);
    }
}

/// The yearly rate of a short: where it is missing, the last one that was known.
double Account::borrow_rate(std::size_t asset, std::size_t session) const {
    if (terms_.borrow_rate.empty()) {
        return 0.0;
    }
    for (std::size_t at = session + 1; at > 0; --at) {
        const double rate = terms_.borrow_rate.at(at - 1, asset);
        if (!std::isnan(rate)) {
            return rate;
        }
        if (terms_.borrow_rate.rows == 1) {
            break;
        }
    }
    return 0.0;
}

void Account::end(Book& book, std::size_t session, double equity, const CostTotals& paid) {
    double longs = 0.0;
    double shorts = 0.0;
    borrowed_.clear();
    foreign_.clear();
    for (const std::uint32_t asset : book.marked()) {
        const double shares = book.shares(asset);
        if (shares == 0.0) {
            continue;
        }
        const double value = shares * book.price_after(asset, session);
        (value > 0.0 ? longs : shorts) += value;
        if (currencies_.any()) {
            foreign_.push_back({asset, value});
        }
        if (value < 0.0 && !terms_.borrow_rate.empty()) {
            borrowed_.push_back({asset, -value * borrow_rate(asset, session)});
        }
    }
    equity_ = equity;
    shorts_ = -shorts;
    free_ = book.cash() - shorts_;
    const double gross = longs - shorts;
    margin_called_ = gross > 0.0 && equity < terms_.maintenance_margin * gross;
    log_.add(AccountColumn::kCash, book.cash());
    log_.add(AccountColumn::kLong, longs);
    log_.add(AccountColumn::kShort, shorts);
    log_.add(AccountColumn::kEquity, equity);
    log_.add(AccountColumn::kFees, paid.fees);
    log_.add(AccountColumn::kTax, paid.taxes);
    log_.add(AccountColumn::kSlippage, paid.slippage);
    log_.add(AccountColumn::kUnits, units_);
    log_.end_session(result_);
}

AccountResult Account::finish(const std::vector<RoundTrip>& trips) {
    result_.trips = trips_.of(trips);
    return std::move(result_);
}

} // namespace corvex::engine::inline v1
