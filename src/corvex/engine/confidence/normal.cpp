#include "corvex/engine/confidence/normal.hpp"

#include <array>
#include <cmath>
#include <limits>
#include <numbers>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kTail = 0.02425; ///< beyond it the approximation is one in sqrt(-2 ln p)

template <std::size_t n>
double polynomial(const std::array<double, n>& coefficients, double x) {
    double value = 0.0;
    for (const double coefficient : coefficients) {
        value = value * x + coefficient;
    }
    return value;
}

double lower_tail(double probability) {
    constexpr std::array kTop{-7.784894002430293e-03, -3.223964580411365e-01,
                              -2.400758277161838e+00, -2.549732539343734e+00,
                              4.374664141464968e+00,  2.938163982698783e+00};
    constexpr std::array kBottom{7.784695709041462e-03, 3.224671290700398e-01,
                                 2.445134137142996e+00, 3.754408661907416e+00, 1.0};
    const double q = std::sqrt(-2.0 * std::log(probability));
    return polynomial(kTop, q) / polynomial(kBottom, q);
}

double centre(double probability) {
    constexpr std::array kTop{-3.969683028665376e+01, 2.209460984245205e+02,
                              -2.759285104469687e+02, 1.383577518672690e+02,
                              -3.066479806614716e+01, 2.506628277459239e+00};
    constexpr std::array kBottom{-5.447609879822406e+01, 1.615858368580409e+02,
                                 -1.556989798598866e+02, 6.680131188771972e+01,
                                 -1.328068155288572e+01, 1.0};
    const double q = probability - 0.5;
    const double r = q * q;
    return polynomial(kTop, r) * q / polynomial(kBottom, r);
}

} // namespace

double normal_cdf(double value) { return 0.5 * std::erfc(-value / std::numbers::sqrt2); }

double normal_quantile(double probability) {
    if (std::isnan(probability) || probability < 0.0 || probability > 1.0) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    if (probability == 0.0 || probability == 1.0) {
        return (probability - 0.5) * std::numeric_limits<double>::infinity();
    }
    if (probability > 0.5) {
        return -normal_quantile(1.0 - probability); // the lower tail keeps more digits
    }
    const double rough = probability < kTail ? lower_tail(probability) : centre(probability);
    const double error = normal_cdf(rough) - probability;
    const double step = error * std::sqrt(2.0 * std::numbers::pi) * std::exp(0.5 * rough * rough);
    return rough - step / (1.0 + 0.5 * rough * step);
}

} // namespace corvex::engine::inline v1
