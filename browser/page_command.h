// The commands that the page posts as texts. Pure: no Windows calls. Matching is exact and case-sensitive.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace receiver {

enum class PageCommandKind {
    Ready, // "ready"
    WindowLayout, // "window:orientation:" layout
    Snapshot, // "media:snapshot"
    RecordStart, // "media:record:start"
    RecordStop, // "media:record:stop"
    Quality, // "quality:" name
    Frame, // "frame:" descriptor
    Unknown, // anything else
};

struct PageCommand {
    PageCommandKind kind = PageCommandKind::Unknown;
    std::wstring_view argument; // what follows the prefix; empty for commands without one
};

[[nodiscard]] PageCommand RecognizePageCommand(std::wstring_view text) noexcept;

// Pixels.
struct ClientSize {
    std::int32_t width = 0;
    std::int32_t height = 0;

    bool operator==(const ClientSize&) const = default;
};

// Client area of the window in the layouts "landscape", "portrait" and "setup".
[[nodiscard]] std::optional<ClientSize> ClientSizeOf(std::wstring_view layout) noexcept;

} // namespace receiver
