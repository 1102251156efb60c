#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Builds a function for AVX2 as well and lets the loader choose; elsewhere it means nothing. (The
/// choice is made before a sanitizer is ready, so there are no clones under one; and clang wants
/// the attribute at the first declaration, which is the reader's.)
#if defined(__x86_64__) && defined(__gnu_linux__) && !defined(__SANITIZE_ADDRESS__) &&             \
    !defined(__clang__)
#define CORVEX_VECTOR_CLONES [[gnu::target_clones("avx2", "default")]]
#else
#define CORVEX_VECTOR_CLONES
#endif

namespace corvex::engine::inline v1 {

/// Four numbers that are worked on at once. Comparisons give a LaneMask, `mask ? a : b` chooses.
using Lanes = double __attribute__((vector_size(32)));
using LaneMask = std::int64_t __attribute__((vector_size(32)));

inline constexpr std::size_t kLanes = 4;

/// Always inlined: a call would have to agree on registers that not every machine has.
[[gnu::always_inline]] inline void load(const double* from, Lanes& to) {
    std::memcpy(&to, from, sizeof to);
}

[[gnu::always_inline]] inline void store(const Lanes& from, double* to) {
    std::memcpy(to, &from, sizeof from);
}

[[gnu::always_inline]] inline double sum(const Lanes& values) {
    return (values[0] + values[1]) + (values[2] + values[3]);
}

[[gnu::always_inline]] inline bool any(const LaneMask& mask) {
    return (mask[0] | mask[1] | mask[2] | mask[3]) != 0;
}

/// Asks for memory that is read soon. Rows of a table follow each other, but what the processor
/// looks ahead by itself ends at each page.
[[gnu::always_inline]] inline void prefetch(const double* address) { __builtin_prefetch(address); }

} // namespace corvex::engine::inline v1
