#pragma once

#include <stdexcept>
#include <string>

namespace corvex::engine::portfolio {

/// @throws std::invalid_argument unless the condition holds.
inline void require(bool condition, const std::string& message) {
    if (!condition) {
        throw std::invalid_argument(message);
    }
}

} // namespace corvex::engine::portfolio
