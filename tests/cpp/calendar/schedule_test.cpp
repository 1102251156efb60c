#include "corvex/engine/calendar/schedule.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

TEST(Schedule, TakesTheRowAtOrBeforeADate) {
    const std::vector<Nanos> sessions{10, 20, 30};
    const std::vector<Nanos> dates{5, 10, 25, 99};
    EXPECT_EQ(rows_at_or_before(sessions, dates), (std::vector<std::int64_t>{-1, 0, 1, 2}));
}

TEST(Schedule, RefusesWhatItDoesNotKnow) {
    for (const char* alias :
         {"", "X", "W-", "W-FOO", "D-MON", "0D", "ME-JAN", "BD", "1.5D", "-1D"}) {
        EXPECT_THROW(parse_period_rule(alias), std::invalid_argument) << alias;
    }
    const std::vector<Nanos> unsorted{2, 1};
    EXPECT_THROW(period_last_sessions(unsorted, {}), std::invalid_argument);
}

} // namespace
} // namespace corvex::engine
