#pragma once

#include "corvex/engine/account/account_log.hpp"
#include "corvex/engine/account/terms.hpp"

#include <nanobind/nanobind.h>

#include <cstdint>
#include <vector>

#include "portfolio_arrays.hpp"

namespace corvex::bindings {

/// The terms of an account and the arrays that they look at.
class AccountArrays {
  public:
    /// Reads the terms by their names from an object that has them as attributes.
    explicit AccountArrays(nanobind::handle given);

    [[nodiscard]] const engine::AccountTerms& terms() const { return terms_; }

  private:
    engine::Grid grid(nanobind::handle given, const char* name);

    std::vector<InputTable> arrays_;
    std::vector<std::int64_t> fx_column_;
    engine::AccountTerms terms_;
};

/// Reads what an order pays beside its ratios.
engine::FeeTerms read_fees(nanobind::handle given);

/// What an account run adds to the results.
nanobind::dict account_columns(engine::AccountResult&& result);

} // namespace corvex::bindings
