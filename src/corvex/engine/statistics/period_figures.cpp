#include "corvex/engine/statistics/period_figures.hpp"

#include "corvex/engine/statistics/moments.hpp"

#include <cmath>
#include <stdexcept>

namespace corvex::engine::inline v1 {

PeriodFigures period_figures(std::span<const double> returns, double riskfree_rate,
                             double periods_per_year) {
    if (!(riskfree_rate > -1.0) || std::isinf(riskfree_rate)) {
        throw std::invalid_argument("the risk-free rate must be a finite fraction above -1");
    }
    if (!(periods_per_year > 0.0) || std::isinf(periods_per_year)) {
        throw std::invalid_argument("the periods per year must be a positive number");
    }
    const double riskfree = std::pow(1.0 + riskfree_rate, 1.0 / periods_per_year) - 1.0;
    const Moments found = moments(returns, riskfree);
    if (found.count == 0) {
        return {};
    }
    const double root = std::sqrt(periods_per_year);
    PeriodFigures figures;
    // Without dispersion the ratio is undefined, not infinite.
    figures.sharpe =
        found.deviation > 0.0 ? found.excess / found.deviation * root : PeriodFigures::kUndefined;
    figures.sortino = found.excess / found.downside_deviation * root;
    figures.mean = found.mean * periods_per_year;
    figures.vol = found.deviation * root;
    figures.skew = found.skew;
    figures.kurt = found.kurt;
    figures.best = found.best;
    figures.worst = found.worst;
    return figures;
}

} // namespace corvex::engine::inline v1
