#include "frames/usage_state.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>

namespace receiver {
namespace {

constexpr std::uint64_t Start = 1000000;

class UsageStateTest : public testing::Test {
protected:
    std::optional<UsageChange> Poll(bool signalled, std::uint64_t nowMs) {
        return OnUsagePoll(signalled, nowMs, lastSignalMs, inUse);
    }

    std::uint64_t lastSignalMs = 0;
    bool inUse = false;
};

TEST_F(UsageStateTest, WithoutSignalsNothingHappens) {
    for (const std::uint64_t now : {std::uint64_t{0}, Start, Start + 1000, Start + 100000}) {
        EXPECT_EQ(Poll(false, now), std::nullopt);
        EXPECT_FALSE(inUse);
        EXPECT_EQ(lastSignalMs, 0U);
    }
}

TEST_F(UsageStateTest, TheFirstSignalStarts) {
    EXPECT_EQ(Poll(false, Start), std::nullopt);
    EXPECT_EQ(Poll(true, Start + 1000), UsageChange::Started);
    EXPECT_TRUE(inUse);
    EXPECT_EQ(lastSignalMs, Start + 1000);
}

TEST_F(UsageStateTest, FurtherSignalsAreNoNews) {
    EXPECT_EQ(Poll(true, Start), UsageChange::Started);
    for (std::uint64_t now = Start + 1000; now <= Start + 20000; now += 1000) {
        EXPECT_EQ(Poll(true, now), std::nullopt);
        EXPECT_EQ(lastSignalMs, now);
    }
    EXPECT_TRUE(inUse);
}

TEST_F(UsageStateTest, SilenceStopsAfterFourSecondsAndNotEarlier) {
    EXPECT_EQ(Poll(true, Start), UsageChange::Started);
    for (const std::uint64_t silentMs : {0U, 1000U, 3000U, 3999U}) {
        EXPECT_EQ(Poll(false, Start + silentMs), std::nullopt);
        EXPECT_TRUE(inUse);
    }
    EXPECT_EQ(Poll(false, Start + 4000), UsageChange::Stopped);
    EXPECT_FALSE(inUse);
    EXPECT_EQ(Poll(false, Start + 5000), std::nullopt);
}

TEST_F(UsageStateTest, ALatePollStops) {
    EXPECT_EQ(Poll(true, Start), UsageChange::Started);
    EXPECT_EQ(Poll(false, Start + 4001), UsageChange::Stopped);
}

TEST_F(UsageStateTest, SilenceIsCountedFromTheLastSignal) {
    EXPECT_EQ(Poll(true, Start), UsageChange::Started);
    EXPECT_EQ(Poll(false, Start + 3999), std::nullopt);
    EXPECT_EQ(Poll(true, Start + 4000), std::nullopt);
    EXPECT_EQ(Poll(false, Start + 7999), std::nullopt);
    EXPECT_EQ(Poll(false, Start + 8000), UsageChange::Stopped);
}

TEST_F(UsageStateTest, ASignalAfterALongSilenceThatNoPollSawIsNoNews) {
    EXPECT_EQ(Poll(true, Start), UsageChange::Started);
    EXPECT_EQ(Poll(true, Start + 60000), std::nullopt);
    EXPECT_TRUE(inUse);
}

TEST_F(UsageStateTest, StartsAgain) {
    for (std::uint64_t now = Start; now < Start + 50000; now += 10000) {
        EXPECT_EQ(Poll(true, now), UsageChange::Started);
        EXPECT_EQ(Poll(false, now + 4000), UsageChange::Stopped);
    }
}

TEST_F(UsageStateTest, TimesBeyond32BitsCount) {
    const std::uint64_t late = std::numeric_limits<std::uint32_t>::max() - std::uint64_t{1999};
    EXPECT_EQ(Poll(true, late), UsageChange::Started);
    EXPECT_EQ(Poll(false, late + 3999), std::nullopt);
    EXPECT_EQ(Poll(false, late + 4000), UsageChange::Stopped);
    EXPECT_EQ(Poll(true, late + (std::uint64_t{1} << 32)), UsageChange::Started);
    EXPECT_EQ(lastSignalMs, late + (std::uint64_t{1} << 32));
}

TEST_F(UsageStateTest, ASignalAtTimeZeroCountsAsNone) {
    EXPECT_EQ(Poll(true, 0), UsageChange::Started);
    EXPECT_EQ(Poll(false, 100000), std::nullopt);
    EXPECT_TRUE(inUse);
}

} // namespace
} // namespace receiver
