// When a line is due about what is refused, in simulated time.

#include "refusal_count.h"

#include <gtest/gtest.h>

namespace client {

namespace {

using std::chrono::milliseconds;

class RefusalCountTest : public testing::Test {
protected:
    RefusalCount::Clock::time_point now{};
    RefusalCount count;
};

TEST_F(RefusalCountTest, TheFirstOneIsToldAtOnce)
{
    EXPECT_EQ(count.add(now), 1u);
}

TEST_F(RefusalCountTest, AFloodHasALineAMinuteWithItsNumber)
{
    constexpr auto step = milliseconds(1);
    quint64 refused = 0;
    quint64 told = 0;
    int lines = 0;
    for (; now < RefusalCount::Clock::time_point(RefusalCount::quiet * 10); now += step) {
        ++refused;
        if (const auto more = count.add(now)) {
            told += *more;
            ++lines;
        }
    }
    EXPECT_EQ(lines, 10);
    // What came after the last line is told with the next one.
    EXPECT_EQ(refused - told, quint64(RefusalCount::quiet / step - 1));
    EXPECT_EQ(count.add(now), refused - told + 1);
}

TEST_F(RefusalCountTest, ALineIsDueAgainWhenTheMinuteIsOver)
{
    count.add(now);
    EXPECT_EQ(count.add(now + RefusalCount::quiet - milliseconds(1)), std::nullopt);
    EXPECT_EQ(count.add(now + RefusalCount::quiet), 2u);
    EXPECT_EQ(count.add(now + RefusalCount::quiet * 3), 1u);
}

} // namespace

} // namespace client
