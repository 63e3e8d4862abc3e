// Opens a shared frame file of any header and size and publishes into it. Input: the 64 bytes of the header, a byte
// that chooses the file's size, then one byte for each frame to publish; missing bytes are zero.

#include "frames/shared_frame_file.h"
#include "fuzz/support/require.h"
#include "fuzz/windows/fake_windows.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace receiver {
namespace {

constexpr std::size_t HeaderBytes = 64;
constexpr std::size_t SequenceOffset = 24;
constexpr std::size_t MaxFrames = 8;
constexpr std::uint64_t FileSizes[] = {6220864, 6220865, 7000000, 6220863, 3110464, 64, 63, 24, 0};

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

// Calls visit(i) for the last byte of a frame and the first one in each page, so that no input takes long.
constexpr std::size_t PageBytes = 4096;
template <typename Visit>
void ForSomeBytes(std::size_t frameSize, const Visit& visit) {
    for (std::size_t i = 0; i < frameSize; i += PageBytes) {
        visit(i);
    }
    visit(frameSize - 1);
}

// True if nothing is left of old frames and their header.
bool IsReset(std::span<const std::uint8_t> file) {
    bool reset = std::ranges::all_of(file.subspan(SequenceOffset, HeaderBytes - SequenceOffset),
                                     [](std::uint8_t byte) { return byte == 0; });
    for (const std::size_t buffer : {HeaderBytes, HeaderBytes + MaxFrameSize}) {
        ForSomeBytes(MaxFrameSize, [&](std::size_t i) { reset = reset && file[buffer + i] == 0; });
    }
    return reset;
}

// A few positions in both buffers, to detect whether the product wrote there.
constexpr std::uint8_t SampleByte = 0xA5;
constexpr std::size_t Samples[] = {64, 1382463, 1382464, 3110463, 3110464, 4492863, 4492864, 6220863};

struct Frame {
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t size;
    bool missing; // a null pointer
};

// Two bits of size, four of geometry, one for a missing frame.
Frame ReadFrame(std::uint8_t choice) {
    constexpr std::array<std::array<std::uint32_t, 2>, 8> Geometries{
        {{1280, 720}, {1920, 1080}, {1280, 1080}, {1920, 720}, {720, 1280}, {0, 0}, {1280, 721}, {0x80000500, 720}}};
    const auto [width, height] = Geometries[choice % 8];
    const std::uint32_t size = width * height / 2 * 3;
    constexpr std::uint32_t SizeErrors[] = {0, 0, 1, static_cast<std::uint32_t>(-1)};
    return {width, height, size + SizeErrors[choice / 8 % 4], choice >= 0xE0};
}

bool IsPublishable(const Frame& frame) {
    return !frame.missing && ((frame.width == 1280 && frame.height == 720 && frame.size == 1382400) ||
                              (frame.width == 1920 && frame.height == 1080 && frame.size == 3110400));
}

void CheckOpened(std::span<const std::uint8_t> file, std::span<const std::uint8_t> before, bool wholeFile) {
    const bool valid = HeaderDescribes(before, 1280, 720) || HeaderDescribes(before, 1920, 1080);
    if (!valid) {
        Require(HeaderDescribes(file, 1280, 720) && IsReset(file), "a bad file is reset");
        return;
    }
    Require(std::memcmp(file.data(), before.data(), HeaderBytes) == 0, "a good header is kept");
    for (const std::size_t sample : Samples) {
        Require(!wholeFile || file[sample] == SampleByte, "the frames of a good file are kept");
    }
}

void Publish(SharedFrameFile& shared, std::span<std::uint8_t> file, const Frame& frame, std::uint8_t brightness) {
    static const GuardedMemory memory(MaxFrameSize);
    const std::span<std::uint8_t> pixels = memory.Bytes().last(std::min(frame.size, MaxFrameSize));
    if (!pixels.empty()) {
        ForSomeBytes(pixels.size(),
                     [&](std::size_t i) { pixels[i] = static_cast<std::uint8_t>(brightness + i / PageBytes); });
    }
    std::array<std::uint8_t, HeaderBytes> before{};
    std::ranges::copy(file.first(HeaderBytes), before.begin());
    const std::uint32_t active = Field32(file, 32);
    const std::size_t target = HeaderBytes + (active == 0 ? MaxFrameSize : 0);
    const std::size_t other = HeaderBytes + (active == 0 ? 0 : MaxFrameSize);
    const std::uint8_t otherFirst = file[other];
    const std::uint8_t otherLast = file[other + MaxFrameSize - 1];

    const HRESULT result =
        shared.PublishFrame(frame.missing ? nullptr : pixels.data(), frame.size, frame.width, frame.height);
    Require(result == (IsPublishable(frame) ? S_OK : E_INVALIDARG), "exactly the two sizes are published");
    Require(file[other] == otherFirst && file[other + MaxFrameSize - 1] == otherLast, "the active frame is unchanged");
    if (FAILED(result)) {
        Require(std::ranges::equal(before, file.first(HeaderBytes)), "a refused frame changes nothing");
        return;
    }
    const std::uint64_t sequence = Field64(before, SequenceOffset);
    Require(Field64(file, SequenceOffset) == sequence + (sequence % 2 == 0 ? 2 : 3), "the sequence grows and is even");
    Require(HeaderDescribes(file, frame.width, frame.height), "the header describes the frame");
    Require(Field32(file, 32) == (active == 0 ? 1U : 0U), "the other buffer is active");
    Require(Field64(file, 40) == FakeWindows::Current().nowMs, "the header has the frame's time");
    ForSomeBytes(frame.size,
                 [&](std::size_t i) { Require(file[target + i] == pixels[i], "the frame is in the active buffer"); });
    Require(std::equal(before.begin() + 48, before.end(), file.begin() + 48) &&
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
    const bool wholeFile = windows.frameFileSize >= file.size();
    // Bytes after the end of a short file are zero when the file has grown.
    const std::size_t headerSize = std::min<std::uint64_t>(windows.frameFileSize, HeaderBytes);
    std::ranges::fill(file.first(HeaderBytes), std::uint8_t{0});
    std::copy_n(input.begin(), headerSize, file.begin());
    for (const std::size_t sample : Samples) {
        file[sample] = SampleByte;
    }
    std::array<std::uint8_t, HeaderBytes> before{};
    std::ranges::copy(file.first(HeaderBytes), before.begin());
    {
        SharedFrameFile shared;
        Require(shared.OpenSharedFrameFile() == S_OK, "any file can be opened");
        Require(windows.frameFileSize == file.size(), "an open file has its one size");
        CheckOpened(file, before, wholeFile);
        for (std::size_t i = 0; i < frameCount; ++i) {
            windows.nowMs += i;
            Publish(shared, file, ReadFrame(input[HeaderBytes + 1 + i]), static_cast<std::uint8_t>(i + 1));
        }
    }
    Require(windows.Leaks().empty(), "everything is released");
    return 0;
}
