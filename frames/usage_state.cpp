#include "frames/usage_state.h"

namespace receiver {

std::optional<UsageChange> OnUsagePoll(bool signalled, std::uint64_t nowMs, std::uint64_t& lastSignalMs,
                                       bool& inUse) noexcept {
    if (signalled) {
        lastSignalMs = nowMs;
        if (inUse) {
            return std::nullopt;
        }
        inUse = true;
        return UsageChange::Started;
    }
    if (!inUse || lastSignalMs == 0 || nowMs - lastSignalMs < StopThresholdMs) {
        return std::nullopt;
    }
    inUse = false;
    return UsageChange::Stopped;
}

} // namespace receiver
