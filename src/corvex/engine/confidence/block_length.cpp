#include "corvex/engine/confidence/block_length.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

struct LaggedMoments {
    double covariance;
    double correlation; ///< without sign
};

LaggedMoments lagged(std::span<const double> centred, std::size_t lag) {
    double product = 0.0;
    double early = 0.0;
    double late = 0.0;
    for (std::size_t i = lag; i < centred.size(); ++i) {
        product += centred[i] * centred[i - lag];
        early += centred[i - lag] * centred[i - lag];
        late += centred[i] * centred[i];
    }
    const double scale = std::sqrt(early * late);
    return {product / static_cast<double>(centred.size()),
            scale > 0.0 ? std::abs(product) / scale : 0.0};
}

/// Twice the lag at which `run` insignificant ones in a row begin; `most` where there is no such
/// run.
std::size_t bandwidth(std::span<const LaggedMoments> moments, std::size_t run, double threshold,
                      std::size_t most) {
    std::size_t quiet = 0;
    for (std::size_t lag = 1; lag < moments.size(); ++lag) {
        quiet = moments[lag].correlation < threshold ? quiet + 1 : 0;
        if (quiet == run) {
            return std::min(2 * (lag + 1 - run), most);
        }
    }
    return most;
}

/// The flat-top window: 1 up to the half, then falling to 0.
double window(double share) { return share <= 0.5 ? 1.0 : 2.0 * (1.0 - share); }

} // namespace

double automatic_block_length(std::span<const double> values) {
    const double n = static_cast<double>(values.size());
    double mean = 0.0;
    for (const double value : values) {
        mean += value / n;
    }
    std::vector<double> centred(values.begin(), values.end());
    for (double& value : centred) {
        value -= mean;
    }
    if (values.size() < 4 || lagged(centred, 0).covariance <= 0.0) {
        return 1.0;
    }
    const auto run = std::max<std::size_t>(5, static_cast<std::size_t>(std::sqrt(std::log10(n))));
    const auto most =
        std::min(static_cast<std::size_t>(std::ceil(std::sqrt(n))) + run, values.size() - 1);
    std::vector<LaggedMoments> moments;
    for (std::size_t lag = 0; lag <= most; ++lag) {
        moments.push_back(lagged(centred, lag));
    }
    const std::size_t width = bandwidth(moments, run, 2.0 * std::sqrt(std::log10(n) / n), most);
    double slope = 0.0;
    double spectrum = moments[0].covariance;
    for (std::size_t lag = 1; lag <= width; ++lag) {
        const double k = static_cast<double>(lag);
        const double weighted = window(k / static_cast<double>(width)) * moments[lag].covariance;
        slope += 2.0 * k * weighted;
        spectrum += 2.0 * weighted;
    }
    const double longest = std::ceil(std::min(3.0 * std::sqrt(n), n / 3.0));
    if (spectrum == 0.0) {
        return longest;
    }
    const double length = std::cbrt(slope * slope / (spectrum * spectrum) * n);
    return std::clamp(length, 1.0, longest);
}

} // namespace corvex::engine::inline v1
