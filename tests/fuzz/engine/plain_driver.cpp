// Stands in for libFuzzer where the compiler has none: PROGRAM RUNS SEED gives random bytes.
//
// Deterministic. Where the process ends, or an input takes too long, its number is told: with
// FUZZ_ONLY=number it runs that input alone.
#include <csignal>
#include <random>
#include <string>
#include <unistd.h>

#include "bytes.hpp"

namespace {

constexpr unsigned kLongest = 20; ///< seconds for one input: far more is a hang

volatile std::sig_atomic_t present = 0; ///< input

/// Tells the present input, by what a signal handler may call.
extern "C" void tell_input(int signal) {
    char text[] = "ended in input           0 (FUZZ_ONLY runs it alone)\n";
    long number = present;
    for (char* digit = text + 25; number > 0; number /= 10) {
        *digit-- = static_cast<char>('0' + number % 10);
    }
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text, sizeof text - 1);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

// So that the sanitizers' findings end in a signal, too. They look the names up at run time.
extern "C" {
[[gnu::visibility("default")]] const char*
__asan_default_options() { // NOLINT(*-reserved-identifier)
    return "abort_on_error=1";
}
[[gnu::visibility("default")]] const char*
__ubsan_default_options() { // NOLINT(*-reserved-identifier)
    return "abort_on_error=1:print_stacktrace=1";
}
}

int main(int count, char** arguments) {
    const std::span all{arguments, static_cast<std::size_t>(count)};
    const std::uint64_t runs = all.size() > 1 ? std::stoull(all[1]) : 100'000;
    const std::uint64_t seed = all.size() > 2 ? std::stoull(all[2]) : 1;
    const char* const only = std::getenv("FUZZ_ONLY"); // NOLINT(concurrency-mt-unsafe)
    const std::uint64_t first = only != nullptr ? std::stoull(only) : 0;
    const std::uint64_t end = only != nullptr ? first + 1 : runs;
    for (const int signal : {SIGABRT, SIGALRM, SIGSEGV}) {
        std::signal(signal, tell_input);
    }
    for (std::uint64_t number = first; number < end; ++number) {
        std::mt19937_64 random{seed * 1'000'003 + number};
        std::vector<std::uint8_t> bytes(random() % (number % 16 == 0 ? 4096 : 512));
        std::ranges::generate(bytes, [&] { return static_cast<std::uint8_t>(random()); });
        present = static_cast<std::sig_atomic_t>(number);
        alarm(kLongest);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::cout << runs << " inputs, seed " << seed << '\n';
}
