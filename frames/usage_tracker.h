// Decides from the polled signal of the virtual camera whether a consumer, an application that pulls frames from the
// camera, is active. Pure: the caller polls and passes the time.
#pragma once

#include <cstdint>

namespace receiver {

class UsageTracker {
public:
    // Takes the result of one poll; true when it changes ConsumerActive(). The first signaled poll makes the consumer
    // active; the first poll at least 4000 ms after the last signaled one ends that.
    [[nodiscard]] bool OnPoll(bool signaled, std::uint64_t nowMs) noexcept;
    [[nodiscard]] bool ConsumerActive() const noexcept { return consumerActive; }

private:
    std::uint64_t lastConsumerTick = 0; // milliseconds, the time of the last signaled poll; 0: never signaled
    bool consumerActive = false;
};

} // namespace receiver
