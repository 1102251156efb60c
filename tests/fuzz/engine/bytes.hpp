#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <span>
#include <vector>

namespace corvex::fuzz {

/// Ends the process, as a fuzzer expects of a fault.
inline void require(bool condition, const char* what) {
    if (!condition) {
        std::cerr << "fault: " << what << '\n';
        std::abort();
    }
}

/// Reads an input from the bytes that a fuzzer gives; zeros once they are used up.
class Bytes {
  public:
    explicit Bytes(std::span<const std::uint8_t> bytes) : rest_{bytes} {}

    template <typename Number>
    Number raw() {
        Number value{};
        const std::size_t taken = std::min(sizeof value, rest_.size());
        if (taken > 0) {
            std::memcpy(&value, rest_.data(), taken);
        }
        rest_ = rest_.subspan(taken);
        return value;
    }

    std::size_t below(std::size_t bound) { return raw<std::uint8_t>() % bound; }
    bool flag() { return (raw<std::uint8_t>() & 1U) != 0; }

    /// An ordinary price, a missing one, or any number there is.
    double price(bool sane) {
        const auto choice = raw<std::uint8_t>();
        if (sane || choice < 200) {
            return 1.0 + choice / 2.0;
        }
        constexpr double kOdd[] = {std::numeric_limits<double>::quiet_NaN(),
                                   std::numeric_limits<double>::infinity(),
                                   0.0,
                                   -1.0,
                                   5e-324,
                                   1.7e308};
        return choice < 240 ? kOdd[choice % std::size(kOdd)] : raw<double>();
    }

    /// Moments: days from one on, hours, centuries, or anything, in any order.
    std::vector<std::int64_t> times(std::size_t count) {
        constexpr std::int64_t kHour = 3'600'000'000'000;
        const auto form = below(4);
        const auto hours = static_cast<std::int64_t>(below(3) == 0 ? 1 : 24 * (1 + below(40)));
        auto time = form == 0 ? std::int64_t{0} : raw<std::int64_t>();
        std::vector<std::int64_t> found(count);
        for (std::int64_t& next : found) {
            next = time;
            time = form == 3 ? raw<std::int64_t>()
                             : static_cast<std::int64_t>(static_cast<std::uint64_t>(time) +
                                                         static_cast<std::uint64_t>(hours * kHour));
        }
        return found;
    }

  private:
    std::span<const std::uint8_t> rest_;
};

} // namespace corvex::fuzz

/// What each program defines: the interface that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
