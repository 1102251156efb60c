#include "corvex/engine/portfolio/target_rows.hpp"

#include "corvex/engine/portfolio/require.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

constexpr std::size_t kLanes = 8;
constexpr std::size_t kBlock = 128;
/// Of rows that change, so many have room before more is taken.
constexpr std::size_t kRowsAtFirst = 256;

/// The sum of absolute values, pairwise: as exact for thousands of assets as for a few, and bit for
/// bit what array libraries give.
double absolute_sum(std::span<const double> values) {
    if (values.size() > kBlock) {
        const std::size_t half = values.size() / 2 / kLanes * kLanes;
        return absolute_sum(values.first(half)) + absolute_sum(values.subspan(half));
    }
    std::size_t at = 0;
    double sum = 0.0;
    if (values.size() >= kLanes) {
        std::array<double, kLanes> lane{};
        for (; at + kLanes <= values.size(); at += kLanes) {
            for (std::size_t i = 0; i < kLanes; ++i) {
                lane[i] += std::abs(values[at + i]);
            }
        }
        sum = ((lane[0] + lane[1]) + (lane[2] + lane[3])) +
              ((lane[4] + lane[5]) + (lane[6] + lane[7]));
    }
    for (; at < values.size(); ++at) {
        sum += std::abs(values[at]);
    }
    return sum;
}

double number(double value) { return std::isnan(value) ? 0.0 : value; }

double number(bool value) { return value ? 1.0 : 0.0; }

template <typename Value>
void read_row(const WeightView<Value>& weights, std::size_t row, std::span<double> out) {
    const Value* from = weights.data + static_cast<std::ptrdiff_t>(row) * weights.row_step;
    for (std::size_t asset = 0; asset < out.size(); ++asset) {
        out[asset] = number(from[static_cast<std::ptrdiff_t>(asset) * weights.asset_step]);
    }
}

/// Whether two rows are the same as they were given; most days bring no new weights.
template <typename Value>
bool same_row(const WeightView<Value>& weights, std::int64_t row, std::int64_t other) {
    const Value* left = weights.data + static_cast<std::ptrdiff_t>(row) * weights.row_step;
    const Value* right = weights.data + static_cast<std::ptrdiff_t>(other) * weights.row_step;
    if (weights.assets > 0 && *left != *right) {
        return false;
    }
    for (std::size_t asset = 1; asset < weights.assets; ++asset) {
        const auto step = static_cast<std::ptrdiff_t>(asset) * weights.asset_step;
        if (left[step] != right[step]) {
            return false;
        }
    }
    return true;
}

template <typename Value>
TargetRows read(const WeightView<Value>& weights, std::span<const std::int64_t> rows,
                const TargetRules& rules) {
    const auto inside = [&weights](std::int64_t row) {
        return row >= 0 && static_cast<std::size_t>(row) < weights.rows;
    };
    require(std::ranges::all_of(rows, inside), "a row lies outside the table of weights");
    require(!(rules.limit < 0.0), "the limit of a weight must not be negative");
    const std::size_t width = weights.assets;
    TargetRows found;
    found.targets.reserve((rules.only_changes ? std::min(rows.size(), kRowsAtFirst) : rows.size()) *
                          width);
    found.gross.reserve(rows.size());
    std::vector<double> before(width, 0.0);
    std::vector<double> target(width);
    double gross_before = 0.0;
    for (std::size_t at = 0; at < rows.size(); ++at) {
        if (rules.only_changes && at > 0 && same_row(weights, rows[at], rows[at - 1])) {
            found.gross.push_back(gross_before);
            continue;
        }
        read_row(weights, static_cast<std::size_t>(rows[at]), std::span{target});
        const double gross = gross_before = absolute_sum(target);
        found.gross.push_back(gross);
        if (!rules.leverage && gross > 1.0) {
            std::ranges::for_each(target, [gross](double& value) { value /= gross; });
        }
        if (std::isfinite(rules.limit)) {
            std::ranges::for_each(target, [&rules](double& value) {
                value = std::clamp(value, -rules.limit, rules.limit);
            });
        }
        if (!rules.only_changes || target != before) {
            found.kept.push_back(static_cast<std::int64_t>(at));
            found.targets.insert(found.targets.end(), target.begin(), target.end());
            before.swap(target);
        }
    }
    if (found.targets.capacity() > found.targets.size() + found.targets.size() / 4) {
        found.targets.shrink_to_fit();
    }
    return found;
}

} // namespace

TargetRows read_targets(const WeightView<double>& weights, std::span<const std::int64_t> rows,
                        const TargetRules& rules) {
    return read(weights, rows, rules);
}

TargetRows read_targets(const WeightView<bool>& weights, std::span<const std::int64_t> rows,
                        const TargetRules& rules) {
    return read(weights, rows, rules);
}

} // namespace corvex::engine::inline v1
