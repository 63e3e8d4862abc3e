// Plays the receiver for authors of cameras who have none: writes a shared frame file as the receiver does, or as it is
// after a mishap. A scenario says what a right reader does with what it sees.
#pragma once

#include "examples/camera/frame_reader.h"
#include "platform/handles.h"
#include "platform/hresult.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// Y of a played frame; its U and V are 128. Every byte tells the frame's number, so that a mixture of two is
// recognized.
[[nodiscard]] constexpr std::uint8_t PlayedY(std::uint64_t frameNumber, std::uint32_t x, std::uint32_t y) noexcept {
    return static_cast<std::uint8_t>(x / 8 + y / 8 + frameNumber * 3);
}

class FramePlayer {
public:
    // Waits so many milliseconds; false: the play is over.
    using Wait = std::function<bool(std::uint32_t)>;

    // `wait` is called between the steps of a scenario.
    explicit FramePlayer(Wait newWait) : wait(std::move(newWait)) {}

    // Creates the file if necessary, brings it to its size and clears it.
    [[nodiscard]] HRESULT Open(const std::wstring& path);

    [[nodiscard]] bool Pause(std::uint32_t milliseconds) { return wait(milliseconds); }
    // The writer's five steps, or parts of them. The frame's number is the half of its final sequence.
    void Begin(std::uint32_t width);
    void FillRows(std::uint32_t first, std::uint32_t count);
    void End();
    void WriteFrame(std::uint32_t width);
    // Mishaps: all from offset 24 on is zero again; a frame with another header.
    void Reset();
    void WriteFrameWith(const std::function<void(vistel::FileHeader&)>& damage);

private:
    [[nodiscard]] std::uint8_t* Bytes() const { return static_cast<std::uint8_t*>(view.Get()); }
    [[nodiscard]] vistel::FileHeader& Header() const { return *static_cast<vistel::FileHeader*>(view.Get()); }
    [[nodiscard]] std::uint32_t Inactive() const { return Header().activeBuffer == 0 ? 1 : 0; }
    void AddToSequence(std::uint64_t count) const;
    void SetHeader(std::uint32_t width) const;

    Wait wait;
    UniqueFile file;
    UniqueHandle mapping;
    MappedView view;
};

struct Scenario {
    const wchar_t* name;
    const char* promise; // what a right reader does
    bool (*play)(FramePlayer& player); // false: the play is over
};

[[nodiscard]] const std::vector<Scenario>& Scenarios();

} // namespace receiver
