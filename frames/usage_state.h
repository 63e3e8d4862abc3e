// Whether some application is pulling frames from the virtual camera, told from one poll of its signal a second.
// Pure: the caller polls, and tells the time.
#pragma once

#include <cstdint>
#include <optional>

namespace receiver {

enum class UsageChange { Started, Stopped };

inline constexpr std::uint64_t StopThresholdMs = 4000;

// The first signalled poll starts the usage; the first poll at least StopThresholdMs after the last signalled one ends
// it. `lastSignalMs` (0: never signalled) and `inUse` are the state, kept by the caller from poll to poll.
[[nodiscard]] std::optional<UsageChange> OnUsagePoll(bool signalled, std::uint64_t nowMs, std::uint64_t& lastSignalMs,
                                                     bool& inUse) noexcept;

} // namespace receiver
