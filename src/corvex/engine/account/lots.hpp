#pragma once

#include <cmath>

namespace corvex::engine::inline v1 {

/// Nearer than this part of a lot to a whole number of lots is that number.
inline constexpr double kLotRounding = 1e-9;

/// Shares in whole lots, rounded towards zero; a lot that is not above zero is no lot. (What is
/// rounded to nothing from below has no sign: -0.0 + 0.0 is 0.0.)
inline double whole_lots(double shares, double lot) {
    return lot > 0.0
               ? std::copysign(std::floor(std::abs(shares) / lot + kLotRounding) * lot, shares) +
                     0.0
               : shares;
}

/// The same, to the nearest whole lot; a half goes towards zero.
inline double nearest_lots(double shares, double lot) {
    return lot > 0.0 ? std::copysign(std::ceil(std::abs(shares) / lot - 0.5 - kLotRounding) * lot,
                                     shares) +
                           0.0
                     : shares;
}

} // namespace corvex::engine::inline v1
