#pragma once

#include <cmath>
#include <stdexcept>
#include <string>

namespace corvex::engine::inline v1 {

/// @throws std::invalid_argument unless the condition holds.
inline void require(bool condition, const std::string& message) {
    if (!condition) {
        throw std::invalid_argument(message);
    }
}

/// A literal becomes a string only where it is thrown.
inline void require(bool condition, const char* message) {
    if (!condition) {
        throw std::invalid_argument(message);
    }
}

/// @throws std::invalid_argument for shares that are no finite number: too small a price buys them.
inline void require_countable(double shares) {
    if (!std::isfinite(shares)) {
        throw std::invalid_argument(
            "an order trades more shares than a number holds: its price is too small, or the "
            "equity too large");
    }
}

} // namespace corvex::engine::inline v1
