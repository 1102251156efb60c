#include "corvex/engine/confidence/overfitting.hpp"
#include "corvex/engine/core/lanes.hpp"
#include "corvex/engine/core/parallel.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

constexpr std::size_t kVectorsAtOnce = 4;

/// Rows of numbers, each of length 1 and mean 0 where there is dispersion.
struct Unit {
    std::vector<double> values; ///< vectors x length
    std::size_t vectors = 0;
    std::size_t length = 0;

    [[nodiscard]] std::span<const double> operator[](std::size_t i) const {
        return std::span(values).subspan(i * length, length);
    }
};

/// The trials one after the other, less their mean and of length 1; those that rest are left out.
Unit standardised(std::span<const double> returns, std::size_t rows, std::size_t trials) {
    Unit unit{{}, 0, rows};
    std::vector<double> trial(rows);
    for (std::size_t k = 0; k < trials; ++k) {
        double mean = 0.0;
        for (std::size_t row = 0; row < rows; ++row) {
            mean += returns[row * trials + k] / static_cast<double>(rows);
        }
        double squares = 0.0;
        for (std::size_t row = 0; row < rows; ++row) {
            trial[row] = returns[row * trials + k] - mean;
            squares += trial[row] * trial[row];
        }
        if (!std::isfinite(squares)) {
            throw std::invalid_argument("the returns must be finite, none missing");
        }
        if (squares <= 1e-30 * (1.0 + mean * mean) * static_cast<double>(rows)) {
            continue;
        }
        for (const double value : trial) {
            unit.values.push_back(value / std::sqrt(squares));
        }
        ++unit.vectors;
    }
    return unit;
}

/// The same numbers with rows and columns exchanged: as many products, of the shorter side.
Unit transposed(const Unit& unit) {
    Unit other{std::vector<double>(unit.values.size()), unit.length, unit.vectors};
    for (std::size_t i = 0; i < unit.vectors; ++i) {
        for (std::size_t j = 0; j < unit.length; ++j) {
            other.values[j * other.length + i] = unit.values[i * unit.length + j];
        }
    }
    return other;
}

CORVEX_VECTOR_CLONES double product(std::span<const double> a, std::span<const double> b) {
    double sums[8] = {};
    std::size_t i = 0;
    for (; i + 8 <= a.size(); i += 8) {
        for (std::size_t lane = 0; lane < 8; ++lane) {
            sums[lane] += a[i + lane] * b[i + lane];
        }
    }
    for (; i < a.size(); ++i) {
        sums[0] += a[i] * b[i];
    }
    return ((sums[0] + sums[1]) + (sums[2] + sums[3])) +
           ((sums[4] + sums[5]) + (sums[6] + sums[7]));
}

} // namespace

double effective_trials(std::span<const double> returns, std::size_t rows, std::size_t trials,
                        unsigned threads) {
    if (returns.size() != rows * trials) {
        throw std::invalid_argument("the returns must be rows x trials");
    }
    Unit unit = standardised(returns, rows, trials);
    const double count = static_cast<double>(unit.vectors);
    if (unit.vectors == 0) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    // The squares of X'X and of XX' have the same sum, so the smaller of the two is worked out.
    if (unit.vectors > unit.length) {
        unit = transposed(unit);
    }
    std::vector<double> sums(unit.vectors);
    in_parallel(unit.vectors, kVectorsAtOnce, threads, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            for (std::size_t j = 0; j < i; ++j) {
                const double found = product(unit[i], unit[j]);
                sums[i] += 2.0 * found * found;
            }
            const double own = product(unit[i], unit[i]);
            sums[i] += own * own;
        }
    });
    double total = 0.0;
    for (const double sum : sums) {
        total += sum;
    }
    return count * count / total;
}

} // namespace corvex::engine::inline v1
