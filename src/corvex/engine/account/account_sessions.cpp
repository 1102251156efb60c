// The beginning and the end of an account's sessions: accrual, flows, splits, dividends, marks.
#include "corvex/engine/account/account.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace corvex::engine::inline v1 {

namespace {

double rate_at(const Grid& rates, std::size_t session, std::size_t asset = 0) {
    return rates.empty() ? 0.0 : rates.at(session, asset);
}

} // namespace

Account::Account(const AccountTerms& terms, const PriceSet& prices, const Costs& otherwise,
                 std::size_t first_session)
    : terms_{terms}, prices_{prices}, currencies_{terms.currencies, prices},
      first_session_{first_session}, costs_{terms, otherwise, prices.assets()},
      splits_{terms.splits, prices.assets()}, volume_{terms.volume, prices.assets()},
      impact_{terms, prices.close(), splits_}, solver_{costs_}, trips_{prices.assets()},
      due_splits_{terms.splits}, due_dividends_{terms.dividends}, due_flows_{terms.flows},
      orders_(prices.assets()), units_{terms.capital}, equity_{terms.capital},
      free_{terms.capital} {
    for (auto& column : result_.columns) {
        column.reserve(prices.sessions() - first_session);
    }
}

void Account::begin(Book& book, std::size_t session) {
    costs_.begin(session);
    if (session > first_session_) {
        accrue(book, session);
        convert(session);
    }
    flow(book, session);
    split(book, session);
    pay_dividends(book, session);
}

/// Bookings that room is made for in advance, some 25 MB: more shorts may end soon than memory
/// could hold of them to the last session.
constexpr std::size_t kMostReserved = std::size_t{1} << 20;

/// What the shorts of the close before cost since then.
double Account::pay_borrowing(const Book& book, std::size_t session) {
    if (borrowed_.empty() || terms_.years[session] == 0.0) {
        return 0.0;
    }
    Bookings& bookings = result_.bookings;
    if (bookings.empty()) { // most often as many are short from then on
        bookings.reserve(
            std::min(borrowed_.size() * (terms_.years.size() - session), kMostReserved));
    }
    double total = 0.0;
    std::size_t place = bookings.extend(borrowed_.size());
    for (const auto& [asset, per_year] : borrowed_) {
        const double fee = per_year * terms_.years[session];
        total += fee;
        trips_.received(asset, -fee);
        bookings.put(place++, session, asset, BookingKind::kBorrow, -fee, book.shares(asset));
    }
    return total;
}

/// Interest on the balances of the close before, for the time since then.
void Account::accrue(Book& book, std::size_t session) {
    const double years = terms_.years[session];
    const std::size_t before = session - 1;
    const double interest =
        (std::max(free_, 0.0) * rate_at(terms_.cash_rate, before) + rebate_per_year_) * years;
    const double financing = std::max(-free_, 0.0) * rate_at(terms_.financing_rate, before) * years;
    const double borrow = pay_borrowing(book, session);
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
    splits_today_ = due_splits_.of(session);
    for (const AssetEvent& event : splits_today_) {
        book.split(event.asset, session, event.amount);
        if (const double shares = book.shares(event.asset); shares != 0.0) {
            result_.bookings.add(session, event.asset, BookingKind::kSplit, 0.0, shares);
        }
    }
}

void Account::pay_dividends(Book& book, std::size_t session) {
    dividends_today_ = due_dividends_.of(session);
    for (const AssetEvent& event : dividends_today_) {
        const double shares = book.shares(event.asset);
        if (shares == 0.0) {
            continue;
        }
        const double rate = currencies_.rate(event.asset, session);
        const double gross = shares * event.amount * rate;
        const double withheld =
            shares > 0.0 ? gross * rate_at(terms_.withholding_tax, session, event.asset) : 0.0;
        book.set_cash(book.cash() + gross - withheld);
        log_.add(AccountColumn::kDividends, gross);
        log_.add(AccountColumn::kTax, withheld);
        trips_.received(event.asset, gross - withheld);
        trips_.dividend(event.asset,
                        (gross - withheld) / (shares * rate) * splits_.at(event.asset, session));
        result_.bookings.add(session, event.asset, BookingKind::kDividend, gross - withheld,
                             shares);
    }
}

/// The yearly rate of a short: where it is missing, the last one that was known.
double Account::borrow_rate(std::size_t asset, std::size_t session) const {
    const Grid& rates = terms_.borrow_rate;
    const std::size_t rows = rates.empty() ? 0 : std::min(rates.rows, session + 1);
    for (std::size_t back = 0; back < rows; ++back) {
        if (const double rate = rates.at(session - back, asset); !std::isnan(rate)) {
            return rate;
        }
    }
    return 0.0;
}

/// The value of the shorts at the close; notes what each costs, and what their proceeds earn.
double Account::mark_shorts(Book& book, std::size_t session) {
    if (std::exchange(traded_, false)) {
        sold_short_.clear();
        has_longs_ = false;
        for (const std::uint32_t asset : book.marked()) {
            has_longs_ |= book.shares(asset) > 0.0;
            if (book.shares(asset) < 0.0) {
                sold_short_.push_back(asset);
            }
        }
    }
    borrowed_.clear();
    rebate_per_year_ = 0.0;
    double shorts = 0.0;
    for (const std::uint32_t asset : sold_short_) {
        const double value = book.shares(asset) * book.price_after(asset, session);
        shorts += value;
        rebate_per_year_ -= value * rate_at(terms_.short_rebate, session, asset);
        if (const double per_year = -value * borrow_rate(asset, session); per_year != 0.0) {
            borrowed_.push_back({asset, per_year});
        }
    }
    return shorts;
}

void Account::mark_foreign(Book& book, std::size_t session) {
    foreign_.clear();
    for (const std::uint32_t asset : book.marked()) {
        if (const double shares = book.shares(asset); shares != 0.0) {
            foreign_.push_back({asset, shares * book.price_after(asset, session)});
        }
    }
}

void Account::end(Book& book, std::size_t session, const Close& close, const CostTotals& paid) {
    if (currencies_.any()) {
        mark_foreign(book, session);
    }
    const double shorts = mark_shorts(book, session);
    const double longs = has_longs_ ? close.value - shorts : 0.0;
    const double equity = close.equity;
    equity_ = equity;
    free_ = book.cash() + shorts;
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
