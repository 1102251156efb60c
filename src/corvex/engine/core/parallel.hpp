#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace corvex::engine::inline v1 {

/// Calls `work(begin, end)` on consecutive pieces of [0, count), `step` long, from several threads.
/// The order of the pieces is open, so each must write to a place of its own. Each thread calls its
/// own copy of `work`, whose members are thus memory that the thread keeps from piece to piece. The
/// first exception that a piece throws is thrown on, after all threads have ended.
///
/// @param threads  0 = one for each core; never more than there are pieces
template <typename Work>
void in_parallel(std::size_t count, std::size_t step, unsigned threads, const Work& work) {
    const std::size_t pieces = (count + step - 1) / step;
    const std::size_t wanted =
        threads > 0 ? threads : std::max(1U, std::thread::hardware_concurrency());
    std::atomic<std::size_t> next{0};
    std::exception_ptr failure;
    std::mutex guard;
    const auto run = [&] {
        try {
            Work own = work;
            for (std::size_t piece = next++; piece < pieces; piece = next++) {
                own(piece * step, std::min(count, (piece + 1) * step));
            }
        } catch (...) {
            const std::scoped_lock held(guard);
            failure = failure ? failure : std::current_exception();
            next = pieces;
        }
    };
    std::vector<std::jthread> helpers;
    try {
        for (std::size_t i = 1; i < std::min(wanted, pieces); ++i) {
            helpers.emplace_back(run);
        }
    } catch (const std::system_error&) { // no more threads to be had: fewer do the same work
    }
    run();
    helpers.clear(); // joins
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace corvex::engine::inline v1
