// What this process holds: bytes of memory of its own, and handles.
#pragma once

#include "tests/rig/driver/handle_count.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace sample_camera {

struct Held {
    static constexpr std::size_t AllowedBytes = 1 << 20; // by which a process may grow: less than one frame

    std::size_t bytes = 0;
    std::int64_t handles = 0;

    // Region by region: Wine's GetProcessMemoryInfo tells nothing.
    static Held Now() {
        Held held;
        MEMORY_BASIC_INFORMATION region{};
        const std::uint8_t* address = nullptr;
        while (VirtualQuery(address, &region, sizeof(region)) != 0) {
            held.bytes += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
            address = static_cast<const std::uint8_t*>(region.BaseAddress) + region.RegionSize;
        }
        held.handles = rig::CountHandles(GetCurrentProcessId()).value_or(0);
        EXPECT_GT(held.handles, 0);
        return held;
    }
};

} // namespace sample_camera
