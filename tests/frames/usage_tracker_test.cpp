// UsageTracker: when the consumer of the virtual camera starts and stops, from polls at given times.
#include "frames/usage_tracker.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace receiver {
namespace {

constexpr std::uint64_t Start = 1000000;

class UsageTrackerTest : public testing::Test {
protected:
    // Polls that change the state and polls that do not.
    void ExpectChange(bool signaled, std::uint64_t nowMs) {
        const bool wasActive = tracker.ConsumerActive();
        EXPECT_TRUE(tracker.OnPoll(signaled, nowMs)) << nowMs;
        EXPECT_NE(tracker.ConsumerActive(), wasActive) << nowMs;
    }
    void ExpectNoChange(bool signaled, std::uint64_t nowMs) {
        const bool wasActive = tracker.ConsumerActive();
        EXPECT_FALSE(tracker.OnPoll(signaled, nowMs)) << nowMs;
        EXPECT_EQ(tracker.ConsumerActive(), wasActive) << nowMs;
    }

    UsageTracker tracker;
};

TEST_F(UsageTrackerTest, StaysIdleWithoutSignals) {
    EXPECT_FALSE(tracker.ConsumerActive());
    for (const std::uint64_t now : {std::uint64_t{0}, Start, Start + 1000, Start + 100000}) {
        ExpectNoChange(false, now);
    }
    EXPECT_FALSE(tracker.ConsumerActive());
}

TEST_F(UsageTrackerTest, StartsWithTheFirstSignal) {
    ExpectNoChange(false, Start);
    ExpectChange(true, Start + 1000);
    EXPECT_TRUE(tracker.ConsumerActive());
}

TEST_F(UsageTrackerTest, FurtherSignalsChangeNothing) {
    ExpectChange(true, Start);
    for (std::uint64_t now = Start + 1000; now <= Start + 20000; now += 1000) {
        ExpectNoChange(true, now);
    }
    EXPECT_TRUE(tracker.ConsumerActive());
}

TEST_F(UsageTrackerTest, StopsAfterFourSecondsWithoutASignalAndNotEarlier) {
    ExpectChange(true, Start);
    for (const std::uint64_t silentMs : {0U, 1000U, 3000U, 3999U}) {
        ExpectNoChange(false, Start + silentMs);
    }
    ExpectChange(false, Start + 4000);
    EXPECT_FALSE(tracker.ConsumerActive());
    ExpectNoChange(false, Start + 5000);
}

TEST_F(UsageTrackerTest, StopsAtALatePoll) {
    ExpectChange(true, Start);
    ExpectChange(false, Start + 4001);
}

TEST_F(UsageTrackerTest, CountsTheSilenceFromTheLastSignal) {
    ExpectChange(true, Start);
    ExpectNoChange(false, Start + 3999);
    ExpectNoChange(true, Start + 4000);
    ExpectNoChange(false, Start + 7999);
    ExpectChange(false, Start + 8000);
}

TEST_F(UsageTrackerTest, ASignalAfterALongSilenceWithoutPollsChangesNothing) {
    ExpectChange(true, Start);
    ExpectNoChange(true, Start + 60000);
    EXPECT_TRUE(tracker.ConsumerActive());
}

TEST_F(UsageTrackerTest, StartsAgainAfterAStop) {
    for (std::uint64_t now = Start; now < Start + 50000; now += 10000) {
        ExpectChange(true, now);
        ExpectChange(false, now + 4000);
    }
}

TEST_F(UsageTrackerTest, HandlesTimesBeyond32Bits) {
    const std::uint64_t late = std::numeric_limits<std::uint32_t>::max() - std::uint64_t{1999};
    ExpectChange(true, late);
    ExpectNoChange(false, late + 3999);
    ExpectChange(false, late + 4000);
    const std::uint64_t later = late + (std::uint64_t{1} << 32);
    ExpectChange(true, later);
    ExpectNoChange(false, later + 3999);
    ExpectChange(false, later + 4000);
    ExpectChange(true, Start);
    ExpectChange(false, Start + (std::uint64_t{1} << 32)); // a silence of 49.7 days
}

TEST_F(UsageTrackerTest, NeverStopsWhenTheOnlySignalWasAtTimeZero) {
    ExpectChange(true, 0);
    ExpectNoChange(false, 100000);
    EXPECT_TRUE(tracker.ConsumerActive());
}

} // namespace
} // namespace receiver
