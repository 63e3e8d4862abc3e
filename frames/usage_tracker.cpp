#include "frames/usage_tracker.h"

namespace receiver {
namespace {

constexpr std::uint64_t StopThresholdMs = 4000;

} // namespace

bool UsageTracker::OnPoll(bool signaled, std::uint64_t nowMs) noexcept {
    const bool wasActive = consumerActive;
    if (signaled) {
        lastConsumerTick = nowMs;
        consumerActive = true;
    } else if (lastConsumerTick != 0 && nowMs - lastConsumerTick >= StopThresholdMs) {
        consumerActive = false;
    }
    return consumerActive != wasActive;
}

} // namespace receiver
