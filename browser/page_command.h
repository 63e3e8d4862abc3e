// What a text from the page asks for. Pure: no Windows calls. Matching is exact and case-sensitive.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace receiver {

enum class PageCommandKind {
    Ready, // "ready"
    WindowOrientation, // "window:orientation:" mode
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
struct PictureSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    bool operator==(const PictureSize&) const = default;
};

// Client area of the window for "landscape", "portrait" and "setup".
[[nodiscard]] std::optional<PictureSize> ClientSizeOf(std::wstring_view orientation) noexcept;

} // namespace receiver
