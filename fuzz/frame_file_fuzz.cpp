// Opens a shared frame file of any header and size and publishes into it. Input: the 64 bytes of the header, a byte
// that chooses the file's size, then one byte for each frame to publish; missing bytes are zero.

#include "frames/shared_frame_file.h"
#include "fuzz/support/require.h"
#include "fuzz/windows/fake_windows.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <vector>

namespace receiver {
namespace {

constexpr std::size_t HeaderBytes = 64;
constexpr std::size_t SequenceOffset = 24;
constexpr std::size_t MaxFrames = 8;
constexpr std::uint64_t FileSizes[] = {62272, 62273, 70000, 62271, 31168, 64, 63, 24, 0};

// Reads a field of the header as a camera does.
std::uint32_t Field32(std::span<const std::uint8_t> file, std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, file.data() + offset, sizeof(value));
    return value;
}
std::uint64_t Field64(std::span<const std::uint8_t> file, std::size_t offset) {
    std::uint64_t value = 0;
    std::memcpy(&value, file.data() + offset, sizeof(value));
    return value;
}

bool HeaderDescribes(std::span<const std::uint8_t> file, std::uint32_t width, std::uint32_t height) {
    return std::memcmp(file.data(), "VSTL\2\0\0\0", 8) == 0 && Field32(file, 8) == width &&
           Field32(file, 12) == height && Field32(file, 16) == width && Field32(file, 20) == width * height / 2 * 3;
}

// True if nothing is left of old frames and their header.
bool IsReset(std::span<const std::uint8_t> file) {
    static const std::array<std::uint8_t, sizeof(FrameFileLayout)> zeros{};
    return std::ranges::equal(file.subspan(SequenceOffset), std::span(zeros).subspan(SequenceOffset));
}

struct Frame {
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t size;
    bool missing; // a null pointer
};

// Two bits of size, four of geometry, one for a missing frame.
Frame ReadFrame(std::uint8_t choice) {
    constexpr std::array<std::array<std::uint32_t, 2>, 8> Geometries{
        {{128, 72}, {192, 108}, {128, 108}, {192, 72}, {72, 128}, {0, 0}, {128, 73}, {0x80000080, 72}}};
    const auto [width, height] = Geometries[choice % 8];
    const std::uint32_t size = width * height / 2 * 3;
    constexpr std::uint32_t SizeErrors[] = {0, 0, 1, static_cast<std::uint32_t>(-1)};
    return {width, height, size + SizeErrors[choice / 8 % 4], choice >= 0xE0};
}

bool IsPublishable(const Frame& frame) {
    return !frame.missing && ((frame.width == 128 && frame.height == 72 && frame.size == 13824) ||
                              (frame.width == 192 && frame.height == 108 && frame.size == 31104));
}

// `before`: the file before it was opened, with zeros after its end.
void CheckOpened(std::span<const std::uint8_t> file, std::span<const std::uint8_t> before) {
    if (HeaderDescribes(before, 128, 72) || HeaderDescribes(before, 192, 108)) {
        Require(std::ranges::equal(file, before), "a good file is kept");
    } else {
        Require(HeaderDescribes(file, 128, 72) && IsReset(file), "a bad file is reset");
    }
}

// Bytes that differ from their neighbors and, at the same place, for each brightness.
void Draw(std::span<std::uint8_t> pixels, std::uint8_t brightness) {
    static const std::vector<std::uint8_t> gradient = [] {
        std::vector<std::uint8_t> bytes(sizeof(FrameFileLayout) + UINT8_MAX);
        std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
        return bytes;
    }();
    std::copy_n(gradient.begin() + brightness, pixels.size(), pixels.begin());
}

void Publish(SharedFrameFile& shared, std::span<std::uint8_t> file, const Frame& frame, std::uint8_t brightness) {
    static const GuardedMemory memory(MaxFrameSize);
    const std::span<std::uint8_t> pixels = memory.Bytes().last(std::min(frame.size, MaxFrameSize));
    Draw(pixels, brightness);
    const std::vector<std::uint8_t> before(file.begin(), file.end());
    const std::uint32_t active = Field32(file, 32);
    const std::size_t target = HeaderBytes + (active == 0 ? MaxFrameSize : 0);
    const std::size_t other = HeaderBytes + (active == 0 ? 0 : MaxFrameSize);

    const HRESULT result =
        shared.PublishFrame(frame.missing ? nullptr : pixels.data(), frame.size, frame.width, frame.height);
    Require(result == (IsPublishable(frame) ? S_OK : E_INVALIDARG), "exactly the two sizes are published");
    if (FAILED(result)) {
        Require(std::ranges::equal(before, file), "a refused frame changes nothing");
        return;
    }
    Require(std::ranges::equal(std::span(before).subspan(other, MaxFrameSize), file.subspan(other, MaxFrameSize)),
            "the active frame is unchanged");
    const std::uint64_t sequence = Field64(before, SequenceOffset);
    Require(Field64(file, SequenceOffset) == sequence + (sequence % 2 == 0 ? 2 : 3), "the sequence grows and is even");
    Require(HeaderDescribes(file, frame.width, frame.height), "the header describes the frame");
    Require(Field32(file, 32) == (active == 0 ? 1U : 0U), "the other buffer is active");
    Require(Field64(file, 40) == FakeWindows::Current().nowMs, "the header has the frame's time");
    Require(std::ranges::equal(pixels, file.subspan(target, frame.size)), "the frame is in the active buffer");
    Require(std::equal(before.begin() + 48, before.begin() + HeaderBytes, file.begin() + 48) &&
                Field32(file, 36) == Field32(before, 36),
            "reserved bytes are unchanged");
}

} // namespace
} // namespace receiver

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace receiver;
    static const GuardedMemory memory(sizeof(FrameFileLayout));
    const std::span<std::uint8_t> file = memory.Bytes();
    std::array<std::uint8_t, HeaderBytes + 1 + MaxFrames> input{};
    std::copy_n(data, std::min(size, input.size()), input.begin());
    const std::size_t frameCount = std::min(size > HeaderBytes ? size - HeaderBytes - 1 : 0, MaxFrames);

    FakeWindows windows(file);
    windows.frameFileSize = FileSizes[input[HeaderBytes] % std::size(FileSizes)];
    Draw(file, 0);
    std::copy_n(input.begin(), HeaderBytes, file.begin());
    std::vector<std::uint8_t> before(file.begin(), file.end());
    const std::size_t kept = std::min<std::uint64_t>(windows.frameFileSize, file.size());
    std::ranges::fill(std::span(before).subspan(kept), std::uint8_t{0});
    {
        SharedFrameFile shared;
        Require(shared.OpenSharedFrameFile() == S_OK, "any file can be opened");
        Require(windows.frameFileSize == file.size(), "an open file has its one size");
        CheckOpened(file, before);
        for (std::size_t i = 0; i < frameCount; ++i) {
            windows.nowMs += i;
            Publish(shared, file, ReadFrame(input[HeaderBytes + 1 + i]), static_cast<std::uint8_t>(i + 1));
        }
    }
    Require(windows.Leaks().empty(), "everything is released");
    return 0;
}
