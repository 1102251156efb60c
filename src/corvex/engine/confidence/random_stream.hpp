#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace corvex::engine::inline v1 {

/// Random numbers that are the same on every machine: xoshiro256++, started for each draw from
/// (seed, draw) by splitmix64, so that it does not matter which thread makes which draw. The
/// standard library's distributions are left to each implementation, hence `below` and `unit`.
/// Source: D. Blackman and S. Vigna, "Scrambled linear pseudorandom number generators", ACM TOMS
/// 47 (2021).
class RandomStream {
  public:
    RandomStream(std::uint64_t seed, std::uint64_t draw) {
        std::uint64_t mixed = splitmix(seed) ^ draw;
        for (std::uint64_t& word : state_) {
            mixed += 0x9e3779b97f4a7c15U;
            word = splitmix(mixed);
        }
    }

    std::uint64_t next() {
        const std::uint64_t result = std::rotl(state_[0] + state_[3], 23) + state_[0];
        const std::uint64_t shifted = state_[1] << 17U;
        state_[2] ^= state_[0];
        state_[3] ^= state_[1];
        state_[1] ^= state_[2];
        state_[0] ^= state_[3];
        state_[2] ^= shifted;
        state_[3] = std::rotl(state_[3], 45);
        return result;
    }

    /// A whole number in [0, bound) out of 32 random bits; the bias is below bound / 2^32.
    static std::uint32_t below(std::uint32_t bits, std::uint32_t bound) {
        return static_cast<std::uint32_t>((std::uint64_t{bits} * bound) >> 32U);
    }

    /// A number in [0, 1).
    double unit() { return static_cast<double>(next() >> 11U) * 0x1.0p-53; }

  private:
    static std::uint64_t splitmix(std::uint64_t value) {
        value += 0x9e3779b97f4a7c15U;
        value = (value ^ (value >> 30U)) * 0xbf58476d1ce4e5b9U;
        value = (value ^ (value >> 27U)) * 0x94d049bb133111ebU;
        return value ^ (value >> 31U);
    }

    std::array<std::uint64_t, 4> state_{};
};

} // namespace corvex::engine::inline v1
