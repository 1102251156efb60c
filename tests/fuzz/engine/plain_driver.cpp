// Stands in for libFuzzer where the compiler has none: PROGRAM RUNS SEED gives random bytes.
//
// Deterministic. With FUZZ_ONLY=number it runs that input alone.
#include <random>
#include <string>

#include "bytes.hpp"

int main(int count, char** arguments) {
    const std::span all{arguments, static_cast<std::size_t>(count)};
    const std::uint64_t runs = all.size() > 1 ? std::stoull(all[1]) : 100'000;
    const std::uint64_t seed = all.size() > 2 ? std::stoull(all[2]) : 1;
    const char* const only = std::getenv("FUZZ_ONLY"); // NOLINT(concurrency-mt-unsafe)
    const std::uint64_t first = only != nullptr ? std::stoull(only) : 0;
    const std::uint64_t end = only != nullptr ? first + 1 : runs;
    for (std::uint64_t number = first; number < end; ++number) {
        std::mt19937_64 random{seed * 1'000'003 + number};
        std::vector<std::uint8_t> bytes(random() % (number % 16 == 0 ? 4096 : 512));
        std::ranges::generate(bytes, [&] { return static_cast<std::uint8_t>(random()); });
        // Told beforehand, should the process end: the last line names the input.
        if (number % 10'000 == 0 || only != nullptr) {
            std::cerr << "input " << number << " of seed " << seed << '\n';
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::cout << runs << " inputs, seed " << seed << '\n';
}
