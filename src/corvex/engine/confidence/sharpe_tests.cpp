#include "corvex/engine/confidence/sharpe_tests.hpp"

#include "corvex/engine/confidence/normal.hpp"
#include "corvex/engine/statistics/moments.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// The present returns less their mean.
std::vector<double> centred(std::span<const double> returns) {
    std::vector<double> kept(returns.begin(), returns.end());
    std::erase_if(kept, [](double value) { return std::isnan(value); });
    double sum = 0.0;
    for (const double value : kept) {
        sum += value;
    }
    const double mean = sum / static_cast<double>(kept.size());
    for (double& value : kept) {
        value -= mean;
    }
    return kept;
}

/// Sum of the products of values that lie `lag` apart.
double lagged_product(std::span<const double> values, std::size_t lag) {
    double sum = 0.0;
    for (std::size_t i = lag; i < values.size(); ++i) {
        sum += values[i] * values[i - lag];
    }
    return sum;
}

} // namespace

SharpeSample sharpe_sample(std::span<const double> returns, double riskfree) {
    const Moments found = moments(returns, 0.0);
    SharpeSample sample{kNaN, kNaN, kNaN, found.count};
    if (found.count < 2 || !(found.deviation > 0.0)) {
        return sample;
    }
    double squares = 0.0;
    double cubes = 0.0;
    double fourths = 0.0;
    for (const double value : returns) {
        const double distance = std::isnan(value) ? 0.0 : value - found.mean;
        const double square = distance * distance;
        squares += square;
        cubes += square * distance;
        fourths += square * square;
    }
    const double n = static_cast<double>(found.count);
    const double variance = squares / n;
    sample.sharpe = (found.mean - riskfree) / found.deviation;
    sample.skewness = cubes / n / std::pow(variance, 1.5);
    sample.kurtosis = fourths / n / (variance * variance);
    return sample;
}

double sharpe_dispersion(const SharpeSample& sample) {
    return 1.0 - sample.skewness * sample.sharpe +
           (sample.kurtosis - 1.0) / 4.0 * sample.sharpe * sample.sharpe;
}

double probabilistic_sharpe(const SharpeSample& sample, double threshold) {
    const double dispersion = sharpe_dispersion(sample);
    if (!(dispersion > 0.0) || sample.count < 2) {
        return kNaN;
    }
    const double steps = std::sqrt(static_cast<double>(sample.count) - 1.0);
    return normal_cdf((sample.sharpe - threshold) * steps / std::sqrt(dispersion));
}

double minimum_track_record(const SharpeSample& sample, double threshold, double confidence) {
    if (!(confidence > 0.0 && confidence < 1.0)) {
        throw std::invalid_argument("the confidence must lie between 0 and 1");
    }
    const double distance = sample.sharpe - threshold;
    if (std::isnan(distance)) {
        return kNaN;
    }
    if (distance <= 0.0) {
        return std::numeric_limits<double>::infinity();
    }
    const double ratio = normal_quantile(confidence) / distance;
    return 1.0 + sharpe_dispersion(sample) * ratio * ratio;
}

double expected_largest_sharpe(double spread, double trials) {
    if (!(trials >= 1.0) || !(spread >= 0.0)) {
        return kNaN;
    }
    if (trials == 1.0) {
        return 0.0;
    }
    const double euler = std::numbers::egamma;
    return spread * ((1.0 - euler) * -normal_quantile(1.0 / trials) +
                     euler * -normal_quantile(1.0 / (trials * std::numbers::e)));
}

double autocorrelated_scale(std::span<const double> returns, double periods, std::size_t lags) {
    const std::vector<double> values = centred(returns);
    const double squares = lagged_product(values, 0);
    if (values.size() < 2 || !(squares > 0.0)) {
        return kNaN;
    }
    double variance = periods;
    for (std::size_t lag = 1; lag <= std::min(lags, values.size() - 1); ++lag) {
        const double weight = periods - static_cast<double>(lag);
        if (weight <= 0.0) {
            break;
        }
        variance += 2.0 * weight * lagged_product(values, lag) / squares;
    }
    return variance > 0.0 ? periods / std::sqrt(variance) : kNaN;
}

double mean_t_statistic(std::span<const double> returns, std::size_t lags) {
    const Moments found = moments(returns, 0.0);
    if (found.count < 2 || !(found.deviation > 0.0)) {
        return kNaN;
    }
    const std::vector<double> values = centred(returns);
    const double n = static_cast<double>(values.size());
    double variance = lagged_product(values, 0);
    for (std::size_t lag = 1; lag <= std::min(lags, values.size() - 1); ++lag) {
        const double weight = 1.0 - static_cast<double>(lag) / (static_cast<double>(lags) + 1.0);
        variance += 2.0 * weight * lagged_product(values, lag);
    }
    return variance > 0.0 ? found.mean * n / std::sqrt(variance) : kNaN;
}

std::size_t usual_lags(std::size_t count) {
    return static_cast<std::size_t>(4.0 * std::pow(static_cast<double>(count) / 100.0, 2.0 / 9.0));
}

} // namespace corvex::engine::inline v1
